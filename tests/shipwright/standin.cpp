// A participant on the virtual bus that answers like a receiver, with a defect if asked for one.

#include "receivermodel.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QCoreApplication>

#include <cstdio>
#include <memory>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    ReceiverModel receiver;
    for (const QString &name : QCoreApplication::arguments().mid(1)) {
        const auto defect = ReceiverModel::defectFromName(name);
        if (!defect) {
            std::fprintf(stderr, "standin: the defects are %s\n",
                         qPrintable(ReceiverModel::defectNames().join(QStringLiteral(", "))));
            return 2;
        }
        receiver.setDefect(*defect);
    }

    const std::unique_ptr<QCanBusDevice> device(
        QCanBus::instance()->createDevice(QStringLiteral("socketcan"), QStringLiteral("can0")));
    if (!device || !device->connectDevice())
        return 1;
    QObject::connect(device.get(), &QCanBusDevice::framesReceived, &app, [&] {
        while (device->framesAvailable() > 0) {
            for (const QCanBusFrame &answer : receiver.handle(device->readFrame()))
                device->writeFrame(answer);
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
