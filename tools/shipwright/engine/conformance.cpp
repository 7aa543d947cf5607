#include "conformance.h"

#include "clock.h"

#include <QDateTime>

#include <algorithm>
#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;
using namespace Wire;

namespace {

constexpr quint32 generic = FileType::generic;
constexpr quint32 nodeStranger = 23;
constexpr quint32 nodeNobody = 25;

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

/// Different bytes for each \a seed, so that no content matches another.
QByteArray content(qsizetype size, qsizetype seed = 0)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char((i * 7 + i / 256 + seed * 31 + 1) % 253);
    return bytes;
}

// ---- Start and end of configuration

void startInEverySlot(Probe &probe)
{
    for (quint32 slot = 0; slot <= P3::slot.max(); ++slot) {
        probe.command(StartConfiguration::operation, hex("a55a"), slot);
        probe.expectResponse(resultSuccess, hex("5aa5"), slot);
    }
}

void startAtSecondDestination(Probe &probe)
{
    probe.destination = nodeDockhandAlt;
    probe.command(StartConfiguration::operation, hex("a55a"), 1);
    probe.expectResponse(resultSuccess, hex("5aa5"), 1);
}

void startWithMoreBytes(Probe &probe)
{
    for (const char *payload : {"a55a00", "a55a0011", "a55aa55aa55aa55a"}) {
        probe.command(StartConfiguration::operation, hex(payload));
        probe.expectResponse(resultSuccess, hex("5aa5"));
    }
}

void startWithoutHandshake(Probe &probe)
{
    for (const char *payload : {"", "a5", "5aa5", "a500", "00a55a"}) {
        probe.command(StartConfiguration::operation, hex(payload), 2);
        probe.expectResponse(resultFailure, {}, 2);
    }
}

void startWithUnreadBits(Probe &probe)
{
    for (const int bit : {15, 13, 10}) {
        probe.unreadBits = 1u << bit;
        probe.command(StartConfiguration::operation, hex("a55a"), 1);
        probe.expectResponse(resultSuccess, hex("5aa5"), 1);
    }
}

void endIsAnswered(Probe &probe)
{
    const QByteArray whole = hex("0102030405060708");
    for (qsizetype size = 0; size <= whole.size(); ++size) {
        const auto slot = quint32(size) & P3::slot.max();
        probe.command(EndConfiguration::operation, whole.left(size), slot);
        probe.expectResponse(resultSuccess, {}, slot);
    }
}

// ---- Frames that are not for the receiver. A real node would refuse those to other nodes, so that
// nothing else on the bus is changed.

void commandsOfOtherNodes(Probe &probe)
{
    for (quint32 source = 0; source <= sourceNode.max(); ++source) {
        if (source == nodeShipwright)
            continue;
        probe.send(P3::commandId(source, nodeDockhand, 0, P3::interfaceShipwright,
                                 StartConfiguration::operation),
                   {});
        probe.expectSilence();
    }
    probe.expectLastingSilence();
}

/// Near 26 and 14, and the ends of the range.
constexpr quint32 otherDestinations[] = {0, 10, 15, nodeNobody, 27, 30, 31};

void commandsToOtherNodes(Probe &probe)
{
    for (const quint32 destination : otherDestinations) {
        probe.destination = destination;
        probe.command(StartConfiguration::operation, {});
        probe.expectSilence();
    }
    probe.expectLastingSilence();
}

void commandsOnOtherInterfaces(Probe &probe)
{
    for (quint32 interfaceId = 0; interfaceId <= P3::interfaceNumber.max(); ++interfaceId) {
        if (interfaceId == P3::interfaceShipwright)
            continue;
        probe.send(P3::commandId(nodeShipwright, nodeDockhand, 0, interfaceId,
                                 StartConfiguration::operation),
                   hex("a55a"));
        probe.expectSilence();
    }
    probe.expectLastingSilence();
}

void unknownOperations(Probe &probe)
{
    for (quint32 operation = EndConfiguration::operation + 1; operation <= P3::operation.max();
         ++operation) {
        probe.command(operation, hex("a55a"));
        probe.expectSilence();
    }
    probe.expectLastingSilence();
}

void commandsWithResponseBit(Probe &probe)
{
    const quint32 responseBit = P3::response.pack(1);
    for (const quint32 operation : {StartConfiguration::operation, EndConfiguration::operation}) {
        probe.send(
            P3::commandId(nodeShipwright, nodeDockhand, 0, P3::interfaceShipwright, operation)
                | responseBit,
            hex("a55a"));
        probe.expectSilence();
    }
    probe.send(P3::responseId(nodeShipwright, nodeDockhand, 0, 0), {});
    probe.expectLastingSilence();
}

void otherProtocols(Probe &probe)
{
    // P3 and P6 would answer these.
    const quint32 start = P3::commandId(nodeShipwright, nodeDockhand, 0, P3::interfaceShipwright,
                                        StartConfiguration::operation);
    const quint32 info = P6::messageId(nodeShipwright, nodeDockhand, TransferInfo::type, 0, 0);
    for (const quint32 protocol : {0u, 1u, 2u, 4u, protocolP5, 7u}) {
        for (const quint32 id : {start, info}) {
            probe.send((id & ~protocolType.mask()) | protocolType.pack(protocol), hex("a55a"));
            probe.expectSilence();
        }
    }
    probe.expectLastingSilence();
}

