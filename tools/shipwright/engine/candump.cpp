#include "candump.h"

#include <QRegularExpression>

namespace Shipwright::Candump {

using namespace Qt::StringLiterals;

namespace {

/// Marks an error frame in a log; the bits below it are the error's kind.
constexpr quint32 errorFlag = 0x20000000;

} // namespace

QByteArray format(const QString &interfaceName, const QCanBusFrame &frame)
{
    const QCanBusFrame::TimeStamp stamp = frame.timeStamp();
    const bool isError = frame.frameType() == QCanBusFrame::ErrorFrame;
    const int idDigits = isError || frame.hasExtendedFrameFormat() ? 8 : 3;
    const quint32 id = isError ? errorFlag | quint32(frame.error().toInt()) : frame.frameId();
    QString data;
    if (frame.frameType() == QCanBusFrame::RemoteRequestFrame)
        data = u"R"_s;
    else
        data = QString::fromLatin1(frame.payload().toHex()).toUpper();
    return u"(%1.%2) %3 %4#%5\n"_s.arg(stamp.seconds())
        .arg(stamp.microSeconds(), 6, 10, QLatin1Char('0'))
        .arg(interfaceName,
             QString::number(id, 16).toUpper().rightJustified(idDigits, QLatin1Char('0')), data)
        .toUtf8();
}

std::optional<Entry> parse(const QByteArray &line)
{
    // A "T" or "R" behind the frame tells its direction in logs of candump -x.
    static const QRegularExpression form(
        uR"(^\((\d{1,12})\.(\d{6})\)\s+(\S+)\s+([0-9A-Fa-f]{3}|[0-9A-Fa-f]{8})#)"
        uR"((R\d?|(?:[0-9A-Fa-f]{2}){0,8})(?:\s+[TR])?\s*$)"_s);
    const auto match = form.match(QString::fromUtf8(line));
    if (!match.hasMatch())
        return std::nullopt;
    const QString idText = match.captured(4);
    const quint32 id = idText.toUInt(nullptr, 16);
    if (id >= errorFlag << 1 || (idText.size() == 3 && id > 0x7FF))
        return std::nullopt;

    QCanBusFrame frame;
    const QString data = match.captured(5);
    if ((id & errorFlag) != 0) {
        frame.setFrameType(QCanBusFrame::ErrorFrame);
        frame.setError(QCanBusFrame::FrameErrors::fromInt(id & ~errorFlag));
    } else {
        frame.setFrameId(id);
        frame.setExtendedFrameFormat(idText.size() == 8);
    }
    if (data.startsWith(u'R'))
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    else
        frame.setPayload(QByteArray::fromHex(data.toLatin1()));
    frame.setTimeStamp(
        QCanBusFrame::TimeStamp(match.captured(1).toLongLong(), match.captured(2).toLongLong()));
    return Entry{match.captured(3), frame};
}

} // namespace Shipwright::Candump
