// Prints the peak of its resident memory in KiB, with or without a file's CRC.
//   crc_memory [FILE]

#include "canbusmanager.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    CanBusManager canBusManager;
    if (argc > 1) {
        const QString path = QFile::decodeName(argv[1]);
        if (canBusManager.CalculateCRC32(path, 0, long(QFile(path).size())) == 0)
            return 1;
    }
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            std::printf("%lld\n", line.simplified().split(' ').at(1).toLongLong());
    }
    return 0;
}