/// A transfer; \a interrupt sends in its second record and must have no effect.
void interruptedRecord(Probe &probe, const std::function<void()> &interrupt)
{
    const QByteArray first = content(16, 39);
    const QByteArray data = content(24, 40);
    probe.open(generic, 40, 2);
    probe.record(first);
    probe.recordStart(3, 1);
    probe.dataFrame(0, data.left(8));
    interrupt();
    probe.destination = nodeDockhand;
    probe.dataFrame(1, data.mid(8, 8));
    probe.dataFrame(2, data.mid(16, 8));
    probe.endRecord(data);
    probe.close(first + data);
}

void transferOfOtherNodes(Probe &probe)
{
    for (quint32 source = 0; source <= sourceNode.max(); ++source) {
        if (source == nodeShipwright)
            continue;
        probe.send(P6::messageId(source, nodeDockhand, TransferInfo::type, 0, 0), {});
        probe.expectSilence();
    }
    interruptedRecord(probe, [&probe] {
        const auto send = [&probe](quint32 type, const QByteArray &payload) {
            probe.send(P6::messageId(nodeStranger, nodeDockhand, type, 0, 0), payload);
            probe.expectSilence();
        };
        probe.send(DataFrame::messageId(nodeStranger, nodeDockhand, 1), content(8, 41));
        probe.expectSilence();
        send(TransferInfo::type, hex("020805000000"));
        send(InitiateTransfer::type, hex("0208000001000000"));
        send(RecordStart::type, hex("0100000000"));
        send(RecordEnd::type, hex("00000000"));
        send(TransferComplete::type, hex("00000000"));
    });
    probe.expectLastingSilence();
}

void transferToOtherNodes(Probe &probe)
{
    for (const quint32 destination : otherDestinations) {
        probe.destination = destination;
        probe.message(TransferInfo::type, {});
        probe.expectSilence();
    }
    probe.destination = nodeDockhand;
    interruptedRecord(probe, [&probe] {
        probe.destination = nodeNobody;
        probe.dataFrame(1, content(8, 42));
        probe.message(InitiateTransfer::type, {});
        probe.message(RecordStart::type, {});
        probe.expectSilence();
    });
    probe.expectLastingSilence();
}

void unknownTypes(Probe &probe)
{
    for (quint32 type = TransferComplete::type + 1; type < DataFrame::type; ++type) {
        probe.message(type, hex("0208000000000000"));
        probe.expectSilence();
    }
    probe.expectLastingSilence();
}

void nothingUnasked(Probe &probe)
{
    probe.command(StartConfiguration::operation, hex("a55a"));
    probe.expectResponse(resultSuccess, hex("5aa5"));
    probe.announce(generic, 0);
    probe.command(EndConfiguration::operation, {});
    probe.expectResponse(resultSuccess);
    probe.expectNothing();
}

// ---- Transfer Info

void infoAccepted(Probe &probe)
{
    for (const char *payload : {"020810270000", "020810270000aa", "02081027000055aa"}) {
        probe.message(TransferInfo::type, hex(payload));
        probe.expectParameters(resultSuccess);
    }
}

void infoOfEveryFileType(Probe &probe)
{
    for (const quint32 fileType : {0u, 1u, 2u, 3u, 4u, 5u, 128u, 255u})
        probe.announce(fileType, 10);
}

void infoLowVersionBits(Probe &probe)
{
    for (const char *payload : {"020910270000", "020a10270000", "020b10270000"}) {
        probe.message(TransferInfo::type, hex(payload));
        probe.expectParameters(resultSuccess);
    }
}

void infoOfWrongSize(Probe &probe)
{
    const QByteArray whole = hex("020810270000");
    for (qsizetype size = 0; size < whole.size(); ++size) {
        probe.message(TransferInfo::type, whole.left(size));
        probe.expectParameters(TransferInfo::rejected);
    }
}

void infoOfOtherVersions(Probe &probe)
{
    for (quint32 version = 0; version <= P6::versionField.max(); ++version) {
        if (version == P6::version)
            continue;
        QByteArray payload = hex("020010270000");
        payload[TransferInfo::version] = char(P6::versionField.pack(version));
        probe.message(TransferInfo::type, payload);
        probe.expectParameters(TransferInfo::rejected);
    }
}

void infoAtSecondDestination(Probe &probe)
{
    probe.destination = nodeDockhandAlt;
    probe.announce(generic, 10000);
}

void sizeOfFourBytes(Probe &probe)
{
    // A receiver that keeps only the low bytes of a size checks ten bytes of each file.
    for (const quint32 size : {0x0000'010Au, 0x0001'000Au, 0x0100'000Au, 0x7F00'000Au}) {
        probe.open(generic, size, 1);
        probe.record(content(250, 50));
        probe.close(content(250, 50));
    }
}

