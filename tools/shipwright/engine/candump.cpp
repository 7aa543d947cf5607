#include "candump.h"

#include "text.h"

#include <QDateTime>
#include <QRegularExpression>

namespace Shipwright::Candump {

using namespace Qt::StringLiterals;

namespace {

/// Marks an error frame in a log; the bits below it are the error's kind.
constexpr quint32 errorFlag = 0x20000000;

/// The parts of a line, as text.
struct Line
{
    QString time;
    QString interfaceName;
    QString id;
    QString data; ///< hexadecimal, without blanks; "R" in a remote frame
};

std::optional<Line> logLine(const QString &text)
{
    // In logs of candump -x a "T" or "R" after the frame gives its direction.
    static const QRegularExpression form(
        uR"(^\(([^)]+)\)\s+(\S+)\s+([0-9A-Fa-f]{3}|[0-9A-Fa-f]{8})#)"
        uR"((R\d?|(?:[0-9A-Fa-f]{2}){0,8})(?:\s+[TR])?\s*$)"_s);
    const auto match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    return Line{match.captured(1), match.captured(2), match.captured(3), match.captured(4)};
}

std::optional<Line> printedLine(const QString &text)
{
    // candump -x prints direction and flags between name and identifier. After the bytes there may
    // be the same bytes as text, or the error's name.
    static const QRegularExpression form(
        uR"(^\s*(?:\(([^)]+)\)\s+)?(\S+)\s+(?:[RT]X [B-] [E-]\s+)?)"
        uR"(([0-9A-Fa-f]{3}|[0-9A-Fa-f]{8})\s+\[([0-8])\]\s*(.*)$)"_s);
    const auto match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    Line line{match.captured(1), match.captured(2), match.captured(3), {}};
    if (match.captured(5).startsWith(u"remote request"_s)) {
        line.data = u"R"_s;
        return line;
    }
    static const QRegularExpression byte(u"^[0-9A-Fa-f]{2}$"_s);
    const QStringList words = match.captured(5).split(u' ', Qt::SkipEmptyParts);
    const qsizetype count = match.captured(4).toInt();
    for (qsizetype i = 0; i < count; ++i) {
        if (!byte.match(words.value(i)).hasMatch())
            return std::nullopt;
        line.data += words.at(i);
    }
    return line;
}

/// Microseconds; \a text is in seconds, or a local date and time; an empty one is 0.
std::optional<qint64> timeStamp(const QString &text)
{
    static const QRegularExpression seconds(uR"(^(-?)(\d{1,12})\.(\d{1,9})$)"_s);
    static const QRegularExpression date(uR"(^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\.(\d{6})$)"_s);
    if (text.isEmpty())
        return 0;
    if (const auto match = seconds.match(text); match.hasMatch()) {
        const qint64 fraction = match.captured(3).leftJustified(6, u'0', true).toLongLong();
        const qint64 stamp = match.captured(2).toLongLong() * 1'000'000 + fraction;
        return match.captured(1).isEmpty() ? stamp : -stamp;
    }
    const auto match = date.match(text);
    const auto time = QDateTime::fromString(match.captured(1), u"yyyy-MM-dd hh:mm:ss"_s);
    if (!time.isValid())
        return std::nullopt;
    return time.toSecsSinceEpoch() * 1'000'000 + match.captured(2).toLongLong();
}

} // namespace

QByteArray format(const QString &interfaceName, const QCanBusFrame &frame)
{
    static const QRegularExpression blank(u"\\s"_s);
    QString name = interfaceName;
    name.replace(blank, u"_"_s);
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
        .arg(name, hexDigits(id).right(idDigits).toUpper(), data)
        .toUtf8();
}

std::optional<Entry> parse(const QByteArray &line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    std::optional<Line> parts = logLine(text);
    if (!parts)
        parts = printedLine(text);
    if (!parts)
        return std::nullopt;
    const std::optional<qint64> stamp = timeStamp(parts->time);
    const quint32 id = parts->id.toUInt(nullptr, 16);
    if (!stamp || id >= errorFlag << 1 || (parts->id.size() == 3 && id > 0x7FF))
        return std::nullopt;

    QCanBusFrame frame;
    if ((id & errorFlag) != 0) {
        frame.setFrameType(QCanBusFrame::ErrorFrame);
        frame.setError(QCanBusFrame::FrameErrors::fromInt(id & ~errorFlag));
    } else {
        frame.setFrameId(id);
        frame.setExtendedFrameFormat(parts->id.size() == 8);
    }
    if (parts->data.startsWith(u'R'))
        frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
    else
        frame.setPayload(QByteArray::fromHex(parts->data.toLatin1()));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(*stamp));
    return Entry{parts->interfaceName, frame};
}

} // namespace Shipwright::Candump
