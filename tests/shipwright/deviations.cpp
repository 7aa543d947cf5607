#include "deviations.h"

#include <QtEndian>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

using Model = ReceiverModel;
using Frame = QCanBusFrame;
using Answers = Model::Answers;

// ---- Parts of an identifier

struct Bits
{
    int shift;
    quint32 mask;

    quint32 of(quint32 id) const { return id >> shift & mask; }
    void put(quint32 &id, quint32 value) const { id = (id & ~(mask << shift)) | value << shift; }
};

constexpr Bits protocol{26, 0x7};
constexpr Bits source{21, 0x1F};
constexpr Bits destination{16, 0x1F};
constexpr Bits responseBit{14, 0x1};
constexpr Bits slot{11, 0x3};
constexpr Bits interfaceId{6, 0xF};
constexpr Bits operation{0, 0x3F};
constexpr Bits type{12, 0xF};
constexpr Bits frameNumber{4, 0x3F};
constexpr Bits code{0, 0x3FF};

// ---- Which frames

class When
{
public:
    using Predicate = std::function<bool(quint32 id, const QByteArray &payload)>;
    // Any predicate will do. cppcheck-suppress noExplicitConstructor
    When(Predicate predicate)
        : m_predicate(std::move(predicate))
    {
    }

    bool operator()(const Frame &frame) const
    {
        return m_predicate(frame.frameId(), frame.payload());
    }
    When operator&&(const When &other) const
    {
        return {[a = m_predicate, b = other.m_predicate](quint32 id, const QByteArray &payload) {
            return a(id, payload) && b(id, payload);
        }};
    }
    When operator!() const
    {
        return {
            [a = m_predicate](quint32 id, const QByteArray &payload) { return !a(id, payload); }};
    }

private:
    Predicate m_predicate;
};

When has(const Bits &bits, quint32 value)
{
    return {[=](quint32 id, const QByteArray &) { return bits.of(id) == value; }};
}

When longerThan(qsizetype size)
{
    return {[=](quint32, const QByteArray &payload) { return payload.size() > size; }};
}

When sized(qsizetype size)
{
    return longerThan(size - 1) && !longerThan(size);
}

When command(quint32 number)
{
    return has(protocol, 3) && has(responseBit, 0) && has(operation, number);
}

When message(quint32 number)
{
    return has(protocol, 6) && has(type, number);
}

When byteIs(qsizetype index, int value)
{
    return {[=](quint32, const QByteArray &payload) {
        return payload.size() > index && static_cast<uchar>(payload.at(index)) == value;
    }};
}

When byteAbove(qsizetype index, int value)
{
    return {[=](quint32, const QByteArray &payload) {
        return payload.size() > index && static_cast<uchar>(payload.at(index)) > value;
    }};
}

When version(int number)
{
    return {[=](quint32, const QByteArray &payload) {
        return payload.size() > 1 && static_cast<uchar>(payload.at(1)) >> 2 == number;
    }};
}

// ---- What the receiver does to them

using Change = std::function<void(quint32 &id, QByteArray &payload)>;
using Spoil = std::function<void(Model &)>;

Frame changed(const Frame &frame, const Change &change)
{
    quint32 id = frame.frameId();
    QByteArray payload = frame.payload();
    change(id, payload);
    return Frame(id, payload);
}

/// Handles the frames as \a change alters them.
Model::Deviation takes(const When &when, const Change &change)
{
    return [=](Model &model, const Frame &frame) {
        return model.handle(when(frame) ? changed(frame, change) : frame);
    };
}

/// The same, but gives no answer to them.
Model::Deviation obeys(const When &when, const Change &change)
{
    return [=](Model &model, const Frame &frame) {
        const bool isMeant = when(frame);
        const Answers given = model.handle(isMeant ? changed(frame, change) : frame);
        return isMeant ? Answers{} : given;
    };
}

/// Changes each answer to the frames.
Model::Deviation answers(const When &when, const Change &change)
{
    return [=](Model &model, const Frame &frame) {
        Answers given = model.handle(frame);
        if (when(frame)) {
            for (Frame &answer : given)
                answer = changed(answer, change);
        }
        return given;
    };
}

/// Sends one more answer to the frames, \a delay milliseconds later.
Model::Deviation speaks(const When &when, quint32 id, qint64 delay = 0)
{
    return [=](Model &model, const Frame &frame) {
        Answers given = model.handle(frame);
        if (when(frame)) {
            Frame answer(id, QByteArray());
            answer.setTimeStamp(Frame::TimeStamp::fromMicroSeconds(delay * 1000));
            given += answer;
        }
        return given;
    };
}

Model::Deviation answersTwice(const When &when)
{
    return [=](Model &model, const Frame &frame) {
        const Answers given = model.handle(frame);
        return when(frame) ? given + given : given;
    };
}

Model::Deviation ignores(const When &when)
{
    return [=](Model &model, const Frame &frame) {
        return when(frame) ? Answers{} : model.handle(frame);
    };
}

/// Spoils the state before the frames.
Model::Deviation before(const When &when, const Spoil &spoil)
{
    return [=](Model &model, const Frame &frame) {
        if (when(frame))
            spoil(model);
        return model.handle(frame);
    };
}

/// Spoils the state after the frames.
Model::Deviation after(const When &when, const Spoil &spoil)
{
    return [=](Model &model, const Frame &frame) {
        const Answers given = model.handle(frame);
        if (when(frame))
            spoil(model);
        return given;
    };
}

/// Changes the answers that \a condition chooses.
using Judgement = std::function<bool(const Model &, const Frame &frame, const Frame &answer)>;
Model::Deviation judges(const When &when, const Judgement &condition, const Change &change)
{
    return [=](Model &model, const Frame &frame) {
        Answers given = model.handle(frame);
        for (Frame &answer : given) {
            if (when(frame) && condition(model, frame, answer))
                answer = changed(answer, change);
        }
        return given;
    };
}

bool isRefused(const Answers &given)
{
    return !given.isEmpty() && code.of(given.first().frameId()) != 0;
}

bool isAccepted(const Answers &given)
{
    return !given.isEmpty() && code.of(given.first().frameId()) == 0;
}

