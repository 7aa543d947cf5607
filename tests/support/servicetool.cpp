#include "servicetool.h"

#include <QtEndian>

namespace {

QByteArray hex(quint32 number)
{
    char bytes[4];
    qToLittleEndian(number, bytes);
    return QByteArray(bytes, sizeof bytes).toHex();
}

QByteArray hex(quint8 byte)
{
    return QByteArray(1, char(byte)).toHex();
}

} // namespace

QByteArray ServiceTool::transferInfo(quint8 fileType, quint32 size)
{
    return "1B1A0000#" + hex(fileType) + "08" + hex(size);
}

QByteArray ServiceTool::initiateTransfer(quint8 fileType, quint32 records)
{
    return "1B1A1000#" + hex(fileType) + "080000" + hex(records);
}

QByteArray ServiceTool::record(quint32 number, const QByteArray &data)
{
    const auto frames = quint8((data.size() + 7) / 8);
    QByteArray result = "1B1A2000#" + hex(frames) + hex(number);
    for (quint32 frame = 0; frame < frames; ++frame) {
        result += ' ' + QByteArray::number(0x1B1AF000 | frame << 4, 16) + '#'
            + data.mid(8 * frame, 8).toHex();
    }
    return result + " 1B1A3000#" + hex(crc32(data));
}

QByteArray ServiceTool::transferComplete(quint32 crc)
{
    return "1B1A4000#" + hex(crc);
}

quint32 ServiceTool::crc32(const QByteArray &data)
{
    quint32 crc = 0xFFFFFFFF;
    for (const char byte : data) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return ~crc;
}
