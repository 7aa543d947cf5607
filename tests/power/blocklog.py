"""Reads a disk's log by QEMU's block driver "blklogwrites", and lists the disks that a power cut leaves.

The log is that of the kernel's dm-log-writes, little-endian. Its first sector:

    magic 0x6a736677736872 (64 bits), version 1 (64), number of entries (64), sector size (32)

Then one entry after the other, a sector that begins with

    first sector (64 bits), number of sectors (64), flags (64), length of data (64)

and the data of those sectors after it. Flags: 1 flush, 2 FUA, 4 discard, 8 mark.
"""

import mmap
import struct
from dataclasses import dataclass, field

MAGIC = 0x6A736677736872
HEADER = struct.Struct("<QQQI")
ENTRY = struct.Struct("<QQQQ")
FLUSH, DISCARD = 1, 4


@dataclass
class Interval:
    """What was written between two flushes: (offset on the disk, data), in order."""

    writes: list = field(default_factory=list)
    marks: list = field(default_factory=list)


def read(path, marks_from):
    """The intervals of a log, in order. A write at or after the offset `marks_from` is not content of
    the disk but a mark: text that the guest has written."""
    with open(path, "rb") as file:
        log = memoryview(mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ))
    magic, version, entries, sector_size = HEADER.unpack_from(log)
    if (magic, version) != (MAGIC, 1):
        raise ValueError(f"{path} is no log of writes")
    intervals, position = [Interval()], sector_size
    for _ in range(entries):
        sector, sectors, flags, _ = ENTRY.unpack_from(log, position)
        position += sector_size
        if flags & DISCARD:
            raise ValueError(f"{path} has a discard, which this disk was to refuse")
        data = log[position : position + sectors * sector_size]
        position += len(data)
        if sectors and sector * sector_size >= marks_from:
            intervals[-1].marks.append(bytes(data).decode().strip())
        elif sectors:
            intervals[-1].writes.append((sector * sector_size, data))
        if flags & FLUSH:
            intervals.append(Interval())
    return intervals


def variants(interval):
    """How many subsets of an interval's writes kept() knows."""
    if not interval.writes:
        return 1 if interval.marks else 0
    return 22 + (len(interval.writes) if len(interval.writes) > 1 else 0)


def kept(interval, variant, chance, sector_size=512):
    """What a disk may have kept of an interval at a power cut, as a list of (offset, data):
    0 nothing, 1 everything, 2 to 21 a subset of the sectors as `chance` will have it, from 22 on
    everything but one write."""
    writes = interval.writes
    if variant == 0:
        return []
    if variant == 1:
        return writes
    if variant >= 22:
        return writes[: variant - 22] + writes[variant - 21 :]
    share = chance.random()
    return [
        (offset + at, data[at : at + sector_size])
        for offset, data in writes
        for at in range(0, len(data), sector_size)
        if chance.random() < share
    ]
