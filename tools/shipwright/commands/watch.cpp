#include "commands.h"

#include "session.h"
#include "trafficprinter.h"

#include <QScopeGuard>

#include <limits>
#include <vector>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

Exit runWatch(Session &session, const CommandLine &line)
{
    BusSettings bus(line);
    QStringList names = line.texts(interfaceOption);
    if (names.isEmpty())
        names += bus.interfaceName;
    names.removeDuplicates();
    TrafficPrinter printer(session.console(), line, names);
    std::vector<Link *> links;
    for (const QString &name : names) {
        bus.interfaceName = name;
        links.push_back(&session.listen(bus));
        links.back()->addObserver(
            [&printer, name](const QCanBusFrame &frame, Direction) { printer.print(name, frame); });
    }
    [[maybe_unused]] const auto atTheEnd = qScopeGuard([&printer] { printer.summarize(); });
    try {
        for (;; session.clock().wait(std::numeric_limits<qint64>::max())) {
            for (Link *link : links) {
                while (link->receive(0)) {}
            }
        }
    } catch (const Failure &failure) {
        // Ctrl-C is how watching ends.
        if (failure.exit != Exit::Interrupted)
            throw;
        return Exit::Success;
    }
}

} // namespace

const Command watchCommand{
    .name = "watch",
    .arguments = "",
    .summary = "Print the traffic on the bus, one readable line per frame, until Ctrl-C.",
    .options = {trafficOptions, busOptions},
    .run = runWatch};

} // namespace Shipwright
