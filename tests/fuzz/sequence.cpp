#include "sequence.h"

#include <algorithm>
#include <cstring>

Fuzz::Sequence Fuzz::parse(const uint8_t *data, size_t size)
{
    Sequence sequence(size / sizeof(can_frame));
    if (!sequence.empty())
        std::memcpy(sequence.data(), data, sequence.size() * sizeof(can_frame));
    return sequence;
}

QCanBusFrame Fuzz::toQt(const can_frame &frame)
{
    QCanBusFrame result(frame.can_id & CAN_EFF_MASK,
                        QByteArray(reinterpret_cast<const char *>(frame.data),
                                   std::min<int>(frame.can_dlc, CAN_MAX_DLEN)));
    result.setExtendedFrameFormat((frame.can_id & CAN_EFF_FLAG) != 0);
    if ((frame.can_id & CAN_ERR_FLAG) != 0)
        result.setFrameType(QCanBusFrame::ErrorFrame);
    else if ((frame.can_id & CAN_RTR_FLAG) != 0)
        result.setFrameType(QCanBusFrame::RemoteRequestFrame);
    return result;
}

can_frame Fuzz::fromQt(const QCanBusFrame &frame)
{
    const QByteArray payload = frame.payload();
    can_frame result{};
    result.can_id = frame.frameId() | CAN_EFF_FLAG;
    result.can_dlc = uint8_t(std::min<qsizetype>(payload.size(), CAN_MAX_DLEN));
    std::copy_n(payload.cbegin(), result.can_dlc, result.data);
    return result;
}
