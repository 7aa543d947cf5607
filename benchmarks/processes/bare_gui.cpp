// The least Qt Gui process that opens the receiver's CAN device; WITH_ENGINE constructs a QML
// engine before, as the receiver does.

#include <QCanBus>
#include <QCanBusDevice>
#include <QDebug>
#include <QGuiApplication>
#ifdef WITH_ENGINE
#include <QQmlApplicationEngine>
#endif

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
#ifdef WITH_ENGINE
    QQmlApplicationEngine engine;
#endif
    QCanBusDevice *device = QCanBus::instance()->createDevice(QStringLiteral("socketcan"),
                                                              QStringLiteral("can0"));
    if (!device || !device->connectDevice())
        return 1;
    qInfo() << device->state();
    return QGuiApplication::exec();
}
