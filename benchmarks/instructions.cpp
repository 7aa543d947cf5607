// Work of a fixed size for callgrind, which dumps what each piece took under the piece's name.
// compare-instructions runs it. With --made-with it only prints what the counts depend on.

#include "benchreceiver.h"

#include <QCoreApplication>
#include <QSignalBlocker>

#include <array>
#include <cstdio>
#include <optional>

#include <valgrind/callgrind.h>

namespace {

constexpr unsigned repetitions = 100;

/// Counts what the receiver does with \a frames, but not the device's building of them.
void handle(BenchReceiver &receiver, std::span<const can_frame> frames)
{
    {
        const QSignalBlocker blocker(receiver.device);
        receiver.device.receive(frames);
    }
    CALLGRIND_START_INSTRUMENTATION;
    emit receiver.device.framesReceived();
    CALLGRIND_STOP_INSTRUMENTATION;
}

void handleData(BenchReceiver &receiver)
{
    for (unsigned i = 0; i < repetitions; ++i) {
        receiver.expectData();
        handle(receiver, record.data());
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc == 2 && qstrcmp(argv[1], "--made-with") == 0) {
        std::printf("compiler %s, Qt %s\n", __VERSION__, qVersion());
        return 0;
    }
    QCoreApplication app(argc, argv);
    std::optional<Logging> logging(std::in_place, shippedRules);
    BenchReceiver receiver;
    receiver.device.receive(std::array{initiatePackage(repetitions)});
    CALLGRIND_ZERO_STATS;
    handleData(receiver);
    CALLGRIND_DUMP_STATS_AT("data frames");

    for (unsigned i = 0; i < repetitions; ++i)
        handle(receiver, record.all());
    CALLGRIND_DUMP_STATS_AT("records");

    logging.emplace(everyLevel);
    handleData(receiver);
    CALLGRIND_DUMP_STATS_AT("data frames, every level logged");

    const qint64 expected = repetitions * qint64(Record::bytes);
    return receiver.manager.multiPacketTransfer.outputFile.size() == expected ? 0 : 1;
}
