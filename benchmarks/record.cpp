#include "record.h"

#include "wire.h"

#include <QtEndian>

#include <algorithm>
#include <random>

#include <zlib.h>

namespace {

can_frame extended(quint32 id, std::span<const uchar> payload)
{
    can_frame frame{};
    frame.can_id = id | CAN_EFF_FLAG;
    frame.can_dlc = __u8(payload.size());
    std::copy(payload.begin(), payload.end(), frame.data);
    return frame;
}

can_frame message(quint32 type, std::span<const uchar> payload)
{
    return extended(Wire::P6::messageId(Wire::nodeShipwright, Wire::nodeDockhand, type, 0, 0),
                    payload);
}

} // namespace

Record::Record()
{
    static_assert(dataFrames == Wire::RecordStart::maxFrames
                  && bytes == dataFrames * Wire::DataFrame::size);

    std::array<uchar, bytes> content;
    std::minstd_rand random; // always the same numbers
    std::generate(content.begin(), content.end(), [&random] { return uchar(random() >> 8); });

    m_frames.front() = message(Wire::RecordStart::type, std::array<uchar, 5>{dataFrames, 1});
    for (unsigned i = 0; i < dataFrames; ++i) {
        m_frames[1 + i] = extended(
            Wire::DataFrame::messageId(Wire::nodeShipwright, Wire::nodeDockhand, i),
            std::span(content).subspan(i * Wire::DataFrame::size, Wire::DataFrame::size));
    }
    std::array<uchar, Wire::P6::crcSize> crc;
    qToLittleEndian(quint32(crc32(0, content.data(), content.size())), crc.data());
    m_frames.back() = message(Wire::RecordEnd::type, crc);
}

can_frame initiatePackage(unsigned records)
{
    std::array<uchar, Wire::InitiateTransfer::size> payload{};
    payload[Wire::TransferInfo::fileType] = Wire::FileType::package;
    payload[Wire::TransferInfo::version] = Wire::P6::versionField.pack(Wire::P6::version);
    qToLittleEndian(quint32(records), payload.data() + Wire::InitiateTransfer::numberOfRecords);
    return message(Wire::InitiateTransfer::type, payload);
}
