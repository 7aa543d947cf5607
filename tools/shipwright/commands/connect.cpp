#include "commands.h"
#include "steps.h"

#include "console.h"
#include "session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

void startConfiguration(Session &session)
{
    session.peer().startConfiguration();
    session.console().report(u"connected"_s, u"Connected."_s);
}

namespace {

Exit runConnect(Session &session, const CommandLine &line)
{
    session.connect(SendSettings(line));
    startConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command connectCommand{
    .name = "connect",
    .arguments = "",
    .summary = "Start a configuration session and check that the receiver answers.",
    .options = {busOptions, sendOptions, receiverOptions, slotOptions},
    .run = runConnect};

} // namespace Shipwright
