#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

TimeSetting readTime(const QString &text)
{
    TimeSetting time;
    if (text != u"now") {
        // What is printed is taken too.
        time = QDateTime::fromString(QString(text).replace(u" UTC"_s, u"Z"_s), Qt::ISODate).toUTC();
        if (!time->isValid()) {
            throw Failure(
                Exit::Usage, u"\"%1\" is not a date and time."_s.arg(text),
                u"Use \"now\" or ISO 8601: 2026-03-05T14:07:09Z, or without the Z for local "
                "time."_s);
        }
    }
    Peer::checkDateTime(time.value_or(QDateTime::currentDateTimeUtc()));
    return time;
}

void setTime(Session &session, const TimeSetting &setting)
{
    const QDateTime time = setting.value_or(QDateTime::currentDateTimeUtc());
    session.peer().setDateTime(time);
    const QString shown = time.toString(u"yyyy-MM-dd hh:mm:ss 'UTC'"_s);
    session.console().report(u"clock"_s, u"Clock set to %1."_s.arg(shown),
                             {{u"clock"_s, time.toString(Qt::ISODate)}});
}

namespace {

Exit runSetTime(Session &session, const CommandLine &line)
{
    const SendSettings settings(line);
    const TimeSetting time = readTime(line.arguments.value(0, u"now"_s));
    session.connect(settings);
    setTime(session, time);
    return Exit::Success;
}

} // namespace

const Command setTimeCommand{
    .name = "set-time",
    .arguments = "[now|DATE-TIME]",
    .summary = "Set the receiver's clock to this computer's time or to an ISO 8601 time.",
    .mostArguments = 1,
    .options = {busOptions, sendOptions, receiverOptions, slotOptions},
    .run = runSetTime};

} // namespace Shipwright
