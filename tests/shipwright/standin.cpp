// A participant on the virtual bus that answers like a receiver, on request with a deviation:
//   standin [BEHAVIOUR]

#include "deviations.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <memory>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    ReceiverModel receiver;
    if (argc > 1) {
        receiver.deviation = plantedDeviation(QCoreApplication::arguments().at(1));
        if (!receiver.deviation) {
            std::fprintf(stderr, "standin: the behaviours are\n");
            for (const PlantedDeviation &known : plantedDeviations())
                std::fprintf(stderr, "  %s\n", known.behaviour);
            return 2;
        }
    }

    const std::unique_ptr<QCanBusDevice> device(
        QCanBus::instance()->createDevice(QStringLiteral("socketcan"), QStringLiteral("can0")));
    if (!device || !device->connectDevice())
        return 1;
    QObject::connect(device.get(), &QCanBusDevice::framesReceived, &app, [&] {
        while (device->framesAvailable() > 0) {
            for (const QCanBusFrame &answer : receiver.receive(device->readFrame())) {
                const auto send = [&device, answer] {
                    device->writeFrame(QCanBusFrame(answer.frameId(), answer.payload()));
                };
                const auto delay = answer.timeStamp().microSeconds() / 1000;
                if (delay > 0)
                    QTimer::singleShot(int(delay), device.get(), send);
                else
                    send();
            }
        }
    });
    const auto sayReady = [] {
        std::puts("ready");
        std::fflush(stdout);
    };
    if (device->state() == QCanBusDevice::ConnectedState)
        sayReady();
    else
        QObject::connect(device.get(), &QCanBusDevice::stateChanged, &app, sayReady);
    return QCoreApplication::exec();
}
