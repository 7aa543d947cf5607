#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

QDateTime dateTimeFromText(const QString &text)
{
    const QDateTime time = text == u"now" ? QDateTime::currentDateTimeUtc()
                                          : QDateTime::fromString(text, Qt::ISODate);
    if (!time.isValid()) {
        throw Failure(Exit::Usage, u"\"%1\" is not a date and time."_s.arg(text),
                      u"Write now, or ISO 8601: 2026-03-05T14:07:09Z, or without the Z for local "
                      "time."_s);
    }
    return time.toUTC();
}

void setTime(Session &session, const QString &text)
{
    const QDateTime time = dateTimeFromText(text);
    session.peer().setDateTime(time);
    const QString shown = time.toString(u"yyyy-MM-dd hh:mm:ss 'UTC'"_s);
    session.console().report(u"time"_s, u"Clock set to %1."_s.arg(shown), {{u"time"_s, shown}});
}

namespace {

Exit run(Session &session, const QStringList &arguments)
{
    setTime(session, arguments.value(0, u"now"_s));
    return Exit::Success;
}

} // namespace

const Command setTimeCommand{
    .name = "set-time",
    .arguments = "[now|DATE-TIME]",
    .summary = "Set the receiver's clock, to this computer's time or to an ISO 8601 one.",
    .mostArguments = 1,
    .run = run};

} // namespace Shipwright
