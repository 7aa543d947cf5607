// Installs the received menu archive: no message on the bus does that.
#include "canbusmanager.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    CanBusManager manager;
    manager.processReceivedMenuFile();
    return 0;
}
