#pragma once

#include <QCanBusFrame>

#include <cstddef>
#include <cstdint>
#include <vector>

#include <linux/can.h>

/// A fuzz input: frames as they cross the virtual bus, 16 bytes each. The receiver's filter keeps
/// frames of the 11-bit format away, so that these serve as events of the device and the storage.
namespace Fuzz {

using Sequence = std::vector<can_frame>;

/// Identifiers of the 11-bit format. An identifier that is not among them does nothing.
enum Event : canid_t {
    DeviceError = 1,    ///< the device reports the error data[0]
    DeviceLost = 2,     ///< the device becomes unconnected
    DeviceBack = 3,     ///< the device is connected again
    WritesRefused = 4,  ///< the device takes no frames
    WritesAccepted = 5, ///< it takes them again
    BatchBegin = 6,     ///< the frames up to BatchEnd are signalled together
    BatchEnd = 7,
    PlaceMissing = 8,     ///< file or directory number data[0] is removed
    PlaceIsDirectory = 9, ///< a directory that is not empty stands in its place
    PlaceIsFile = 10,     ///< a file stands in its place
    StorageFault = 11,    ///< file operation data[0] from here fails with error data[1], and, if
                          ///< data[2] is odd, the later ones too
    StorageHealthy = 12,
    MenuInstallation = 13,
    SlotCall = 14, ///< calls the slot data[0] with the next frame, past the dispatchers
};
inline constexpr canid_t lastEvent = SlotCall;

inline bool isEvent(const can_frame &frame)
{
    return (frame.can_id & (CAN_EFF_FLAG | CAN_RTR_FLAG | CAN_ERR_FLAG)) == 0;
}

/// Bytes that do not make a whole frame are left out.
Sequence parse(const uint8_t *data, size_t size);

QCanBusFrame toQt(const can_frame &frame);
can_frame fromQt(const QCanBusFrame &frame);

} // namespace Fuzz

/// Runs one input; aborts if the receiver breaks a promise. Always 0, as libFuzzer asks for.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
