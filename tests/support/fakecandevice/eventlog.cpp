#include "eventlog.h"

#include <QByteArray>
#include <QHash>
#include <QMessageLogContext>

#include <unistd.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

QStringList &log()
{
    static QStringList lines;
    return lines;
}

QString levelName(QtMsgType type)
{
    static const QHash<QtMsgType, QString> names{{QtDebugMsg, u"debug"_s},
                                                 {QtInfoMsg, u"info"_s},
                                                 {QtWarningMsg, u"warning"_s},
                                                 {QtCriticalMsg, u"critical"_s},
                                                 {QtFatalMsg, u"fatal"_s}};
    return names.value(type);
}

void takeMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QString category = QString::fromUtf8(context.category);
    const QString suffix = category == "default"_L1 ? QString() : u'(' + category + u')';
    EventLog::add(levelName(type) + suffix + " |"_L1 + text + u'|');
}

} // namespace

// Replaces the system call in the whole process.
extern "C" void sync() noexcept
{
    EventLog::add(u"sync"_s);
}

void EventLog::start()
{
    log().clear();
    qInstallMessageHandler(takeMessage);
}

void EventLog::stop()
{
    qInstallMessageHandler(nullptr);
    watcher = nullptr;
}

void EventLog::add(const QString &line)
{
    if (watcher)
        watcher(line);
    log().append(line);
}

QStringList EventLog::take()
{
    return std::exchange(log(), {});
}

QStringList EventLog::transcript(const QString &text)
{
    QStringList lines = text.split(u'\n');
    for (QString &line : lines)
        line = line.trimmed();
    lines.removeAll(QString());
    return lines;
}

QCanBusFrame EventLog::frame(const QString &text)
{
    const QString id = text.section(u'#', 0, 0);
    const QString payload = text.section(u'#', 1);
    QCanBusFrame result(id.toUInt(nullptr, 16), QByteArray::fromHex(payload.toLatin1()));
    result.setExtendedFrameFormat(id.size() == 8);
    if (payload == u'E') {
        result.setPayload({});
        result.setFrameType(QCanBusFrame::ErrorFrame);
    }
    return result;
}

QString EventLog::text(const QCanBusFrame &frame)
{
    const QString id = QString::number(frame.frameId(), 16);
    QString text = id.rightJustified(frame.hasExtendedFrameFormat() ? 8 : 3, u'0') + u'#'
        + QString::fromLatin1(frame.payload().toHex());
    text = text.toUpper();
    const std::pair<bool, QLatin1StringView> oddities[] = {
        {!frame.isValid(), " invalid"_L1},
        {frame.frameType() != QCanBusFrame::DataFrame, " not-data"_L1},
        {frame.hasFlexibleDataRateFormat(), " fd"_L1},
        {frame.hasBitrateSwitch(), " brs"_L1},
        {frame.hasErrorStateIndicator(), " esi"_L1},
        {frame.hasLocalEcho(), " echo"_L1},
    };
    for (const auto &[present, name] : oddities) {
        if (present)
            text += name;
    }
    return text;
}

void EventLog::addDisplay(const QString &text1, bool visible1, const QString &text2, bool visible2,
                          double progress, bool progressVisible)
{
    const auto onOff = [](bool visible) { return visible ? "on"_L1 : "off"_L1; };
    add(u"display \"%1\" %2 \"%3\" %4 %5 %6"_s.arg(text1, onOff(visible1), text2, onOff(visible2),
                                                   QString::number(progress, 'g', 17),
                                                   onOff(progressVisible)));
}