void lastSizeCounts(Probe &probe)
{
    probe.open(generic, 10, 1);
    probe.record(content(30, 51));
    probe.announce(generic, 20);
    probe.close(content(30, 51).left(20));
    probe.announce(generic, 30);
    probe.close(content(30, 51));
}

// ---- Initiate Transfer

void initiateAccepted(Probe &probe)
{
    probe.initiate(generic, 1);
    probe.expectInitiated();
    for (const char *payload : {"0208ffff01000000", "0209000001000000", "020b123401000000"}) {
        probe.message(InitiateTransfer::type, hex(payload));
        probe.expectInitiated();
    }
}

void initiateOfWrongSize(Probe &probe)
{
    const QByteArray whole = hex("0208000001000000");
    for (qsizetype size = 0; size < whole.size(); ++size) {
        probe.message(InitiateTransfer::type, whole.left(size));
        probe.expectInitiateRefused();
    }
}

void initiateOfOtherVersions(Probe &probe)
{
    for (quint32 version = 0; version <= P6::versionField.max(); ++version) {
        if (version == P6::version)
            continue;
        QByteArray payload = hex("0200000001000000");
        payload[TransferInfo::version] = char(P6::versionField.pack(version));
        probe.message(InitiateTransfer::type, payload);
        probe.expectInitiateRefused();
    }
}

void initiateEmpties(Probe &probe)
{
    probe.transfer(generic, content(40, 52));
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.close({});
}

void initiateRefused(Probe &probe)
{
    const QByteArray data = content(40, 53);
    probe.transfer(generic, data);
    for (const char *payload : {"", "02080000010000", "020c000001000000"}) {
        probe.message(InitiateTransfer::type, hex(payload));
        probe.expectInitiateRefused();
        probe.close(data);
    }
}

void initiatedTwice(Probe &probe)
{
    probe.open(generic, 24, 1);
    probe.record(content(24, 26));
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.record(content(24, 27));
    probe.close(content(24, 27));
}

void initiateWithoutInfo(Probe &probe)
{
    probe.transfer(generic, content(24, 54));
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.record(content(24, 55));
    probe.close(content(24, 55));
}

void initiateChoosesFile(Probe &probe)
{
    probe.announce(FileType::package, 24);
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.record(content(24, 56));
    probe.announce(FileType::menu, 24);
    probe.close(content(24, 56));
    // The bytes went to the generic file, not to the announced types.
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.close({});
}

