#include "faulttest.h"

#include "eventlog.h"

#include <QLoggingCategory>

#include <algorithm>

#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// A process that hangs ends after this time; none needs it.
constexpr unsigned patienceSeconds = 60;

} // namespace

StartedReceiver::StartedReceiver()
{
    // The debug messages of thousands of sessions would take most of the time.
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);
    EventLog::start();
    if (!manager.init())
        qFatal("The receiver does not start");
    device.reset(FakeCanDevice::latest);
    EventLog::take();
}

QStringList StartedReceiver::receive(const ToolFrames::List &frames)
{
    for (const QCanBusFrame &frame : frames)
        device->deliver({frame});
    QStringList events;
    const QStringList lines = EventLog::take();
    for (const QString &line : lines) {
        if (line.startsWith("sent "_L1))
            events.append(line.sliced(5));
        else if (line != "sync"_L1)
            events.append(line);
    }
    return events;
}

QStringList answersIn(const QStringList &events)
{
    QStringList answers;
    for (const QString &event : events) {
        if (!event.endsWith(u'|'))
            answers.append(event);
    }
    return answers;
}

bool complainsIn(const QStringList &events)
{
    return std::any_of(events.cbegin(), events.cend(), [](const QString &event) {
        return event.startsWith("warning"_L1) || event.startsWith("critical"_L1);
    });
}

QString listed(const QStringList &events)
{
    return u"\n    "_s + events.join("\n    "_L1) + u'\n';
}

QString acceptanceOf(const QByteArray &content)
{
    return EventLog::text(QCanBusFrame(
        0x1B584000, ToolFrames::transferComplete(ToolFrames::crc32(content)).payload()));
}

bool isKilled(const std::function<void()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        alarm(patienceSeconds);
        body();
        // Without the cleanup of exit(): it belongs to the parent process.
        _exit(0);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status)
        && WTERMSIG(status) == SIGKILL;
}
