#include "commands.h"
#include "steps.h"

#include "../console.h"
#include "../session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

void startConfiguration(Session &session)
{
    session.peer().startConfiguration();
    session.console().report(u"connected"_s, u"Connected."_s);
}

namespace {

Exit run(Session &session, const QStringList &)
{
    startConfiguration(session);
    return Exit::Success;
}

} // namespace

const Command connectCommand{"connect", "", "Start a configuration session: check that the receiver answers.",
                             0, 0, run};

} // namespace Shipwright
