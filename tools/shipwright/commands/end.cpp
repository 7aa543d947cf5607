#include "commands.h"

#include "../console.h"
#include "../session.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit run(Session &session, const QStringList &)
{
    session.peer().endConfiguration();
    session.console().report(u"ended"_s, u"Configuration ended."_s);
    return Exit::Success;
}

} // namespace

const Command endCommand{"end", "", "End the configuration session.", 0, 0, run};

} // namespace Shipwright
