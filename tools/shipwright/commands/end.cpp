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

Exit runEnd(Session &session, const CommandLine &line)
{
    session.connect(SendSettings(line));
    endConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command endCommand{.name = "end",
                         .arguments = "",
                         .summary = "End the configuration session.",
                         .options = {busOptions, sendOptions, receiverOptions, slotOptions},
                         .run = runEnd};

} // namespace Shipwright
