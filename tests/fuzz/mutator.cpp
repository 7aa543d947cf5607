// Changes inputs so that they stay plausible sessions: with random bytes alone nearly no frame
// passes both dispatchers, and no record its CRC.
#include "sequence.h"

#include "toolframes.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

namespace {

using Fuzz::Sequence;

class Mutator
{
public:
    Mutator(Sequence &sequence, unsigned seed)
        : m_sequence(sequence),
          m_random(seed)
    {
    }

    void mutate()
    {
        do {
            mutateOnce();
        } while (below(3) == 0);
        // Most spoilt records are no use for what lies behind the CRCs.
        if (below(2) == 0)
            repairChecksums();
    }

private:
    size_t below(size_t limit) { return limit == 0 ? 0 : m_random() % limit; }

    uint8_t byte() { return uint8_t(below(256)); }

    quint32 number()
    {
        static constexpr std::array<quint32, 8> telling = {0,   1,          2,          511,
                                                           512, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return below(2) == 0 ? telling[below(telling.size())] : quint32(below(5000));
    }

    QByteArray content(size_t limit)
    {
        QByteArray bytes(qsizetype(below(limit + 1)), char(byte()));
        for (size_t i = below(8); i > 0 && !bytes.isEmpty(); --i)
            bytes[qsizetype(below(size_t(bytes.size())))] = char(byte());
        return bytes;
    }

    /// Mostly a type that has a place.
    uint8_t fileType() { return below(8) == 0 ? byte() : uint8_t(below(5)); }

    ToolFrames::List message()
    {
        switch (below(12)) {
        case 0:
            return {ToolFrames::startConfiguration(quint32(below(4)))};
        case 1:
            return {ToolFrames::p3(1,
                                   QByteArray{}
                                       .append(char(byte()))
                                       .append(char(below(14)))
                                       .append(char(below(33)))
                                       .append(char(below(26)))
                                       .append(char(below(62)))
                                       .append(char(below(62))))};
        case 2:
            return ToolFrames::setSerialNumber(content(15));
        case 3:
            return {ToolFrames::p3(quint32(below(7)), content(8))};
        case 4:
            return {ToolFrames::transferInfo(fileType(), number())};
        case 5:
            return {ToolFrames::initiateTransfer(fileType(), number())};
        case 6:
            return ToolFrames::record(number(), content(below(4) == 0 ? 512 : 40));
        case 7:
            return {ToolFrames::p6(quint32(below(16)), content(8), quint32(below(64)))};
        case 8:
            return {ToolFrames::transferComplete(number())};
        case 9:
            return {ToolFrames::endConfiguration()};
        default:
            return ToolFrames::transfer(fileType(), content(below(4) == 0 ? 1200 : 100));
        }
    }

    can_frame event()
    {
        can_frame frame{};
        frame.can_id = canid_t(1 + below(Fuzz::lastEvent));
        frame.can_dlc = 3;
        frame.data[0] = uint8_t(below(40));
        frame.data[1] = uint8_t(below(10) == 0 ? 255 : below(6));
        frame.data[2] = uint8_t(below(2));
        return frame;
    }

    void insert(size_t place, const Sequence &frames)
    {
        m_sequence.insert(m_sequence.begin() + ptrdiff_t(place), frames.begin(), frames.end());
    }

    void insertMessage(size_t place)
    {
        Sequence frames;
        const ToolFrames::List made = message();
        for (const QCanBusFrame &frame : made)
            frames.push_back(Fuzz::fromQt(frame));
        // The second node that the receiver answers to.
        if (below(8) == 0) {
            for (can_frame &frame : frames)
                frame.can_id = (frame.can_id & ~0x001F0000u) | 14u << 16;
        }
        insert(place, frames);
    }

    void mutateOnce()
    {
        const size_t size = m_sequence.size();
        const size_t place = below(size + 1);
        if (size == 0) {
            insertMessage(place);
            return;
        }
        const size_t chosen = below(size);
        can_frame &frame = m_sequence[chosen];
        switch (below(14)) {
        case 0:
        case 1:
            insertMessage(size);
            break;
        case 2:
            insertMessage(place);
            break;
        case 3:
            insert(place, {event()});
            break;
        case 4: {
            const size_t end = chosen + 1 + below(std::min<size_t>(size - chosen, 70));
            m_sequence.erase(m_sequence.begin() + ptrdiff_t(chosen),
                             m_sequence.begin() + ptrdiff_t(std::min(end, size)));
            break;
        }
        case 5: {
            const size_t end = std::min(size, chosen + 1 + below(70));
            const Sequence copy(m_sequence.begin() + ptrdiff_t(chosen),
                                m_sequence.begin() + ptrdiff_t(end));
            insert(place, copy);
            break;
        }
        case 6:
            std::swap(frame, m_sequence[below(size)]);
            break;
        case 7:
        case 8:
            frame.can_dlc = uint8_t(LLVMFuzzerMutate(
                frame.data, std::min<size_t>(frame.can_dlc, CAN_MAX_DLEN), CAN_MAX_DLEN));
            break;
        case 9:
            frame.can_dlc = uint8_t(below(CAN_MAX_DLEN + 1));
            break;
        case 10:
        case 11:
            changeIdentifier(frame);
            break;
        case 12:
            frame.can_id ^= below(2) == 0 ? CAN_ERR_FLAG : CAN_RTR_FLAG;
            break;
        default:
            renumber();
        }
    }

    void changeIdentifier(can_frame &frame)
    {
        struct Field
        {
            unsigned shift, width;
        };
        static constexpr std::array<Field, 8> fields = {Field{26, 3}, {21, 5}, {16, 5}, {12, 4},
                                                        {4, 6},       {0, 6},  {6, 4},  {11, 2}};
        const Field field = fields[below(fields.size())];
        const quint32 mask = ((1u << field.width) - 1) << field.shift;
        frame.can_id = (frame.can_id & ~mask) | (quint32(m_random()) << field.shift & mask);
    }

    static bool isTransfer(const can_frame &frame, quint32 type)
    {
        return (frame.can_id & 0x9FE0F000) == (0x9B000000 | type << 12);
    }

    /// Gives the Data Frames of each record the numbers that the receiver expects.
    void renumber()
    {
        quint32 next = 0;
        for (can_frame &frame : m_sequence) {
            if (isTransfer(frame, 2))
                next = 0;
            else if (isTransfer(frame, 15))
                frame.can_id = (frame.can_id & ~0x3F0u) | (next++ & 63) << 4;
        }
    }

    /// Lets Record End, Transfer Info and Transfer Complete say what came before them.
    void repairChecksums()
    {
        QByteArray record;
        QByteArray file;
        for (can_frame &frame : m_sequence) {
            if (isTransfer(frame, 1)) {
                file.clear();
            } else if (isTransfer(frame, 2)) {
                record.clear();
            } else if (isTransfer(frame, 15)) {
                record.append(reinterpret_cast<const char *>(frame.data),
                              std::min<int>(frame.can_dlc, CAN_MAX_DLEN));
            } else if (isTransfer(frame, 3)) {
                setCrc(frame, record);
                file += record;
            } else if (isTransfer(frame, 4)) {
                setCrc(frame, file);
            }
        }
    }

    static void setCrc(can_frame &frame, const QByteArray &bytes)
    {
        qToLittleEndian(ToolFrames::crc32(bytes), frame.data);
        frame.can_dlc = 4;
    }

    Sequence &m_sequence;
    std::minstd_rand m_random;
};

size_t store(const Sequence &sequence, uint8_t *data, size_t maxSize)
{
    const size_t count = std::min(sequence.size(), maxSize / sizeof(can_frame));
    if (count > 0)
        std::memcpy(data, sequence.data(), count * sizeof(can_frame));
    return count * sizeof(can_frame);
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize,
                                          unsigned int seed)
{
    Sequence sequence = Fuzz::parse(data, size);
    Mutator(sequence, seed).mutate();
    return store(sequence, data, maxSize);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *first, size_t firstSize,
                                            const uint8_t *second, size_t secondSize, uint8_t *out,
                                            size_t maxSize, unsigned int seed)
{
    Sequence sequence = Fuzz::parse(first, firstSize);
    const Sequence other = Fuzz::parse(second, secondSize);
    std::minstd_rand random(seed);
    sequence.resize(random() % (sequence.size() + 1));
    const size_t begin = random() % (other.size() + 1);
    sequence.insert(sequence.end(), other.begin() + ptrdiff_t(begin), other.end());
    return store(sequence, out, maxSize);
}
