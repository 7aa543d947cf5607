#include "candump.h"

#include <QRegularExpression>

namespace Shipwright::Candump {

using namespace Qt::StringLiterals;

QByteArray format(const QString &interfaceName, const QCanBusFrame &frame)
{
    const QCanBusFrame::TimeStamp stamp = frame.timeStamp();
    const int idDigits = frame.hasExtendedFrameFormat() ? 8 : 3;
    QString data;
    if (frame.frameType() == QCanBusFrame::RemoteRequestFrame)
        data = u"R"_s;
    else
        data = QString::fromLatin1(frame.payload().toHex()).toUpper();
    return u"(%1.%2) %3 %4#%5\n"_s.arg(stamp.seconds())
        .arg(stamp.microSeconds(), 6, 10, QLatin1Char('0'))
        .arg(interfaceName,
             QString::number(frame.frameId(), 16).toUpper().rightJustified(idDigits, QLatin1Char('0')), data)
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
    // candump marks error frames by bit 29 of the identifier.
    if (id > 0x1FFFFFFF || (idText.size() == 3 && id > 0x7FF))
        return std::nullopt;

    QCanBusFrame frame;
    frame.setFrameId(id);
    frame.setExtendedFrameFormat(idText.size() == 8);
    const QString data = match.captured(5);
    if (data.startsWith(u'R'))
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    else
        frame.setPayload(QByteArray::fromHex(data.toLatin1()));
    frame.setTimeStamp(QCanBusFrame::TimeStamp(match.captured(1).toLongLong(),
                                               match.captured(2).toLongLong()));
    return Entry{match.captured(3), frame};
}

} // namespace Shipwright::Candump
