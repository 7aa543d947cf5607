// Work of a fixed size for callgrind, which dumps what each piece took under the piece's name.
// compare-instructions runs it.

#include "candevice.h"
#include "canbusmanager.h"
#include "record.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <array>

#include <valgrind/callgrind.h>

namespace {

constexpr unsigned repetitions = 100;

void setEveryLevel(bool on)
{
    QLoggingCategory::setFilterRules(on ? QStringLiteral("default=true")
                                        : QStringLiteral("default.debug=false\ndefault.info=false"));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const Record record;
    CanDevice device;
    device.connectDevice();
    CanBusManager manager;
    manager.canDevice = &device;
    QObject::connect(&device, SIGNAL(framesReceived()), &manager, SLOT(onFramesReceived()));
    device.receive(std::array{initiatePackage(repetitions)});

    // Only what the receiver does is counted, not the device's building of frames.
    const auto handle = [&device](std::span<const can_frame> frames) {
        {
            const QSignalBlocker blocker(device);
            device.receive(frames);
        }
        CALLGRIND_START_INSTRUMENTATION;
        emit device.framesReceived();
        CALLGRIND_STOP_INSTRUMENTATION;
    };
    const auto receiveData = [&] {
        for (unsigned i = 0; i < repetitions; ++i) {
            manager.multiPacketTransfer.expectedFrameNumber = 0;
            handle(record.data());
        }
    };

    setEveryLevel(false);
    device.receive(record.start());
    CALLGRIND_ZERO_STATS;
    receiveData();
    CALLGRIND_DUMP_STATS_AT("data frames");

    for (unsigned i = 0; i < repetitions; ++i)
        handle(record.all());
    CALLGRIND_DUMP_STATS_AT("records");

    setEveryLevel(true);
    receiveData();
    CALLGRIND_DUMP_STATS_AT("data frames, every level logged");
    return manager.multiPacketTransfer.outputFile.size() == repetitions * qint64(Record::bytes) ? 0 : 1;
}
