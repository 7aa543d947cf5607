#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

void endConfiguration(Session &session)
{
    session.peer().endConfiguration();
    session.console().report(u"ended"_s, u"Configuration ended."_s);
}

namespace {

Exit run(Session &session, const QStringList &)
{
    endConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command endCommand{.name = "end", .summary = "End the configuration session.", .run = run};

} // namespace Shipwright
