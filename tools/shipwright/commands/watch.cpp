#include "commands.h"

#include "console.h"
#include "session.h"

#include "decoder.h"

#include <limits>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit run(Session &session, const CommandLine &line)
{
    std::optional<qint64> start;
    Link &link = session.listen(BusSettings(line));
    link.addObserver([&start, &session](const QCanBusFrame &frame, Direction) {
        if (!start)
            start = microSeconds(frame.timeStamp());
        session.console().report(u"frame"_s, decodedLine(frame, *start), decodedObject(frame));
        session.console().checkOutput();
    });
    try {
        while (link.receive(std::numeric_limits<qint64>::max())) {}
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
    .arguments = "",
    .summary = "Print the traffic on the bus, one readable line per frame, until Ctrl-C.",
    .options = {busOptions},
    .run = run};

} // namespace Shipwright