void recordsNotCounted(Probe &probe)
{
    for (const quint32 records : {0u, 1u, 3u, 0xFFFF'FFFFu}) {
        probe.open(generic, 40, records);
        probe.record(content(24, 57), 0);
        probe.record(content(16, 58), 1);
        probe.close(content(24, 57) + content(16, 58));
    }
}

// ---- Whole files

void fileOfEverySize(Probe &probe)
{
    for (const qsizetype size : {1, 7, 8, 9, 511, 512, 513, 1500})
        probe.transfer(generic, content(size, size));
}

void emptyFile(Probe &probe)
{
    probe.transfer(generic, {});
}

void fileToSecondDestination(Probe &probe)
{
    probe.destination = nodeDockhandAlt;
    probe.transfer(generic, content(600, 2));
}

void fileToBothDestinations(Probe &probe)
{
    const QByteArray data = content(24, 59);
    const auto other = [&probe] {
        probe.destination = probe.destination == nodeDockhand ? nodeDockhandAlt : nodeDockhand;
    };
    probe.announce(generic, 24);
    other();
    probe.initiate(generic, 1);
    probe.expectInitiated();
    other();
    probe.recordStart(3);
    for (quint32 i = 0; i < 3; ++i) {
        other();
        probe.dataFrame(i, data.mid(qsizetype(i) * 8, 8));
    }
    other();
    probe.endRecord(data);
    other();
    probe.close(data);
}

void fileWithUnreadBits(Probe &probe)
{
    // Bits 11 and 10, and all that only a Data Frame's identifier uses.
    probe.unreadBits = 0xFFF;
    probe.transfer(generic, content(600, 17));
}

void fileWithPauses(Probe &probe)
{
    // Longer than the receiver's parameters allow.
    constexpr qint64 pause = 1200;
    const QByteArray data = content(16, 60);
    probe.open(generic, 16, 1);
    probe.pause(pause);
    probe.recordStart(2);
    probe.dataFrame(0, data.left(8));
    probe.pause(pause);
    probe.dataFrame(1, data.mid(8));
    probe.endRecord(data);
    probe.pause(pause);
    probe.close(data);
}

// ---- Records

void startAndDataUnanswered(Probe &probe)
{
    const QByteArray data = content(16);
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    probe.expectLastingSilence();
    probe.dataFrames(data);
    probe.expectLastingSilence();
    probe.endRecord(data);
    probe.close(data);
}

/// Sends only the frames \a numbers of a record, in that order; then the whole record again.
void refuseThenRecover(Probe &probe, const QList<quint32> &numbers)
{
    const QByteArray data = content(27, 3);
    probe.open(generic, 27, 1);
    probe.recordStart(4);
    for (const quint32 number : numbers)
        probe.dataFrame(number, data.mid(qsizetype(number) * 8, 8));
    probe.recordEnd(crc32Of(data));
    probe.expectRecordRefused();
    probe.record(data);
    probe.close(data);
}

void framesOutOfOrder(Probe &probe)
{
    refuseThenRecover(probe, {0, 2, 1, 3});
}

void frameMissing(Probe &probe)
{
    refuseThenRecover(probe, {0, 1, 3});
    refuseThenRecover(probe, {1, 2, 3});
}

void lastFrameMissing(Probe &probe)
{
    refuseThenRecover(probe, {0, 1, 2});
}

void frameRepeated(Probe &probe)
{
    const QByteArray data = content(24, 4);
    probe.open(generic, 24, 1);
    probe.recordStart(3);
    probe.dataFrame(0, data.left(8));
    probe.dataFrame(0, content(8, 5));
    probe.dataFrame(1, data.mid(8, 8));
    probe.dataFrame(2, data.mid(16, 8));
    probe.dataFrame(2, content(8, 6));
    probe.endRecord(data);
    probe.close(data);
}

void framesBeyondTheRecord(Probe &probe)
{
    const QByteArray data = content(16, 61);
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    probe.dataFrames(data + content(24, 62));
    probe.endRecord(data);
    probe.close(data);
}

void moreFramesAnnounced(Probe &probe)
{
    const QByteArray data = content(512, 63);
    const QByteArray kept = data + QByteArray(255 * 8 - 512, '\0');
    probe.open(generic, quint32(kept.size()), 1);
    probe.recordStart(255);
    probe.dataFrames(data);
    probe.dataFrame(0, content(8, 64));
    probe.endRecord(kept);
    probe.close(kept);
}

void bytesThatDidNotArrive(Probe &probe)
{
    // The record before has left other bytes in their place.
    probe.open(generic, 64, 2);
    probe.record(content(32, 65));
    const QByteArray data = content(16, 66);
    const QByteArray kept = data + QByteArray(16, '\0');
    probe.recordStart(4, 1);
    probe.dataFrames(data);
    probe.endRecord(kept);
    probe.close(content(32, 65) + kept);
}

void recordCrcWrong(Probe &probe)
{
    const QByteArray data = content(40, 7);
    probe.open(generic, 40, 1);
    probe.recordStart(5);
    probe.dataFrames(content(40, 33));
    probe.recordEnd(crc32Of(data));
    probe.expectRecordRefused();
    probe.record(data);
    probe.close(data);
}

void recordEndOfWrongSize(Probe &probe)
{
    const QByteArray data = content(40, 8);
    probe.open(generic, 40, 1);
    for (const qsizetype size : {0, 3, 5, 8}) {
        const QByteArray refused = content(40, 34);
        probe.recordStart(5);
        probe.dataFrames(refused);
        probe.message(RecordEnd::type,
                      (littleEndian(crc32Of(refused)) + QByteArray(4, '\0')).left(size));
        probe.expectRecordRefused();
    }
    probe.record(data);
    probe.close(data);
}

void recordEndRepeated(Probe &probe)
{
    const QByteArray data = content(24, 67);
    probe.open(generic, 72, 3);
    probe.record(data);
    for (int i = 0; i < 2; ++i) {
        probe.endRecord(data);
    }
    probe.close(data + data + data);
}

void recordEndCorrected(Probe &probe)
{
    const QByteArray data = content(24, 68);
    probe.open(generic, 24, 1);
    probe.recordStart(3);
    probe.dataFrames(data);
    probe.recordEnd(~crc32Of(data));
    probe.expectRecordRefused();
    probe.endRecord(data);
    probe.close(data);
}

void recordOfNoFrames(Probe &probe)
{
    const QByteArray data = content(20, 9);
    probe.open(generic, 20, 2);
    probe.recordStart(0);
    probe.recordEnd(0);
    probe.expectRecordAccepted();
    for (const char *payload : {"", "000000", "ffffffffff"}) {
        probe.recordStart(0);
        probe.message(RecordEnd::type, hex(payload));
        probe.expectRecordAccepted();
    }
    probe.recordStart(0);
    probe.recordEnd(1);
    probe.expectRecordRefused();
    probe.record(data, 1);
    probe.close(data);
}

void recordStartOfWrongSize(Probe &probe)
{
    const QByteArray data = content(16, 10);
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    probe.dataFrame(0, data.left(8));
    for (const char *payload : {"", "05000000", "050000000000"})
        probe.message(RecordStart::type, hex(payload));
    probe.dataFrame(1, data.mid(8));
    probe.endRecord(data);
    probe.close(data);
}

void recordStartedAnew(Probe &probe)
{
    const QByteArray data = content(16, 11);
    probe.open(generic, 16, 1);
    probe.recordStart(3);
    probe.dataFrame(0, content(8, 12));
    probe.dataFrame(1, content(8, 13));
    probe.record(data);
    probe.close(data);
}

void shortFrameInTheMiddle(Probe &probe)
{
    const QByteArray data = content(24, 14);
    const QByteArray kept = data.left(11) + QByteArray(5, '\0') + data.mid(16, 3);
    probe.open(generic, 19, 1);
    probe.recordStart(3);
    probe.dataFrame(0, data.left(8));
    probe.dataFrame(1, data.mid(8, 3));
    probe.dataFrame(2, data.mid(16, 8));
    probe.endRecord(kept);
    probe.close(kept);
}

void emptyDataFrame(Probe &probe)
{
    const QByteArray data = content(16, 69);
    const QByteArray kept = data.left(8) + QByteArray(8, '\0');
    probe.open(generic, 16, 1);
    probe.recordStart(3);
    probe.dataFrame(0, data.left(8));
    probe.dataFrame(1, {});
    probe.dataFrame(2, data.mid(8));
    probe.endRecord(kept);
    probe.close(kept);
}

void recordNumbersDoNotPlace(Probe &probe)
{
    probe.open(generic, 40, 2);
    probe.record(content(24, 15), 7);
    probe.record(content(16, 16), 3);
    probe.close(content(24, 15) + content(16, 16));
}

void recordBehindTheEnd(Probe &probe)
{
    const QByteArray data = content(24, 70);
    probe.open(generic, 1000, 2);
    probe.record(data);
    probe.close(data);
    probe.record(content(16, 71), 1);
    probe.close(data);
}

// ---- Completion

void fileCrcWrong(Probe &probe)
{
    const QByteArray data = content(40, 18);
    probe.open(generic, 40, 1);
    probe.record(data);
    for (const quint32 crc : {crc32Of(data) ^ 0x80000000, crc32Of(data) ^ 1, 0u}) {
        probe.complete(crc);
        probe.expectFileRefused(crc32Of(data));
    }
    probe.close(data);
}

void completeOfWrongSize(Probe &probe)
{
    const QByteArray data = content(40, 19);
    probe.open(generic, 40, 1);
    probe.record(data);
    const QByteArray whole = littleEndian(crc32Of(data)) + QByteArray(4, '\0');
    for (const qsizetype size : {0, 3, 5, 8}) {
        probe.message(TransferComplete::type, whole.left(size));
        probe.expectFileRefused(crc32Of(data));
    }
    probe.close(data);
    probe.open(generic, 0, 0);
    probe.message(TransferComplete::type, hex("ffffff"));
    probe.expectFile(0);
}

void completeRepeated(Probe &probe)
{
    probe.transfer(generic, content(30, 20));
    probe.close(content(30, 20));
}

void fileReplaced(Probe &probe)
{
    probe.transfer(generic, content(100, 21));
    probe.transfer(generic, content(10, 22));
    // Announcing more bytes than the file has checks all of it.
    probe.announce(generic, 1000);
    probe.close(content(10, 22));
}

void abandonedTransferReplaced(Probe &probe)
{
    probe.open(generic, 1000, 2);
    probe.record(content(512, 23));
    probe.recordStart(61, 1);
    probe.dataFrame(0, content(8, 24));
    probe.transfer(generic, content(50, 25));
}

void fileLongerThanAnnounced(Probe &probe)
{
    for (const quint32 size : {0u, 10u}) {
        probe.open(generic, size, 1);
        probe.record(content(30, 28));
        probe.close(content(30, 28).left(size));
    }
}

void fileShorterThanAnnounced(Probe &probe)
{
    probe.open(generic, 1000, 1);
    probe.record(content(30, 29));
    probe.close(content(30, 29));
}

// ---- A transfer with other messages in between

/// Calls \a disturb at each step of a transfer, which must succeed all the same.
void disturbedTransfer(Probe &probe, const std::function<void()> &disturb)
{
    const QByteArray first = content(24, 30);
    const QByteArray second = content(16, 31);
    probe.announce(generic, 40);
    disturb();
    probe.initiate(generic, 2);
    probe.expectInitiated();
    disturb();
    probe.recordStart(3);
    disturb();
    for (quint32 i = 0; i < 3; ++i) {
        probe.dataFrame(i, first.mid(qsizetype(i) * 8, 8));
        disturb();
    }
    probe.endRecord(first);
    disturb();
    probe.record(second, 1);
    disturb();
    probe.close(first + second);
    disturb();
    probe.close(first + second);
}

void startDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        probe.command(StartConfiguration::operation, hex("a55a"));
        probe.expectResponse(resultSuccess, hex("5aa5"));
    });
}

void refusedStartDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        probe.command(StartConfiguration::operation, {});
        probe.expectResponse(resultFailure);
    });
}

void endDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        probe.command(EndConfiguration::operation, {});
        probe.expectResponse(resultSuccess);
    });
}

void infoDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] { probe.announce(generic, 40); });
}

void refusedInfoDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        for (const char *payload : {"", "0208050000", "020c05000000"}) {
            probe.message(TransferInfo::type, hex(payload));
            probe.expectParameters(TransferInfo::rejected);
        }
    });
}

void refusedInitiateDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        for (const char *payload : {"", "02080000010000", "020c000001000000"}) {
            probe.message(InitiateTransfer::type, hex(payload));
            probe.expectInitiateRefused();
        }
    });
}

void unknownDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        for (quint32 type = TransferComplete::type + 1; type < DataFrame::type; ++type)
            probe.message(type, hex("0208050000000000"));
        for (quint32 operation = EndConfiguration::operation + 1; operation <= P3::operation.max();
             ++operation)
            probe.command(operation, hex("a55a"));
        probe.send(nodesId(protocolP5, nodeShipwright, nodeDockhand), hex("0208050000000000"));
        probe.expectSilence();
    });
}

// ---- Destructive: these change more than the generic file

QByteArray presentTime()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QByteArray payload(SetDateTime::size, '\0');
    payload[SetDateTime::year] = char(now.date().year() - SetDateTime::epoch);
    payload[SetDateTime::month] = char(now.date().month());
    payload[SetDateTime::day] = char(now.date().day());
    payload[SetDateTime::hour] = char(now.time().hour());
    payload[SetDateTime::minute] = char(now.time().minute());
    payload[SetDateTime::second] = char(now.time().second());
    return payload;
}

