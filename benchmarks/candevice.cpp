#include "candevice.h"

#include <utility>

void CanDevice::receive(std::span<const can_frame> frames)
{
    const QCanBusFrame::TimeStamp stamp(1, 0);
    QList<QCanBusFrame> received;
    for (const can_frame &raw : frames) {
        QCanBusFrame frame;
        frame.setTimeStamp(stamp);
        frame.setFlexibleDataRateFormat(false);
        frame.setExtendedFrameFormat(raw.can_id & CAN_EFF_FLAG);
        frame.setLocalEcho(false);
        if (raw.can_id & CAN_RTR_FLAG)
            frame.setFrameType(QCanBusFrame::RemoteRequestFrame);
        if (raw.can_id & CAN_ERR_FLAG) {
            frame.setFrameType(QCanBusFrame::ErrorFrame);
            frame.setError(QCanBusFrame::FrameErrors(raw.can_id & CAN_ERR_MASK));
        }
        frame.setFrameId(raw.can_id & CAN_EFF_MASK);
        frame.setPayload(QByteArray(reinterpret_cast<const char *>(raw.data), raw.can_dlc));
        received.append(std::move(frame));
    }
    enqueueReceivedFrames(received);
}

bool CanDevice::open()
{
    setState(ConnectedState);
    return true;
}
