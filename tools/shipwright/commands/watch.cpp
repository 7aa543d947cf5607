#include "commands.h"

#include "console.h"
#include "session.h"

#include "decoder.h"

#include <limits>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit run(Session &session, const QStringList &)
{
    std::optional<qint64> start;
    Link &link = session.link();
    link.addObserver([&start, &session](const QCanBusFrame &frame, Direction) {
        if (!start)
            start = microSeconds(frame.timeStamp());
        session.console().report(u"frame"_s, decodedLine(frame, *start), decodedObject(frame));
    });
    try {
        for (;;)
            link.receive(std::numeric_limits<qint64>::max());
    } catch (const Failure &failure) {
        // Ctrl-C is how watching ends.
        if (failure.exit != Exit::Interrupted)
            throw;
    }
    return Exit::Success;
}

} // namespace

const Command watchCommand{
    .name = "watch",
    .summary = "Print the traffic on the bus, one readable line a frame, until Ctrl-C.",
    .run = run};

} // namespace Shipwright