/// Spoils the state after an answer to the frames that matches \a how.
Model::Deviation afterAnswer(const When &when, bool (*how)(const Answers &), const Spoil &spoil)
{
    return [=](Model &model, const Frame &frame) {
        const Answers given = model.handle(frame);
        if (when(frame) && how(given))
            spoil(model);
        return given;
    };
}

/// Ignores the frames while \a condition holds.
Model::Deviation ignoresWhile(const When &when, const std::function<bool(const Model &)> &condition)
{
    return [=](Model &model, const Frame &frame) {
        return when(frame) && condition(model) ? Answers{} : model.handle(frame);
    };
}

/// Keeps \a member as it was before the frames.
template<typename Member>
Model::Deviation keeps(const When &when, Member Model::*member)
{
    return [=](Model &model, const Frame &frame) {
        const Member kept = model.*member;
        const Answers given = model.handle(frame);
        if (when(frame))
            model.*member = kept;
        return given;
    };
}

// ---- Changes of a frame

Change put(const Bits &bits, quint32 value)
{
    return [=](quint32 &id, QByteArray &) { bits.put(id, value); };
}

/// \a digits are hexadecimal.
Change payload(const char *digits)
{
    const QByteArray bytes = QByteArray::fromHex(digits);
    return [=](quint32 &, QByteArray &payload) { payload = bytes; };
}

Change resized(qsizetype size)
{
    return [=](quint32 &, QByteArray &payload) { payload.resize(size, '\0'); };
}

Change byte(qsizetype index, int value)
{
    return [=](quint32 &, QByteArray &payload) {
        if (payload.size() > index)
            payload[index] = static_cast<char>(value);
    };
}

Change reversed()
{
    return [](quint32 &, QByteArray &payload) { std::reverse(payload.begin(), payload.end()); };
}

Change both(const Change &first, const Change &second)
{
    return [=](quint32 &id, QByteArray &payload) {
        first(id, payload);
        second(id, payload);
    };
}

// ---- Changes of the receiver's state

void loseRecord(Model &model)
{
    model.record.clear();
    model.recordLength = 0;
}

void startRecordOver(Model &model)
{
    model.expectedFrame = 0;
}

void closeFile(Model &model)
{
    model.isOpen = false;
}

void emptyFile(Model &model)
{
    model.files[model.place].clear();
}

void losePlace(Model &model)
{
    model.place = -1;
    model.isOpen = false;
}

/// The bits of the announced size that the receiver keeps.
Spoil keepSizeBits(quint32 mask)
{
    return [=](Model &model) { model.fileSize &= mask; };
}

Spoil setSize(quint32 size)
{
    return [=](Model &model) { model.fileSize = size; };
}