void setPresentTime(Probe &probe)
{
    const QByteArray now = presentTime();
    probe.command(SetDateTime::operation, now);
    probe.expectResponse(resultSuccess, now);
}

void setPresentTimeAgain(Probe &probe)
{
    // The receiver answers before its clock is set: the right time must be set last.
    probe.pause(1000);
    setPresentTime(probe);
}

void clockOfWrongSize(Probe &probe)
{
    const QByteArray whole = hex("1803050e07090000");
    for (const qsizetype size : {0, 1, 2, 3, 4, 5, 7, 8}) {
        probe.command(SetDateTime::operation, whole.left(size), 1);
        probe.expectResponse(resultFailure, whole.left(size), 1);
    }
}

void clockOfImpossibleDate(Probe &probe)
{
    for (const char *payload :
         {"180d010e0709", "1800010e0709", "18041f0e0709", "1803000e0709", "1803200e0709",
          "17021d0e0709", "18021e0e0709", "64021d0e0709", "00ff010e0709"}) {
        probe.command(SetDateTime::operation, hex(payload), 2);
        probe.expectResponse(resultFailure, hex(payload), 2);
    }
}

void clockOfLeapDay(Probe &probe)
{
    const QByteArray leapDay = hex("18021d000000");
    probe.command(SetDateTime::operation, leapDay);
    probe.expectResponse(resultSuccess, leapDay);
    setPresentTimeAgain(probe);
}

void clockOfImpossibleTime(Probe &probe)
{
    for (const auto &[index, value] : {std::pair{SetDateTime::hour, 24},
                                       {SetDateTime::minute, 60},
                                       {SetDateTime::second, 60},
                                       {SetDateTime::hour, 255}}) {
        QByteArray payload = presentTime();
        payload[index] = char(value);
        probe.command(SetDateTime::operation, payload);
        probe.expectResponse(resultSuccess, payload);
    }
    setPresentTimeAgain(probe);
}

void serialInOneFrame(Probe &probe)
{
    const QByteArray text = QByteArrayLiteral("TESTING");
    for (qsizetype length = 0; length <= text.size(); ++length) {
        const auto slot = quint32(length) & P3::slot.max();
        probe.command(SetSerial::operation, char(length) + text.left(length), slot);
        probe.expectResponse(resultSuccess, {}, slot);
    }
    probe.command(SetSerial::operation, '\4' + text);
    probe.expectResponse(resultSuccess);
}

void setLongSerial(Probe &probe, const QByteArray &text, const QByteArray &rest)
{
    probe.command(SetSerial::operation, char(text.size()) + text.left(7), 1);
    probe.expectResponse(resultSuccess, {}, 1);
    probe.command(SetSerialExt::operation, rest, 2);
    probe.expectResponse(resultSuccess, {}, 2);
}

void serialInTwoFrames(Probe &probe)
{
    const QByteArray text = QByteArrayLiteral("TEST12345678901");
    for (qsizetype length = 8; length <= text.size(); ++length)
        setLongSerial(probe, text.left(length), text.mid(7, length - 7));
    // More bytes than announced, a repeated second frame, and a longer number than two frames
    // carry.
    setLongSerial(probe, text.left(9), text.mid(7));
    probe.command(SetSerialExt::operation, text.mid(7));
    probe.expectResponse(resultSuccess);
    setLongSerial(probe, text + text, text.mid(7));
}

void serialTooShort(Probe &probe)
{
    for (const char *payload : {"0c", "0c5445", "ff54455354313233"}) {
        const bool isWhole = qstrlen(payload) == 16;
        probe.command(SetSerial::operation, hex(payload), 3);
        probe.expectResponse(isWhole ? resultSuccess : resultFailure, {}, 3);
    }
    for (const char *payload : {"", "07", "055445"}) {
        probe.command(SetSerial::operation, hex(payload), 3);
        probe.expectResponse(resultSuccess, {}, 3);
    }
}

void serialExtTooShort(Probe &probe)
{
    setLongSerial(probe, QByteArrayLiteral("TEST12345678"), QByteArrayLiteral("4567"));
    setLongSerial(probe, QByteArrayLiteral("TEST12345678"), {});
}

