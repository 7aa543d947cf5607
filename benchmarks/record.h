#pragma once

#include <linux/can.h>

#include <array>
#include <span>

/// A full record as the kernel hands it out: Record Start, 64 Data Frames with 512 bytes,
/// Record End.
class Record
{
public:
    static constexpr std::size_t dataFrames = 64;
    static constexpr std::size_t bytes = 512;

    Record();

    std::span<const can_frame> all() const { return m_frames; }
    std::span<const can_frame> start() const { return all().first(1); }
    std::span<const can_frame> data() const { return all().subspan(1, dataFrames); }

private:
    std::array<can_frame, 1 + dataFrames + 1> m_frames{};
};

/// Initiate Transfer of a package in \a records records.
can_frame initiatePackage(unsigned records);
