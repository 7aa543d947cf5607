#include "eventlog.h"

#include <QByteArray>
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
    switch (type) {
    case QtDebugMsg:
        return u"debug"_s;
    case QtInfoMsg:
        return u"info"_s;
    case QtWarningMsg:
        return u"warning"_s;
    case QtCriticalMsg:
        return u"critical"_s;
    case QtFatalMsg:
        break;
    }
    return u"fatal"_s;
}

void takeMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QString category = QString::fromUtf8(context.category);
    const QString suffix = category == "default"_L1 ? QString() : u'(' + category + u')';
    EventLog::add(levelName(type) + suffix + " |"_L1 + text + u'|');
}

} // namespace

// Takes the place of the system call in the whole process.
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
}

void EventLog::add(const QString &line)
{
    log().append(line);
}

QStringList EventLog::take()
{
    return std::exchange(log(), {});
}

QStringList EventLog::transcript(const char *text)
{
    QStringList lines = QString::fromUtf8(text).split(u'\n');
    for (QString &line : lines)
        line = line.trimmed();
    lines.removeAll(QString());
    return lines;
}

QString EventLog::describe(const QCanBusFrame &frame)
{
    QString text = u"%1 %2"_s.arg(frame.frameId(), 8, 16, QChar(u'0'))
                       .arg(frame.hasExtendedFrameFormat() ? "ext"_L1 : "base"_L1);
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
    return text + " ["_L1 + QString::fromLatin1(frame.payload().toHex(' ')) + u']';
}

void EventLog::addDisplay(const QString &text1, bool visible1, const QString &text2, bool visible2,
                          double progress, bool progressVisible)
{
    const auto onOff = [](bool visible) { return visible ? "on"_L1 : "off"_L1; };
    add(u"display \"%1\" %2 \"%3\" %4 %5 %6"_s.arg(text1, onOff(visible1), text2, onOff(visible2),
                                                   QString::number(progress, 'g', 17),
                                                   onOff(progressVisible)));
}