void serialExtUnasked(Probe &probe)
{
    for (const char *payload : {"", "313233", "31323334353637", "3132333435363738"}) {
        probe.command(SetSerial::operation, '\4' + QByteArrayLiteral("TEST"));
        probe.expectResponse(resultSuccess);
        probe.command(SetSerialExt::operation, hex(payload), 1);
        probe.expectResponse(resultSuccess, {}, 1);
    }
    // The number that the help names.
    setLongSerial(probe, QByteArrayLiteral("TEST12345678"), QByteArrayLiteral("45678"));
}

void commandsDuringTransfer(Probe &probe)
{
    disturbedTransfer(probe, [&probe] {
        setPresentTime(probe);
        setLongSerial(probe, QByteArrayLiteral("TEST12345678"), QByteArrayLiteral("45678"));
    });
}

void unknownFileType(Probe &probe)
{
    for (const quint32 fileType : {4u, 255u}) {
        // Empty, because the receiver may not be allowed to write there.
        probe.open(fileType, 0, 0);
        probe.close({});
    }
}

void menuAndPackage(Probe &probe)
{
    probe.transfer(FileType::menu, content(700, 31));
    probe.transfer(FileType::package, content(700, 32));
}

void configurationInstalled(Probe &probe)
{
    probe.transfer(FileType::configuration, QByteArrayLiteral("{}\n"));
}

struct Check
{
    const char *name;
    void (*run)(Probe &probe);
    bool isDestructive = false;
};

const Check checks[] = {
    {"start of configuration: answered 5A A5 in every slot", startInEverySlot},
    {"start of configuration: answered at destination 14", startAtSecondDestination},
    {"start of configuration: more bytes after the handshake", startWithMoreBytes},
    {"start of configuration: refused without the handshake", startWithoutHandshake},
    {"start of configuration: bits 15, 13 and 10 not read", startWithUnreadBits},
    {"end of configuration: answered whatever it carries", endIsAnswered},
    {"silence: commands from nodes other than 24", commandsOfOtherNodes},
    {"silence: commands to nodes other than 26 and 14", commandsToOtherNodes},
    {"silence: commands on interfaces other than 11", commandsOnOtherInterfaces},
    {"silence: operations 5 to 63", unknownOperations},
    {"silence: commands with the response bit", commandsWithResponseBit},
    {"silence: protocols other than 3 and 6", otherProtocols},
    {"silence: transfer messages from nodes other than 24", transferOfOtherNodes},
    {"silence: transfer messages to nodes other than 26 and 14", transferToOtherNodes},
    {"silence: message types 5 to 14", unknownTypes},
    {"silence: nothing sent without a request", nothingUnasked},
    {"Transfer Info: accepted with 6 bytes and more", infoAccepted},
    {"Transfer Info: every file type accepted", infoOfEveryFileType},
    {"Transfer Info: low bits of the version byte not read", infoLowVersionBits},
    {"Transfer Info: 0 to 5 bytes refused with the parameters", infoOfWrongSize},
    {"Transfer Info: versions other than 2 refused with the parameters", infoOfOtherVersions},
    {"Transfer Info: answered at destination 14", infoAtSecondDestination},
    {"Transfer Info: file size of 4 bytes", sizeOfFourBytes},
    {"Transfer Info: the last accepted size counts", lastSizeCounts},
    {"Initiate Transfer: accepted, bytes 2 and 3 not read", initiateAccepted},
    {"Initiate Transfer: 0 to 7 bytes refused", initiateOfWrongSize},
    {"Initiate Transfer: versions other than 2 refused", initiateOfOtherVersions},
    {"Initiate Transfer: empties the file", initiateEmpties},
    {"Initiate Transfer: leaves the file alone when refused", initiateRefused},
    {"Initiate Transfer: a second one starts over", initiatedTwice},
    {"Initiate Transfer: needs no Transfer Info", initiateWithoutInfo},
    {"Initiate Transfer: chooses the file, whatever Transfer Info says", initiateChoosesFile},
    {"Initiate Transfer: number of records not enforced", recordsNotCounted},
    {"file: 1 to 1500 bytes in up to 3 records", fileOfEverySize},
    {"file: empty", emptyFile},
    {"file: to destination 14", fileToSecondDestination},
    {"file: to both destinations alternately", fileToBothDestinations},
    {"file: unread identifier bits set", fileWithUnreadBits},
    {"file: with pauses of more than a second", fileWithPauses},
    {"record: Record Start and Data Frames unanswered", startAndDataUnanswered},
    {"record: frames out of order refused, then repeated", framesOutOfOrder},
    {"record: frame missing refused, then repeated", frameMissing},
    {"record: last frame missing refused, then repeated", lastFrameMissing},
    {"record: repeated frames dropped", frameRepeated},
    {"record: frames beyond those announced dropped", framesBeyondTheRecord},
    {"record: 255 frames announced, 64 received", moreFramesAnnounced},
    {"record: bytes that did not arrive count as zero", bytesThatDidNotArrive},
    {"record: wrong CRC-32 refused, then repeated", recordCrcWrong},
    {"record: Record End of wrong size stands for CRC-32 0", recordEndOfWrongSize},
    {"record: repeated Record End appends again", recordEndRepeated},
    {"record: right Record End after a refused one", recordEndCorrected},
    {"record: without frames", recordOfNoFrames},
    {"record: Record Start of wrong size changes nothing", recordStartOfWrongSize},
    {"record: restarted before its end", recordStartedAnew},
    {"record: short frame in the middle", shortFrameInTheMiddle},
    {"record: empty Data Frame", emptyDataFrame},
    {"record: appended in order of arrival, not of number", recordNumbersDoNotPlace},
    {"record: after Transfer Complete answered, not stored", recordBehindTheEnd},
    {"completion: wrong CRC-32 answered with the computed one", fileCrcWrong},
    {"completion: Transfer Complete of wrong size stands for CRC-32 0", completeOfWrongSize},
    {"completion: repeated", completeRepeated},
    {"completion: a shorter file replaces a longer one", fileReplaced},
    {"completion: abandoned transfer replaced by a new one", abandonedTransferReplaced},
    {"completion: file longer than announced", fileLongerThanAnnounced},
    {"completion: file shorter than announced", fileShorterThanAnnounced},
    {"transfer: undisturbed by start of configuration", startDuringTransfer},
    {"transfer: undisturbed by a refused start of configuration", refusedStartDuringTransfer},
    {"transfer: undisturbed by end of configuration", endDuringTransfer},
    {"transfer: undisturbed by another Transfer Info", infoDuringTransfer},
    {"transfer: undisturbed by a refused Transfer Info", refusedInfoDuringTransfer},
    {"transfer: undisturbed by a refused Initiate Transfer", refusedInitiateDuringTransfer},
    {"transfer: undisturbed by unknown messages", unknownDuringTransfer},
    {"transfer: undisturbed by clock and serial number", commandsDuringTransfer, true},
    {"clock: wrong sizes refused", clockOfWrongSize, true},
    {"clock: impossible dates refused", clockOfImpossibleDate, true},
    {"clock: leap day accepted", clockOfLeapDay, true},
    {"clock: impossible time of day accepted", clockOfImpossibleTime, true},
    {"clock: set to the present time", setPresentTime, true},
    {"serial number: in one frame", serialInOneFrame, true},
    {"serial number: in two frames", serialInTwoFrames, true},
    {"serial number: Set Serial too short", serialTooShort, true},
    {"serial number: Set Serial Ext too short", serialExtTooShort, true},
    {"serial number: Set Serial Ext after a short number", serialExtUnasked, true},
    {"file: of unknown type", unknownFileType, true},
    {"file: menu and package", menuAndPackage, true},
    {"file: configuration, installed", configurationInstalled, true},
};

