#include "options.h"

#include "failure.h"

#include "wire.h"

#include <limits>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

qint64 number(const QCommandLineParser &parser, const QString &option, qint64 least, qint64 most)
{
    bool ok = false;
    const QString text = parser.value(option);
    const qint64 value = text.toLongLong(&ok);
    if (!ok || value < least || value > most) {
        throw Failure(Exit::Usage,
                      u"--%1 takes a number from %2 to %3, not \"%4\"."_s.arg(option)
                          .arg(least)
                          .arg(most)
                          .arg(text));
    }
    return value;
}

} // namespace

void addCommonOptions(QCommandLineParser &parser)
{
    parser.addOptions({
        {u"plugin"_s, u"Qt CAN bus plugin (default: socketcan)."_s, u"NAME"_s, u"socketcan"_s},
        {u"interface"_s, u"CAN interface (default: can0)."_s, u"NAME"_s, u"can0"_s},
        {u"bitrate"_s,
         u"Bit rate of the bus in bit/s: the measure of the throughput shown, and set on the adapter "
         "where the plugin can; a SocketCAN interface that is up keeps its own."_s,
         u"RATE"_s},
        {u"slot"_s, u"Slot of the commands, 0 to 3 (default: 0)."_s, u"SLOT"_s, u"0"_s},
        {u"destination"_s, u"Node that is addressed, 26 or 14 (default: 26)."_s, u"NODE"_s,
         u"26"_s},
        {u"timeout"_s,
         u"Time limit for an answer in milliseconds (default: the receiver's own limits, 1000 until "
         "it has told them)."_s,
         u"MS"_s},
        {u"retries"_s, u"Times that a record is sent again (default: 5)."_s, u"COUNT"_s, u"5"_s},
        {u"log"_s, u"Write all frames to a log that canplayer and \"shipwright decode\" read."_s,
         u"FILE"_s},
        {u"json"_s, u"Print one JSON object per event."_s},
        {u"fault"_s,
         u"Disturb frames on purpose, ACTION[=MS]@FRAMES[:FIRST[-LAST]]; may be given more than once. "
         "Actions: %1. Frames: %2."_s.arg(FaultPlan::actionNames().join(u", "_s),
                                          FaultPlan::frameNames().join(u", "_s)),
         u"FAULT"_s},
    });
}

Options readCommonOptions(const QCommandLineParser &parser)
{
    Options options;
    options.plugin = parser.value(u"plugin"_s);
    options.interfaceName = parser.value(u"interface"_s);
    if (parser.isSet(u"bitrate"_s))
        options.bitRate = quint32(number(parser, u"bitrate"_s, 10'000, 1'000'000));
    options.peer.slot = quint32(number(parser, u"slot"_s, 0, Wire::P3::slot.max()));
    options.peer.destination = parser.value(u"destination"_s).toUInt();
    if (options.peer.destination != Wire::nodeDockhand
        && options.peer.destination != Wire::nodeDockhandAlt) {
        throw Failure(Exit::Usage,
                      u"--destination takes %1 or %2, not \"%3\"."_s.arg(Wire::nodeDockhand)
                          .arg(Wire::nodeDockhandAlt)
                          .arg(parser.value(u"destination"_s)));
    }
    if (parser.isSet(u"timeout"_s)) {
        options.peer.timeout = number(parser, u"timeout"_s, 1, std::numeric_limits<int>::max());
    }
    options.peer.retries = int(number(parser, u"retries"_s, 0, 1000));
    options.logFile = parser.value(u"log"_s);
    options.json = parser.isSet(u"json"_s);
    for (const QString &fault : parser.values(u"fault"_s))
        options.faults.add(fault);
    return options;
}

} // namespace Shipwright
