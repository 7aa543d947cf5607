#include "toolframes.h"

#include <QtEndian>

namespace {

constexpr qsizetype recordSize = 512;

template<typename Number>
QByteArray littleEndian(Number number)
{
    QByteArray bytes(sizeof number, '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

QCanBusFrame extendedFrame(quint32 id, const QByteArray &payload)
{
    QCanBusFrame frame(id, payload);
    frame.setExtendedFrameFormat(true);
    return frame;
}

} // namespace

quint32 ToolFrames::crc32(const QByteArray &data)
{
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : data) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    return ~crc;
}

QCanBusFrame ToolFrames::p3(quint32 operation, const QByteArray &payload, quint32 slot)
{
    return extendedFrame(0x0F1A02C0u | slot << 11 | operation, payload);
}

QCanBusFrame ToolFrames::p6(quint32 type, const QByteArray &payload, quint32 frameNumber)
{
    return extendedFrame(0x1B1A0000u | type << 12 | frameNumber << 4, payload);
}

QCanBusFrame ToolFrames::startConfiguration(quint32 slot)
{
    return p3(0, QByteArrayLiteral("\xA5\x5A"), slot);
}

QCanBusFrame ToolFrames::endConfiguration()
{
    return p3(4, {});
}

ToolFrames::List ToolFrames::setSerialNumber(const QByteArray &serialNumber)
{
    List frames{p3(2, char(serialNumber.size()) + serialNumber.left(7))};
    if (serialNumber.size() > 7)
        frames.append(p3(3, serialNumber.mid(7)));
    return frames;
}

QCanBusFrame ToolFrames::transferInfo(quint8 fileType, quint32 fileSize)
{
    return p6(0, char(fileType) + QByteArrayLiteral("\x08") + littleEndian(fileSize));
}

QCanBusFrame ToolFrames::initiateTransfer(quint8 fileType, quint32 records)
{
    return p6(1, char(fileType) + QByteArrayLiteral("\x08\0\0") + littleEndian(records));
}

ToolFrames::List ToolFrames::record(quint32 number, const QByteArray &content)
{
    const auto count = quint32((content.size() + 7) / 8);
    List frames{p6(2, char(count) + littleEndian(number))};
    for (quint32 frame = 0; frame < count; ++frame)
        frames.append(p6(15, content.mid(qsizetype(frame) * 8, 8), frame));
    frames.append(p6(3, littleEndian(crc32(content))));
    return frames;
}

QCanBusFrame ToolFrames::transferComplete(quint32 crc)
{
    return p6(4, littleEndian(crc));
}

ToolFrames::List ToolFrames::transfer(quint8 fileType, const QByteArray &content)
{
    const auto records = quint32((content.size() + recordSize - 1) / recordSize);
    List frames{transferInfo(fileType, quint32(content.size())),
                initiateTransfer(fileType, records)};
    for (quint32 number = 1; number <= records; ++number)
        frames += record(number, content.mid((number - 1) * recordSize, recordSize));
    frames.append(transferComplete(crc32(content)));
    return frames;
}

ToolFrames::List ToolFrames::configurationDownload(const QByteArray &content)
{
    return List{startConfiguration()} + transfer(0, content) + List{endConfiguration()};
}