QList<PlantedDeviation> makePlantedDeviations()
{
    const quint32 p3Failure = 0x0F5840BA;
    const quint32 p3Event = 0x0F580001;
    const quint32 p5Message = 0x17580000;
    const quint32 p6Failure = 0x1B5820BA;

    const When p3 = has(protocol, 3);
    const When p6 = has(protocol, 6);
    const When isCommand = p3 && has(responseBit, 0);
    const When start = command(0);
    const When started = start && byteIs(0, 0xA5) && byteIs(1, 0x5A);
    const When setDateTime = command(1);
    const When setSerial = command(2);
    const When setSerialExt = command(3);
    const When end = command(4);
    const When unknownOperation = {[isCommand](quint32 id, const QByteArray &payload) {
        return isCommand(Frame(id, payload)) && operation.of(id) > 4;
    }};
    const When transferInfo = message(0);
    const When initiate = message(1);
    const When recordStart = message(2);
    const When recordEnd = message(3);
    const When complete = message(4);
    const When dataFrame = message(15);
    const When unknownType = {[p6](quint32 id, const QByteArray &payload) {
        return p6(Frame(id, payload)) && type.of(id) > 4 && type.of(id) < 15;
    }};
    const When refusedInfo = transferInfo && !(longerThan(5) && version(2));
    const When refusedInitiate = initiate && !(sized(8) && version(2));
    const When acceptedInfo = transferInfo && longerThan(5) && version(2);
    const When acceptedInitiate = initiate && sized(8) && version(2);

    return {
        // ---- Start and end of configuration
        {"answers in slot 0", "start of configuration: answered 5A A5 in every slot",
         answers(p3, put(slot, 0))},
        {"answers a start with what came", "start of configuration: answered 5A A5 in every slot",
         answers(started, payload("A55A"))},
        {"answers a start without the handshake",
         "start of configuration: answered 5A A5 in every slot", answers(started, payload(""))},
        {"answers a start twice", "start of configuration: answered 5A A5 in every slot",
         answersTwice(started)},
        {"answers without the response bit", "start of configuration: answered 5A A5 in every slot",
         answers(p3, put(responseBit, 0))},
        {"answers to node 14", "start of configuration: answered 5A A5 in every slot",
         answers(started, put(destination, 14))},
        {"answers a command as node 14", "start of configuration: answered at destination 14",
         answers(p3 && has(destination, 14), put(source, 14))},
        {"ignores commands to node 14", "start of configuration: answered at destination 14",
         ignores(p3 && has(destination, 14))},
        {"refuses bytes behind the handshake",
         "start of configuration: more bytes after the handshake",
         takes(start && longerThan(2), payload(""))},
        {"answers a long handshake with more bytes",
         "start of configuration: more bytes after the handshake",
         answers(start && longerThan(2), resized(4))},
        {"takes no handshake for one", "start of configuration: refused without the handshake",
         takes(start && sized(0), payload("A55A"))},
        {"takes half a handshake for one", "start of configuration: refused without the handshake",
         takes(start && sized(1), payload("A55A"))},
        {"takes the answer's handshake", "start of configuration: refused without the handshake",
         takes(start && byteIs(0, 0x5A), payload("A55A"))},
        {"looks at the handshake's first byte only",
         "start of configuration: refused without the handshake",
         takes(start && byteIs(0, 0xA5), payload("A55A"))},
        {"looks for the handshake anywhere",
         "start of configuration: refused without the handshake",
         takes(start && byteIs(0, 0), payload("A55A"))},
        {"refuses a start with code 1", "start of configuration: refused without the handshake",
         answers(start && byteIs(0, 0x5A), put(code, 1))},
        {"refuses a start with a payload", "start of configuration: refused without the handshake",
         answers(start && byteIs(0, 0x5A), payload("5AA5"))},
        {"does not answer a refused start", "start of configuration: refused without the handshake",
         ignores(start && !started)},
        {"reads bit 15 of a command", "start of configuration: bits 15, 13 and 10 not read",
         ignores(isCommand && has(Bits{15, 1}, 1))},
        {"reads bit 13 of a command", "start of configuration: bits 15, 13 and 10 not read",
         ignores(isCommand && has(Bits{13, 1}, 1))},
        {"reads bit 10 of a command", "start of configuration: bits 15, 13 and 10 not read",
         ignores(isCommand && has(Bits{10, 1}, 1))},
        {"ignores an end with a payload", "end of configuration: answered whatever it carries",
         ignores(end && longerThan(0))},
        {"refuses an end of 8 bytes", "end of configuration: answered whatever it carries",
         answers(end && sized(8), put(code, 186))},
        {"answers an end with a payload", "end of configuration: answered whatever it carries",
         answers(end, payload("5AA5"))},
        {"refuses an end without a start", "end of configuration: answered whatever it carries",
         [started, end, isStarted = false](Model &model, const Frame &frame) mutable {
             Answers given = model.handle(frame);
             if (end(frame) && !isStarted && !given.isEmpty())
                 given.first() = changed(given.first(), put(code, 186));
             isStarted = started(frame) || (isStarted && !end(frame));
             return given;
         }},

        // ---- Silence
        {"answers commands of node 23", "silence: commands from nodes other than 24",
         takes(p3 && has(source, 23), put(source, 24))},
        {"answers commands of node 0", "silence: commands from nodes other than 24",
         takes(p3 && has(source, 0), put(source, 24))},
        {"answers commands of node 23 late", "silence: commands from nodes other than 24",
         speaks(p3 && has(source, 23), p3Failure, 300)},
        {"answers commands to node 25", "silence: commands to nodes other than 26 and 14",
         takes(p3 && has(destination, 25), put(destination, 26))},
        {"answers commands to node 30", "silence: commands to nodes other than 26 and 14",
         takes(p3 && has(destination, 30), put(destination, 26))},
        {"answers commands to node 31", "silence: commands to nodes other than 26 and 14",
         takes(p3 && has(destination, 31), put(destination, 26))},
        {"answers commands to node 25 late", "silence: commands to nodes other than 26 and 14",
         speaks(p3 && has(destination, 25), p3Failure, 300)},
        {"answers on every interface", "silence: commands on interfaces other than 11",
         takes(isCommand, put(interfaceId, 11))},
        {"answers on interface 3", "silence: commands on interfaces other than 11",
         takes(isCommand && has(interfaceId, 3), put(interfaceId, 11))},
        {"refuses late on interface 10", "silence: commands on interfaces other than 11",
         speaks(isCommand && has(interfaceId, 10), p3Failure, 400)},
        {"refuses unknown operations", "silence: operations 5 to 63",
         speaks(unknownOperation, p3Failure)},
        {"refuses unknown operations late", "silence: operations 5 to 63",
         speaks(unknownOperation, p3Failure, 200)},
        {"takes operation 8 for 0", "silence: operations 5 to 63",
         takes(command(8), put(operation, 0))},
        {"takes operation 60 for 4", "silence: operations 5 to 63",
         takes(command(60), put(operation, 4))},
        {"handles commands with the response bit", "silence: commands with the response bit",
         takes(p3, put(responseBit, 0))},
        {"refuses responses", "silence: commands with the response bit",
         speaks(p3 && has(responseBit, 1), p3Failure)},
        {"refuses responses late", "silence: commands with the response bit",
         speaks(p3 && has(responseBit, 1), p3Failure, 250)},
        {"takes protocol 5 for P6", "silence: protocols other than 3 and 6",
         takes(has(protocol, 5), put(protocol, 6))},
        {"takes protocol 7 for P3", "silence: protocols other than 3 and 6",
         takes(has(protocol, 7), put(protocol, 3))},
        {"takes protocol 0 for P3", "silence: protocols other than 3 and 6",
         takes(has(protocol, 0), put(protocol, 3))},
        {"answers protocol 5", "silence: protocols other than 3 and 6",
         speaks(has(protocol, 5), p5Message)},
        {"answers protocol 5 late", "silence: protocols other than 3 and 6",
         speaks(has(protocol, 5), p5Message, 450)},
        {"answers transfer messages of node 23",
         "silence: transfer messages from nodes other than 24",
         takes(p6 && has(source, 23), put(source, 24))},
        {"takes Data Frames of node 23", "silence: transfer messages from nodes other than 24",
         takes(dataFrame && has(source, 23), put(source, 24))},
        {"takes Record Start of node 23", "silence: transfer messages from nodes other than 24",
         takes(recordStart && has(source, 23), put(source, 24))},
        {"obeys Transfer Info of node 23", "silence: transfer messages from nodes other than 24",
         obeys(transferInfo && has(source, 23), put(source, 24))},
        {"obeys Initiate Transfer of node 23",
         "silence: transfer messages from nodes other than 24",
         obeys(initiate && has(source, 23), put(source, 24))},
        {"obeys Transfer Complete of node 23",
         "silence: transfer messages from nodes other than 24",
         obeys(complete && has(source, 23), put(source, 24))},
        {"answers transfer messages to node 25",
         "silence: transfer messages to nodes other than 26 and 14",
         takes(p6 && has(destination, 25), put(destination, 26))},
        {"takes Data Frames to node 25", "silence: transfer messages to nodes other than 26 and 14",
         takes(dataFrame && has(destination, 25), put(destination, 26))},
        {"answers unknown types", "silence: message types 5 to 14", speaks(unknownType, p6Failure)},
        {"answers unknown types late", "silence: message types 5 to 14",
         speaks(unknownType, p6Failure, 350)},
        {"takes type 8 for Transfer Info", "silence: message types 5 to 14",
         takes(message(8), put(type, 0))},
        {"sends an event unasked", "silence: nothing sent without a request",
         speaks(started, p3Event, 900)},
        {"answers an end a second time, late", "silence: nothing sent without a request",
         speaks(end, p3Failure, 800)},

        // ---- Transfer Info
        {"refuses Transfer Info of 8 bytes", "Transfer Info: accepted with 6 bytes and more",
         takes(transferInfo && sized(8), payload(""))},
        {"refuses Transfer Info of 6 bytes", "Transfer Info: accepted with 6 bytes and more",
         takes(transferInfo && sized(6), payload(""))},
        {"answers Transfer Info twice", "Transfer Info: accepted with 6 bytes and more",
         answersTwice(acceptedInfo)},
        {"answers Transfer Info with 7 bytes", "Transfer Info: accepted with 6 bytes and more",
         answers(acceptedInfo, resized(7))},
        {"answers Transfer Info for version 3", "Transfer Info: accepted with 6 bytes and more",
         answers(transferInfo, byte(0, 0x0E))},
        {"answers with bit 10 set", "Transfer Info: accepted with 6 bytes and more",
         answers(p6, put(Bits{10, 1}, 1))},
        {"refuses packages", "Transfer Info: every file type accepted",
         answers(acceptedInfo && byteIs(0, 3), put(code, 29))},
        {"refuses unknown file types", "Transfer Info: every file type accepted",
         answers(acceptedInfo && byteAbove(0, 3), put(code, 29))},
        {"reads the low bits of the version byte",
         "Transfer Info: low bits of the version byte not read",
         takes(transferInfo && byteIs(1, 0x0B), payload(""))},
        {"accepts Transfer Info of 5 bytes",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         takes(transferInfo && sized(5), resized(6))},
        {"answers an empty Transfer Info without parameters",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         answers(transferInfo && sized(0), payload(""))},
        {"answers an empty Transfer Info with 7 bytes",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         answers(transferInfo && sized(0), resized(7))},
        {"answers an empty Transfer Info with code 0",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         answers(transferInfo && sized(0), put(code, 0))},
        {"does not answer an empty Transfer Info",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         ignores(transferInfo && sized(0))},
        {"refuses Transfer Info with code 30",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         answers(refusedInfo, put(code, 30))},
        {"refuses Transfer Info with other parameters",
         "Transfer Info: 0 to 5 bytes refused with the parameters",
         answers(refusedInfo, byte(2, 0))},
        {"accepts Transfer Info of version 3",
         "Transfer Info: versions other than 2 refused with the parameters",
         takes(transferInfo && version(3), byte(1, 0x08))},
        {"accepts Transfer Info of version 34",
         "Transfer Info: versions other than 2 refused with the parameters",
         takes(transferInfo && version(34), byte(1, 0x08))},
        {"accepts Transfer Info of version 1",
         "Transfer Info: versions other than 2 refused with the parameters",
         takes(transferInfo && version(1), byte(1, 0x08))},
        {"ignores transfer messages to node 14", "Transfer Info: answered at destination 14",
         ignores(p6 && has(destination, 14))},
        {"answers a transfer message as node 14", "Transfer Info: answered at destination 14",
         answers(p6 && has(destination, 14), put(source, 14))},
        {"keeps 8 bits of the file size", "Transfer Info: file size of 4 bytes",
         after(transferInfo, keepSizeBits(0xFF))},
        {"keeps 16 bits of the file size", "Transfer Info: file size of 4 bytes",
         after(transferInfo, keepSizeBits(0xFFFF))},
        {"keeps 24 bits of the file size", "Transfer Info: file size of 4 bytes",
         after(transferInfo, keepSizeBits(0xFFFFFF))},
        {"reads the file size with the highest byte first",
         "completion: file longer than announced",
         after(acceptedInfo, [](Model &model) { model.fileSize = qbswap(model.fileSize); })},
        {"keeps the first file size", "Transfer Info: the last accepted size counts",
         [acceptedInfo](Model &model, const Frame &frame) {
             const quint32 size = model.fileSize;
             const Answers given = model.handle(frame);
             if (acceptedInfo(frame) && model.isOpen)
                 model.fileSize = size;
             return given;
         }},

        // ---- Initiate Transfer
        {"reads bytes 2 and 3 of Initiate Transfer",
         "Initiate Transfer: accepted, bytes 2 and 3 not read",
         takes(initiate && byteIs(2, 0xFF), payload(""))},
        {"reads the low bits of Initiate Transfer's version byte",
         "Initiate Transfer: accepted, bytes 2 and 3 not read",
         takes(initiate && byteIs(1, 0x0B), payload(""))},
        {"answers Initiate Transfer without a payload",
         "Initiate Transfer: accepted, bytes 2 and 3 not read", answers(initiate, payload(""))},
        {"answers Initiate Transfer with what came",
         "Initiate Transfer: accepted, bytes 2 and 3 not read",
         answers(initiate, payload("0208000001000000"))},
        {"accepts Initiate Transfer of 7 bytes", "Initiate Transfer: 0 to 7 bytes refused",
         takes(initiate && sized(7), resized(8))},
        {"ignores an empty Initiate Transfer", "Initiate Transfer: 0 to 7 bytes refused",
         ignores(initiate && sized(0))},
        {"refuses Initiate Transfer with code 29", "Initiate Transfer: 0 to 7 bytes refused",
         answers(refusedInitiate, put(code, 29))},
        {"accepts Initiate Transfer of version 3",
         "Initiate Transfer: versions other than 2 refused",
         takes(initiate && version(3), byte(1, 0x08))},
        {"does not empty the file", "Initiate Transfer: empties the file",
         keeps(acceptedInitiate, &Model::files)},
        {"empties the file at a refused Initiate Transfer",
         "Initiate Transfer: leaves the file alone when refused",
         before(refusedInitiate, emptyFile)},
        {"loses the file's place at a refused Initiate Transfer",
         "Initiate Transfer: leaves the file alone when refused",
         before(refusedInitiate, losePlace)},
        {"answers a second Initiate Transfer without starting over",
         "Initiate Transfer: a second one starts over",
         [acceptedInitiate](Model &model, const Frame &frame) {
             const QHash<int, QByteArray> files = model.files;
             const bool isSecond = acceptedInitiate(frame) && model.isOpen;
             const Answers given = model.handle(frame);
             if (isSecond)
                 model.files = files;
             return given;
         }},
        {"refuses Initiate Transfer without a Transfer Info",
         "Initiate Transfer: needs no Transfer Info",
         [=, isAnnounced = false](Model &model, const Frame &frame) mutable {
             isAnnounced = acceptedInfo(frame) || (isAnnounced && !complete(frame));
             return acceptedInitiate(frame) && !isAnnounced ? Answers{} : model.handle(frame);
         }},
        {"checks the file that Transfer Info says",
         "Initiate Transfer: chooses the file, whatever Transfer Info says",
         before(complete, [](Model &model) { model.place = qMin(model.fileType, 4); })},
        {"refuses file types that differ",
         "Initiate Transfer: chooses the file, whatever Transfer Info says",
         [acceptedInitiate](Model &model, const Frame &frame) {
             const int announced = model.fileType;
             Answers given = model.handle(frame);
             if (acceptedInitiate(frame) && announced != model.fileType && !given.isEmpty())
                 given.first() = changed(given.first(), put(code, 30));
             return given;
         }},
        {"refuses 4294967295 records", "Initiate Transfer: number of records not enforced",
         takes(initiate && byteIs(7, 0xFF), payload(""))},
        {"takes no more records than announced",
         "Initiate Transfer: number of records not enforced",
         [=, left = 0](Model &model, const Frame &frame) mutable {
             if (acceptedInitiate(frame))
                 left = static_cast<uchar>(frame.payload().at(4));
             return recordStart(frame) && left-- <= 0 ? Answers{} : model.handle(frame);
         }},

        // ---- Whole files
        {"stores line feeds as two bytes", "file: 1 to 1500 bytes in up to 3 records",
         after(recordEnd, [](Model &model) { model.files[model.place].replace("\n", "\r\n"); })},
        {"stores one byte less", "file: 1 to 1500 bytes in up to 3 records",
         after(recordEnd, [](Model &model) { model.files[model.place].chop(1); })},
        {"pads short frames", "file: 1 to 1500 bytes in up to 3 records",
         after(dataFrame, [](Model &model) { model.recordLength = model.record.size(); })},
        {"takes 63 frames a record", "file: 1 to 1500 bytes in up to 3 records",
         ignores(dataFrame && has(frameNumber, 63))},
        {"keeps the last record only", "file: 1 to 1500 bytes in up to 3 records",
         before(recordEnd, emptyFile)},
        {"reads a record's CRC-32 with the highest byte first",
         "file: 1 to 1500 bytes in up to 3 records", takes(recordEnd && sized(4), reversed())},
        {"reads a file's CRC-32 with the highest byte first",
         "file: 1 to 1500 bytes in up to 3 records", takes(complete && sized(4), reversed())},
        {"answers a file's CRC-32 with the highest byte first",
         "file: 1 to 1500 bytes in up to 3 records", answers(complete, reversed())},
        {"answers Record End with 2 bytes", "file: 1 to 1500 bytes in up to 3 records",
         answers(recordEnd, resized(2))},
        {"answers Record End with 01 for a right record",
         "file: 1 to 1500 bytes in up to 3 records", answers(recordEnd, byte(0, 1))},
        {"does not answer Record End", "file: 1 to 1500 bytes in up to 3 records",
         obeys(recordEnd, put(type, 3))},
        {"answers Transfer Complete without the CRC-32", "file: 1 to 1500 bytes in up to 3 records",
         answers(complete, payload(""))},
        {"answers Transfer Complete twice", "file: empty", answersTwice(complete)},
        {"refuses an empty file", "file: empty",
         answers(complete && byteIs(0, 0) && byteIs(3, 0), put(code, 186))},
        {"ignores Data Frames to node 14", "file: to destination 14",
         ignores(dataFrame && has(destination, 14))},
        {"keeps a transfer for each destination", "file: to both destinations alternately",
         [=, opened = 0u](Model &model, const Frame &frame) mutable {
             const quint32 to = destination.of(frame.frameId());
             if (initiate(frame))
                 opened = to;
             return dataFrame(frame) && to != opened ? Answers{} : model.handle(frame);
         }},
        {"reads bit 11 of a transfer message", "file: unread identifier bits set",
         ignores(p6 && has(Bits{11, 1}, 1))},
        {"takes a set bit 10 for a response", "file: unread identifier bits set",
         ignores(p6 && has(Bits{10, 1}, 1))},
        {"reads the result code of a transfer message", "file: unread identifier bits set",
         ignores(recordEnd && !has(code, 0))},
        {"reads the low bits of a Data Frame's identifier", "file: unread identifier bits set",
         ignores(dataFrame && !has(Bits{0, 0xF}, 0))},
        {"gives up a transfer after a second", "file: with pauses of more than a second",
         [last = qint64(0)](Model &model, const Frame &frame) mutable {
             const qint64 now = frame.timeStamp().seconds() * 1000
                 + frame.timeStamp().microSeconds() / 1000;
             if (now - std::exchange(last, now) > 1000)
                 closeFile(model);
             return model.handle(frame);
         }},
        {"gives up a record after a second", "file: with pauses of more than a second",
         [=, last = qint64(0)](Model &model, const Frame &frame) mutable {
             const qint64 now = frame.timeStamp().seconds() * 1000
                 + frame.timeStamp().microSeconds() / 1000;
             if (now - std::exchange(last, now) > 1000 && dataFrame(frame))
                 loseRecord(model);
             return model.handle(frame);
         }},

        // ---- Records
        {"answers Record Start", "record: Record Start and Data Frames unanswered",
         speaks(recordStart, 0x1B582000)},
        {"answers Record Start late", "record: Record Start and Data Frames unanswered",
         speaks(recordStart, 0x1B582000, 400)},
        {"answers Data Frames", "record: Record Start and Data Frames unanswered",
         speaks(dataFrame, 0x1B58F000)},
        {"answers Data Frames late", "record: Record Start and Data Frames unanswered",
         speaks(dataFrame, 0x1B58F000, 300)},
        {"takes frames in any order", "record: frames out of order refused, then repeated",
         [dataFrame](Model &model, const Frame &frame) {
             if (dataFrame(frame))
                 model.expectedFrame = frameNumber.of(frame.frameId());
             return model.handle(frame);
         }},
        {"fills a gap with the next frame", "record: repeated frames dropped",
         [dataFrame](Model &model, const Frame &frame) {
             const auto expected = static_cast<quint32>(model.expectedFrame);
             return model.handle(dataFrame(frame) ? changed(frame, put(frameNumber, expected))
                                                  : frame);
         }},
        {"accepts any record", "record: last frame missing refused, then repeated",
         answers(recordEnd, both(put(code, 0), payload("00")))},
        {"refuses a record without saying 01", "record: frame missing refused, then repeated",
         answers(recordEnd, payload("00"))},
        {"refuses a record with code 1", "record: last frame missing refused, then repeated",
         judges(
             recordEnd,
             [](const Model &, const Frame &, const Frame &answer) {
                 return code.of(answer.frameId()) != 0;
             },
             put(code, 1))},
        {"takes repeated frames", "record: repeated frames dropped",
         [dataFrame](Model &model, const Frame &frame) {
             const qsizetype number = frameNumber.of(frame.frameId());
             if (dataFrame(frame) && number == model.expectedFrame - 1)
                 model.expectedFrame = number;
             return model.handle(frame);
         }},
        {"refuses a record with a repeated frame", "record: repeated frames dropped",
         [dataFrame](Model &model, const Frame &frame) {
             const qsizetype number = frameNumber.of(frame.frameId());
             if (dataFrame(frame) && number == model.expectedFrame - 1)
                 loseRecord(model);
             return model.handle(frame);
         }},
        {"takes more frames than announced", "record: frames beyond those announced dropped",
         [dataFrame](Model &model, const Frame &frame) {
             if (dataFrame(frame) && frameNumber.of(frame.frameId()) * 8 == model.record.size()) {
                 model.record.resize(model.record.size() + 8);
                 model.recordLength += 8;
             }
             return model.handle(frame);
         }},
        {"announces 64 frames at most", "record: 255 frames announced, 64 received",
         takes(recordStart && byteAbove(0, 64), byte(0, 64))},
        {"counts frames from 0 again behind the 64th", "record: 255 frames announced, 64 received",
         before(dataFrame, [](Model &model) { model.expectedFrame %= 64; })},
        {"keeps the bytes of the record before", "record: bytes that did not arrive count as zero",
         [recordStart](Model &model, const Frame &frame) {
             const QByteArray old = model.record;
             const Answers given = model.handle(frame);
             if (recordStart(frame))
                 model.record.replace(0, qMin(old.size(), model.record.size()),
                                      old.left(model.record.size()));
             return given;
         }},
        {"ends a record at the last frame that came",
         "record: bytes that did not arrive count as zero",
         before(recordEnd,
                [](Model &model) {
                    model.recordLength = qMin(model.recordLength, model.expectedFrame * 8);
                })},
        {"stores refused records", "record: wrong CRC-32 refused, then repeated",
         afterAnswer(recordEnd, isRefused,
                     [](Model &model) { model.files[model.place] += model.record; })},
        {"ends the transfer at a refused record", "record: wrong CRC-32 refused, then repeated",
         afterAnswer(recordEnd, isRefused, closeFile)},
        {"takes Record End of 5 bytes", "record: Record End of wrong size stands for CRC-32 0",
         takes(recordEnd && sized(5), resized(4))},
        {"ignores Record End of 3 bytes", "record: Record End of wrong size stands for CRC-32 0",
         ignores(recordEnd && sized(3))},
        {"refuses a repeated Record End", "record: repeated Record End appends again",
         afterAnswer(recordEnd, isAccepted, loseRecord)},
        {"stores a repeated Record End once", "record: repeated Record End appends again",
         [=, isStored = false](Model &model, const Frame &frame) mutable {
             const QHash<int, QByteArray> files = model.files;
             const Answers given = model.handle(frame);
             const bool isEnd = recordEnd(frame) && isAccepted(given);
             if (isEnd && isStored)
                 model.files = files;
             isStored = isEnd || (isStored && !recordStart(frame));
             return given;
         }},
        {"loses a refused record", "record: right Record End after a refused one",
         afterAnswer(recordEnd, isRefused, loseRecord)},
        {"refuses a Record End of wrong size", "record: without frames",
         takes(recordEnd && !sized(4), payload("FFFFFFFF"))},
        {"ignores a record of no frames", "record: without frames",
         ignoresWhile(recordEnd, [](const Model &model) { return model.record.isEmpty(); })},
        {"takes Record Start of 4 bytes", "record: Record Start of wrong size changes nothing",
         takes(recordStart && sized(4), resized(5))},
        {"takes Record Start of 6 bytes", "record: Record Start of wrong size changes nothing",
         takes(recordStart && sized(6), resized(5))},
        {"loses the record at a Record Start of wrong size",
         "record: Record Start of wrong size changes nothing",
         before(recordStart && !sized(5), loseRecord)},
        {"ignores Record Start within a record", "record: restarted before its end",
         ignoresWhile(recordStart,
                      [](const Model &model) {
                          return model.expectedFrame > 0
                              && model.expectedFrame * 8 < model.record.size();
                      })},
        {"does not count anew at Record Start", "record: restarted before its end",
         keeps(recordStart, &Model::expectedFrame)},
        {"ends the record at a short frame", "record: short frame in the middle",
         after(dataFrame && !sized(8), [](Model &model) { model.expectedFrame = 99; })},
        {"cuts nothing off for a short frame in the middle", "record: short frame in the middle",
         [=, missing = qsizetype(0)](Model &model, const Frame &frame) mutable {
             if (recordStart(frame))
                 missing = 0;
             const bool follows = dataFrame(frame) && missing > 0;
             if (dataFrame(frame))
                 missing = 8 - frame.payload().size();
             const Answers given = model.handle(frame);
             if (follows)
                 model.recordLength = model.record.size();
             return given;
         }},
        {"ignores empty Data Frames", "record: empty Data Frame", ignores(dataFrame && sized(0))},
        {"drops a record whose number is not the next",
         "record: appended in order of arrival, not of number",
         takes(recordStart && byteIs(1, 7), payload(""))},
        {"puts records at the place of their numbers",
         "record: appended in order of arrival, not of number",
         [=, number = 0](Model &model, const Frame &frame) mutable {
             const QByteArray old = model.files.value(model.place);
             if (recordStart(frame) && frame.payload().size() == 5)
                 number = frame.payload().at(1);
             const Answers given = model.handle(frame);
             QByteArray &file = model.files[model.place];
             if (recordEnd(frame) && number > 0 && file != old) {
                 const QByteArray added = file.mid(old.size());
                 file = old.leftJustified(number * 512, '\0');
                 file.insert(number * 512, added);
             }
             return given;
         }},
        {"stores records behind Transfer Complete",
         "record: after Transfer Complete answered, not stored",
         after(complete, [](Model &model) { model.isOpen = true; })},
        {"ignores records behind Transfer Complete",
         "record: after Transfer Complete answered, not stored",
         ignoresWhile(recordEnd, [](const Model &model) { return !model.isOpen; })},

        // ---- Completion
        {"answers a wrong file with the CRC-32 that came",
         "completion: wrong CRC-32 answered with the computed one",
         [complete](Model &model, const Frame &frame) {
             const Answers given = model.handle(frame);
             return complete(frame) && !given.isEmpty()
                 ? Answers{Frame(given.first().frameId(), frame.payload())}
                 : given;
         }},
        {"accepts any file", "completion: wrong CRC-32 answered with the computed one",
         answers(complete, put(code, 0))},
        {"compares 16 bits of the CRC-32",
         "completion: wrong CRC-32 answered with the computed one",
         judges(
             complete,
             [](const Model &, const Frame &frame, const Frame &answer) {
                 return answer.payload().left(2) == frame.payload().left(2);
             },
             put(code, 0))},
        {"empties a refused file", "completion: wrong CRC-32 answered with the computed one",
         afterAnswer(complete, isRefused, emptyFile)},
        {"takes Transfer Complete of 5 bytes",
         "completion: Transfer Complete of wrong size stands for CRC-32 0",
         takes(complete && sized(5), resized(4))},
        {"ignores an empty Transfer Complete",
         "completion: Transfer Complete of wrong size stands for CRC-32 0",
         ignores(complete && sized(0))},
        {"refuses Transfer Complete of wrong size",
         "completion: Transfer Complete of wrong size stands for CRC-32 0",
         answers(complete && !sized(4), put(code, 186))},
        {"answers Transfer Complete once", "completion: repeated",
         ignoresWhile(complete, [](const Model &model) { return !model.isOpen; })},
        {"refuses a repeated Transfer Complete", "completion: repeated",
         after(complete, losePlace)},
        {"writes over the file without emptying it",
         "completion: a shorter file replaces a longer one",
         [=, rest = QByteArray()](Model &model, const Frame &frame) mutable {
             if (acceptedInitiate(frame))
                 rest = model.files.value(static_cast<uchar>(frame.payload().at(0)));
             const Answers given = model.handle(frame);
             if (complete(frame) && rest.size() > model.files[model.place].size())
                 model.files[model.place] += rest.mid(model.files[model.place].size());
             return given;
         }},
        {"ignores a new transfer after an abandoned one",
         "completion: abandoned transfer replaced by a new one",
         ignoresWhile(initiate,
                      [](const Model &model) {
                          return model.expectedFrame > 0
                              && model.expectedFrame * 8 < model.record.size();
                      })},
        {"checks the whole file", "completion: file longer than announced",
         before(complete, setSize(0xFFFFFFFF))},
        {"checks the whole file when it is announced as empty",
         "completion: file longer than announced",
         before(complete,
                [](Model &model) {
                    if (model.fileSize == 0)
                        model.fileSize = 0xFFFFFFFF;
                })},
        {"fills the file up to the size announced", "completion: file shorter than announced",
         before(complete,
                [](Model &model) {
                    QByteArray &file = model.files[model.place];
                    file = file.leftJustified(qMin(model.fileSize, 5000u), '\0');
                })},
        {"refuses a file of another size than announced", "completion: file shorter than announced",
         judges(
             complete,
             [](const Model &model, const Frame &, const Frame &) {
                 return model.files.value(model.place).size() < model.fileSize;
             },
             put(code, 186))},

        // ---- A transfer with other messages in between
        {"loses the record at a start", "transfer: undisturbed by start of configuration",
         after(started, loseRecord)},
        {"closes the file at a start", "transfer: undisturbed by start of configuration",
         after(started, closeFile)},
        {"starts the record over at a refused start",
         "transfer: undisturbed by a refused start of configuration",
         after(start && !started, startRecordOver)},
        {"loses the record at an end", "transfer: undisturbed by end of configuration",
         after(end, loseRecord)},
        {"closes the file at an end", "transfer: undisturbed by end of configuration",
         after(end, closeFile)},
        {"forgets the file at an end", "transfer: undisturbed by end of configuration",
         after(end, losePlace)},
        {"forgets the size at an end", "transfer: undisturbed by end of configuration",
         after(end, setSize(0))},
        {"empties the file at another Transfer Info",
         "transfer: undisturbed by another Transfer Info", before(acceptedInfo, emptyFile)},
        {"loses the record at another Transfer Info",
         "transfer: undisturbed by another Transfer Info", after(acceptedInfo, loseRecord)},
        {"closes the file at another Transfer Info",
         "transfer: undisturbed by another Transfer Info", after(acceptedInfo, closeFile)},
        {"takes the size of a refused Transfer Info",
         "transfer: undisturbed by a refused Transfer Info", after(refusedInfo, setSize(5))},
        {"loses the record at a refused Transfer Info",
         "transfer: undisturbed by a refused Transfer Info", after(refusedInfo, loseRecord)},
        {"starts the record over at a refused Transfer Info",
         "transfer: undisturbed by a refused Transfer Info", after(refusedInfo, startRecordOver)},
        {"closes the file at a refused Transfer Info",
         "transfer: undisturbed by a refused Transfer Info", after(refusedInfo, closeFile)},
        {"loses the record at a refused Initiate Transfer",
         "transfer: undisturbed by a refused Initiate Transfer",
         after(refusedInitiate, loseRecord)},
        {"closes the file at a refused Initiate Transfer",
         "transfer: undisturbed by a refused Initiate Transfer", after(refusedInitiate, closeFile)},
        {"loses the record at an unknown type", "transfer: undisturbed by unknown messages",
         after(unknownType, loseRecord)},
        {"takes type 7 for a Data Frame", "transfer: undisturbed by unknown messages",
         takes(message(7), put(type, 15))},
        {"loses the record at an unknown operation", "transfer: undisturbed by unknown messages",
         after(unknownOperation, loseRecord)},
        {"closes the file at protocol 5", "transfer: undisturbed by unknown messages",
         after(has(protocol, 5), closeFile)},
        {"loses the record at Set Date Time", "transfer: undisturbed by clock and serial number",
         after(setDateTime, loseRecord)},
        {"closes the file at Set Serial", "transfer: undisturbed by clock and serial number",
         after(setSerial, closeFile)},

        // ---- Clock
        {"takes 5 bytes for a time", "clock: wrong sizes refused",
         takes(setDateTime && sized(5), resized(6))},
        {"takes 7 bytes for a time", "clock: wrong sizes refused",
         takes(setDateTime && sized(7), resized(6))},
        {"refuses a time without its payload", "clock: wrong sizes refused",
         answers(setDateTime && !sized(6), payload(""))},
        {"does not answer an empty Set Date Time", "clock: wrong sizes refused",
         ignores(setDateTime && sized(0))},
        {"accepts every date", "clock: impossible dates refused",
         answers(setDateTime && sized(6), put(code, 0))},
        {"accepts month 13", "clock: impossible dates refused",
         answers(setDateTime && byteIs(1, 13), put(code, 0))},
        {"accepts day 0", "clock: impossible dates refused",
         answers(setDateTime && byteIs(2, 0), put(code, 0))},
        {"accepts 31 April", "clock: impossible dates refused",
         answers(setDateTime && byteIs(1, 4) && byteIs(2, 31), put(code, 0))},
        {"accepts 29 February of every year", "clock: impossible dates refused",
         answers(setDateTime && byteIs(1, 2) && byteIs(2, 29), put(code, 0))},
        {"takes 2100 for a leap year", "clock: impossible dates refused",
         answers(setDateTime && byteIs(0, 100), put(code, 0))},
        {"refuses 29 February", "clock: leap day accepted",
         answers(setDateTime && byteIs(1, 2) && byteIs(2, 29), put(code, 186))},
        {"refuses hour 24", "clock: impossible time of day accepted",
         answers(setDateTime && byteAbove(3, 23), put(code, 186))},
        {"refuses minute 60", "clock: impossible time of day accepted",
         answers(setDateTime && byteAbove(4, 59), put(code, 186))},
        {"refuses second 60", "clock: impossible time of day accepted",
         answers(setDateTime && byteAbove(5, 59), put(code, 186))},
        {"accepts a time without its payload", "clock: set to the present time",
         answers(setDateTime, payload(""))},
        {"answers a time the other way round", "clock: set to the present time",
         answers(setDateTime, reversed())},

        // ---- Serial number
        {"refuses a serial number of 7 bytes", "serial number: in one frame",
         answers(setSerial && byteIs(0, 7), put(code, 186))},
        {"refuses an empty serial number", "serial number: in one frame",
         answers(setSerial && byteIs(0, 0), put(code, 186))},
        {"answers a serial number with a payload", "serial number: in one frame",
         answers(setSerial, payload("00"))},
        {"refuses bytes behind the serial number", "serial number: in one frame",
         answers(setSerial && byteIs(0, 4) && sized(8), put(code, 186))},
        {"answers a longer serial number at its second frame only", "serial number: in two frames",
         obeys(setSerial && byteAbove(0, 7), put(operation, 2))},
        {"answers Set Serial Ext in slot 0", "serial number: in two frames",
         answers(setSerialExt, put(slot, 0))},
        {"refuses a repeated Set Serial Ext", "serial number: in two frames",
         [setSerialExt, wasExt = false](Model &model, const Frame &frame) mutable {
             Answers given = model.handle(frame);
             if (std::exchange(wasExt, setSerialExt(frame)) && wasExt)
                 given.first() = changed(given.first(), put(code, 186));
             return given;
         }},
        {"refuses more than 15 bytes", "serial number: in two frames",
         answers(setSerial && byteAbove(0, 15), put(code, 186))},
        {"accepts a Set Serial that lacks bytes", "serial number: Set Serial too short",
         answers(setSerial && byteIs(0, 12) && !longerThan(7), put(code, 0))},
        {"refuses a short serial number that lacks bytes", "serial number: Set Serial too short",
         answers(setSerial && byteIs(0, 5) && !longerThan(5), put(code, 186))},
        {"refuses an empty Set Serial", "serial number: Set Serial too short",
         answers(setSerial && sized(0), put(code, 186))},
        {"refuses a Set Serial Ext that lacks bytes", "serial number: Set Serial Ext too short",
         answers(setSerialExt && sized(4), put(code, 186))},
        {"refuses an empty Set Serial Ext", "serial number: Set Serial Ext too short",
         answers(setSerialExt && sized(0), put(code, 186))},
        {"ignores Set Serial Ext behind a short number",
         "serial number: Set Serial Ext after a short number",
         ignoresWhile(setSerialExt, [](const Model &model) { return model.serialLength <= 7; })},

        // ---- Files that only --destructive sends
        {"refuses to open a file of unknown type", "file: of unknown type",
         answers(acceptedInitiate && byteAbove(0, 3), put(code, 30))},
        {"refuses menu files", "file: menu and package",
         answers(acceptedInitiate && byteIs(0, 1), put(code, 30))},
        {"does not answer when it has installed", "file: configuration, installed",
         ignoresWhile(complete, [](const Model &model) { return model.fileType == 0; })},
    };
}

} // namespace

const QList<PlantedDeviation> &plantedDeviations()
{
    static const QList<PlantedDeviation> all = makePlantedDeviations();
    return all;
}

ReceiverModel::Deviation plantedDeviation(const QString &behaviour)
{
    for (const PlantedDeviation &known : plantedDeviations()) {
        if (behaviour == QLatin1StringView(known.behaviour))
            return known.handle;
    }
    return {};
}