bool isChosen(const Check &check, const QString &only)
{
    return QString::fromLatin1(check.name).contains(only, Qt::CaseInsensitive);
}

} // namespace

QList<ConformanceCheck> conformanceChecks(const ConformanceSettings &settings)
{
    QList<ConformanceCheck> chosen;
    for (const Check &check : checks) {
        if (isChosen(check, settings.only))
            chosen += {QString::fromLatin1(check.name), check.isDestructive};
    }
    return chosen;
}

Conformance::Conformance(Link &link, const ConformanceSettings &settings)
    : m_settings(settings),
      m_link(link),
      m_probe(link, settings.limits)
{
}

qsizetype Conformance::count(ConformanceResult::Outcome outcome) const
{
    return std::count_if(
        m_results.cbegin(), m_results.cend(),
        [outcome](const ConformanceResult &result) { return result.outcome == outcome; });
}

void Conformance::run(const std::function<void(const ConformanceResult &)> &report)
{
    using Outcome = ConformanceResult::Outcome;
    m_results.clear();
    for (const ConformanceCheck &check : conformanceChecks(m_settings)) {
        ConformanceResult result;
        result.name = check.name;
        m_results += result;
    }

    auto result = m_results.begin();
    bool isThere = true;
    for (const Check &check : checks) {
        if (!isChosen(check, m_settings.only))
            continue;
        if (check.isDestructive && !m_settings.destructive)
            result->outcome = Outcome::Skipped;
        else if (isThere)
            isThere = run(check.run, *result);
        if (result->outcome != Outcome::NotRun)
            report(*result);
        ++result;
    }
}

bool Conformance::run(void (*check)(Probe &), ConformanceResult &result)
{
    using Outcome = ConformanceResult::Outcome;
    const qint64 start = m_link.clock().now();
    std::optional<Deviation> deviation;
    m_probe.begin();
    try {
        check(m_probe);
        // An extra answer shows here, not in the next check.
        m_probe.expectSilence();
    } catch (const Deviation &found) {
        deviation = found;
    }
    result.outcome = deviation ? Outcome::Failed : Outcome::Passed;
    result.milliseconds = m_link.clock().now() - start;
    result.frames = m_probe.frames();
    if (!deviation)
        return true;
    result.due = deviation->due;
    result.came = deviation->came;
    result.cause = m_probe.cause();
    // Late answers must not reach the next check.
    return m_probe.findReceiver() || !deviation->isNoAnswer;
}

} // namespace Shipwright
