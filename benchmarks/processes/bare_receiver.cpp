// The receiver without its display.

#include "canbusmanager.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    CanBusManager canBusManager;
    if (!canBusManager.init())
        return 1;
    return QCoreApplication::exec();
}
