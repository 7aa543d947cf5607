// The least Qt Gui process that opens the receiver's CAN device.

#include <QCanBus>
#include <QCanBusDevice>
#include <QDebug>
#include <QGuiApplication>

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    QCanBusDevice *device = QCanBus::instance()->createDevice(QStringLiteral("socketcan"),
                                                              QStringLiteral("can0"));
    if (!device || !device->connectDevice())
        return 1;
    qInfo() << device->state();
    return QGuiApplication::exec();
}
