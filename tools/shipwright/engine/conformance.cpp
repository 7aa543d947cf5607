#include "conformance.h"

#include "clock.h"
#include "failure.h"
#include "link.h"

#include "wire.h"

#include <QCanBusFrame>
#include <QDateTime>
#include <QtEndian>

#include <utility>
#include <zlib.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

struct Deviation
{
    QString text;
};

QString shown(quint32 id, const QByteArray &payload)
{
    return u"%1#%2"_s.arg(id, 8, 16, QLatin1Char('0'))
        .arg(QString::fromLatin1(payload.toHex()))
        .toUpper();
}

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

quint32 crcOf(const QByteArray &data)
{
    return quint32(
        ::crc32(0, reinterpret_cast<const Bytef *>(data.constData()), uInt(data.size())));
}

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

/// Different bytes for each \a seed, so that no content passes for another.
QByteArray content(qsizetype size, qsizetype seed = 0)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char((i * 7 + i / 256 + seed * 31 + 1) % 253);
    return bytes;
}

constexpr quint32 nodeNobody = 25;
constexpr quint32 nodeStranger = 23;
constexpr char version2 = 2 << 2;

/// One receiver, and what is due from it.
class Probe
{
public:
    Probe(Link &link, const ConformanceSettings &settings)
        : m_link(link),
          m_settings(settings)
    {
    }

    quint32 destination = Wire::nodeDockhand;

    // ---- What goes out
    void send(quint32 id, const QByteArray &payload) { m_link.send(id, payload); }
    void command(quint32 operation, const QByteArray &payload, quint32 slot = 0)
    {
        send(Wire::P3::commandId(Wire::nodeShipwright, destination, slot,
                                 Wire::P3::interfaceShipwright, operation),
             payload);
    }
    void message(quint32 type, const QByteArray &payload)
    {
        send(Wire::P6::messageId(Wire::nodeShipwright, destination, type, 0, 0), payload);
    }
    void transferInfo(quint32 fileType, quint32 size)
    {
        message(Wire::TransferInfo::type,
                QByteArray(1, char(fileType)) + version2 + littleEndian(size));
    }
    void initiate(quint32 fileType, quint32 records)
    {
        message(Wire::InitiateTransfer::type,
                QByteArray(1, char(fileType)) + version2 + QByteArray(2, '\0')
                    + littleEndian(records));
    }
    void recordStart(qsizetype frames, quint32 number = 0)
    {
        message(Wire::RecordStart::type, QByteArray(1, char(frames)) + littleEndian(number));
    }
    void dataFrame(quint32 number, const QByteArray &payload)
    {
        send(Wire::DataFrame::messageId(Wire::nodeShipwright, destination, number), payload);
    }
    void recordEnd(quint32 crc) { message(Wire::RecordEnd::type, littleEndian(crc)); }
    void complete(quint32 crc) { message(Wire::TransferComplete::type, littleEndian(crc)); }

    // ---- What is due
    void expect(quint32 id, const QByteArray &payload)
    {
        const QCanBusFrame frame = next(shown(id, payload));
        if (frame.frameId() != id || frame.payload() != payload)
            deviate(shown(id, payload), shown(frame.frameId(), frame.payload()));
    }
    void expectResponse(quint32 code, const QByteArray &payload = {}, quint32 slot = 0)
    {
        expect(Wire::P3::responseId(Wire::nodeDockhand, Wire::nodeShipwright, slot, code), payload);
    }
    void expectAnswer(quint32 type, quint32 code, const QByteArray &payload)
    {
        expect(Wire::P6::messageId(Wire::nodeDockhand, Wire::nodeShipwright, type, 0, code),
               payload);
    }
    /// The receiver's parameters are its own, but they are the same in every answer.
    void expectParameters(quint32 code)
    {
        const quint32 id = Wire::P6::messageId(Wire::nodeDockhand, Wire::nodeShipwright,
                                               Wire::TransferInfo::type, 0, code);
        const QString due = u"%1 and the 8 bytes of the parameters"_s.arg(shown(id, {}));
        const QCanBusFrame frame = next(due);
        const QByteArray payload = frame.payload();
        const bool isVersion2 = payload.size() == Wire::TransferInfoResponse::size
            && Wire::P6::versionField.of(uchar(payload.at(0))) == Wire::P6::version;
        if (m_parameters.isEmpty() && isVersion2)
            m_parameters = payload;
        if (frame.frameId() != id || payload != m_parameters)
            deviate(due, shown(frame.frameId(), payload));
    }
    void expectInitiated() { expectAnswer(Wire::InitiateTransfer::type, 0, QByteArray(8, '\0')); }
    void expectRecordAccepted() { expectAnswer(Wire::RecordEnd::type, 0, hex("00")); }
    void expectRecordRefused()
    {
        expectAnswer(Wire::RecordEnd::type, Wire::resultFailure, hex("01"));
    }
    void expectFile(quint32 crc)
    {
        m_long = true;
        expectAnswer(Wire::TransferComplete::type, Wire::resultSuccess, littleEndian(crc));
        m_long = false;
    }
    void expectFileRefused(quint32 crc)
    {
        expectAnswer(Wire::TransferComplete::type, Wire::resultFailure, littleEndian(crc));
    }
    void expectSilence()
    {
        // A start command without the handshake is refused and changes nothing.
        const quint32 before = std::exchange(destination, Wire::nodeDockhand);
        command(Wire::StartConfiguration::operation, {}, questionSlot);
        destination = before;
        const quint32 id = Wire::P3::responseId(Wire::nodeDockhand, Wire::nodeShipwright,
                                                questionSlot, Wire::resultFailure);
        const QCanBusFrame frame = next(u"silence"_s);
        if (frame.frameId() != id)
            deviate(u"silence"_s, shown(frame.frameId(), frame.payload()));
    }

    // ---- Whole steps
    void open(quint32 fileType, quint32 size, quint32 records)
    {
        transferInfo(fileType, size);
        expectParameters(Wire::resultSuccess);
        initiate(fileType, records);
        expectInitiated();
    }
    void sendFrames(const QByteArray &data)
    {
        for (qsizetype i = 0; i * 8 < data.size(); ++i)
            dataFrame(quint32(i), data.mid(i * 8, 8));
    }
    void record(const QByteArray &data, quint32 number = 0)
    {
        recordStart((data.size() + 7) / 8, number);
        sendFrames(data);
        recordEnd(crcOf(data));
        expectRecordAccepted();
    }
    void transfer(quint32 fileType, const QByteArray &data)
    {
        const auto records = quint32((data.size() + 511) / 512);
        open(fileType, quint32(data.size()), records);
        for (quint32 i = 0; i < records; ++i)
            record(data.mid(qsizetype(i) * 512, 512), i);
        close(data);
    }
    /// Ends a transfer whose file must now hold \a data.
    void close(const QByteArray &data)
    {
        complete(crcOf(data));
        expectFile(crcOf(data));
    }

    /// Lets answers of a check that broke off pass by.
    void settle()
    {
        m_link.pause(200);
        m_link.discardReceived();
        m_long = false;
        destination = Wire::nodeDockhand;
    }

private:
    static constexpr quint32 questionSlot = 3;

    QCanBusFrame next(const QString &due)
    {
        const qint64 limit = m_long ? m_settings.completeTimeout : m_settings.timeout;
        const qint64 deadline = m_link.clock().now() + limit;
        while (const auto frame = m_link.receive(deadline)) {
            if (Wire::destinationNode.of(frame->frameId()) == Wire::nodeShipwright)
                return *frame;
        }
        throw Deviation{u"due: %1; came: nothing for %2 ms"_s.arg(due).arg(limit)};
    }
    [[noreturn]] static void deviate(const QString &due, const QString &came)
    {
        throw Deviation{u"due: %1; came: %2"_s.arg(due, came)};
    }

    Link &m_link;
    const ConformanceSettings &m_settings;
    QByteArray m_parameters;
    bool m_long = false;
};

constexpr quint32 generic = Wire::FileType::generic;

// ---- Start and end of configuration

void startInEverySlot(Probe &probe)
{
    for (quint32 slot = 0; slot <= 3; ++slot) {
        probe.command(Wire::StartConfiguration::operation, hex("a55a"), slot);
        probe.expectResponse(0, hex("5aa5"), slot);
    }
}

void startAtSecondDestination(Probe &probe)
{
    probe.destination = Wire::nodeDockhandAlt;
    probe.command(Wire::StartConfiguration::operation, hex("a55a"), 1);
    probe.expectResponse(0, hex("5aa5"), 1);
}

void startWithMoreBytes(Probe &probe)
{
    probe.command(Wire::StartConfiguration::operation, hex("a55a0011"));
    probe.expectResponse(0, hex("5aa5"));
}

void startWithoutHandshake(Probe &probe)
{
    for (const char *payload : {"", "a5", "5aa5", "a500", "00a55a"}) {
        probe.command(Wire::StartConfiguration::operation, hex(payload), 2);
        probe.expectResponse(Wire::resultFailure, {}, 2);
    }
}

void endIsAnswered(Probe &probe)
{
    probe.command(Wire::EndConfiguration::operation, {});
    probe.expectResponse(0);
    probe.command(Wire::EndConfiguration::operation, hex("0102030405060708"), 3);
    probe.expectResponse(0, {}, 3);
}

// ---- Frames that are not for the receiver. What they ask for would be refused without an effect,
// so that nobody else on the bus is moved to do anything.

void commandFromStranger(Probe &probe)
{
    probe.send(Wire::P3::commandId(nodeStranger, Wire::nodeDockhand, 0,
                                   Wire::P3::interfaceShipwright,
                                   Wire::StartConfiguration::operation),
               {});
    probe.expectSilence();
}

void commandToNobody(Probe &probe)
{
    probe.destination = nodeNobody;
    probe.command(Wire::StartConfiguration::operation, {});
    probe.expectSilence();
}

void commandOnOtherInterface(Probe &probe)
{
    for (const quint32 interfaceId : {0u, 10u, 12u, 15u}) {
        probe.send(Wire::P3::commandId(Wire::nodeShipwright, Wire::nodeDockhand, 0, interfaceId,
                                       Wire::StartConfiguration::operation),
                   {});
        probe.expectSilence();
    }
}

void unknownOperations(Probe &probe)
{
    for (quint32 operation = 5; operation <= Wire::P3::operation.max(); ++operation)
        probe.command(operation, {});
    probe.expectSilence();
}

void responsesAndOtherProtocols(Probe &probe)
{
    probe.send(Wire::P3::responseId(Wire::nodeShipwright, Wire::nodeDockhand, 0, 0), {});
    probe.expectSilence();
    for (const quint32 protocol : {0u, 1u, 2u, 4u, Wire::protocolP5, 7u}) {
        probe.send(Wire::nodesId(protocol, Wire::nodeShipwright, Wire::nodeDockhand), {});
        probe.expectSilence();
    }
}

void transferFromStranger(Probe &probe)
{
    probe.send(
        Wire::P6::messageId(nodeStranger, Wire::nodeDockhand, Wire::TransferInfo::type, 0, 0), {});
    probe.expectSilence();
}

void transferToNobody(Probe &probe)
{
    probe.destination = nodeNobody;
    probe.message(Wire::TransferInfo::type, {});
    probe.expectSilence();
}

void unknownTypes(Probe &probe)
{
    for (quint32 type = 5; type <= 14; ++type)
        probe.message(type, hex("0208000000000000"));
    probe.expectSilence();
}

// ---- Negotiation

void infoAccepted(Probe &probe)
{
    probe.transferInfo(generic, 10000);
    probe.expectParameters(0);
    probe.message(Wire::TransferInfo::type, hex("02081027000055aa"));
    probe.expectParameters(0);
}

void infoLowVersionBits(Probe &probe)
{
    probe.message(Wire::TransferInfo::type, hex("020b10270000"));
    probe.expectParameters(0);
}

void infoOfWrongSize(Probe &probe)
{
    const QByteArray whole = hex("020810270000");
    for (qsizetype size = 0; size < whole.size(); ++size) {
        probe.message(Wire::TransferInfo::type, whole.left(size));
        probe.expectParameters(Wire::TransferInfo::rejected);
    }
}

void infoOfWrongVersion(Probe &probe)
{
    for (const char *payload : {"020010270000", "020410270000", "020c10270000", "028810270000"}) {
        probe.message(Wire::TransferInfo::type, hex(payload));
        probe.expectParameters(Wire::TransferInfo::rejected);
    }
}

void infoAtSecondDestination(Probe &probe)
{
    probe.destination = Wire::nodeDockhandAlt;
    probe.transferInfo(generic, 10000);
    probe.expectParameters(0);
}

void infoWithResponseBit(Probe &probe)
{
    probe.send(Wire::P6::messageId(Wire::nodeShipwright, Wire::nodeDockhand,
                                   Wire::TransferInfo::type, 1, 0),
               hex("020810270000"));
    probe.expectParameters(0);
}

void initiateAccepted(Probe &probe)
{
    probe.initiate(generic, 1);
    probe.expectInitiated();
    probe.message(Wire::InitiateTransfer::type, hex("020bffff01000000"));
    probe.expectInitiated();
}

void initiateOfWrongSize(Probe &probe)
{
    const QByteArray whole = hex("0208000001000000");
    for (qsizetype size = 0; size < whole.size(); ++size) {
        probe.message(Wire::InitiateTransfer::type, whole.left(size));
        probe.expectAnswer(Wire::InitiateTransfer::type, Wire::InitiateTransfer::rejected,
                           QByteArray(8, '\0'));
    }
}

void initiateOfWrongVersion(Probe &probe)
{
    for (const char *payload : {"0200000001000000", "0204000001000000", "020c000001000000"}) {
        probe.message(Wire::InitiateTransfer::type, hex(payload));
        probe.expectAnswer(Wire::InitiateTransfer::type, Wire::InitiateTransfer::rejected,
                           QByteArray(8, '\0'));
    }
}

// ---- Records

void fileOfEverySize(Probe &probe)
{
    for (const qsizetype size : {1, 7, 8, 9, 511, 512, 513, 1500})
        probe.transfer(generic, content(size, int(size)));
}

void emptyFile(Probe &probe)
{
    probe.transfer(generic, {});
}

void fileToSecondDestination(Probe &probe)
{
    probe.destination = Wire::nodeDockhandAlt;
    probe.transfer(generic, content(600, 2));
}

void startAndDataUnanswered(Probe &probe)
{
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    probe.expectSilence();
    probe.sendFrames(content(16));
    probe.expectSilence();
    probe.recordEnd(crcOf(content(16)));
    probe.expectRecordAccepted();
    probe.close(content(16));
}

/// Sends a record that cannot be right as frames \a numbers, then repeats it whole.
void refuseThenRecover(Probe &probe, const QList<quint32> &numbers)
{
    const QByteArray data = content(27, 3);
    probe.open(generic, 27, 1);
    probe.recordStart(4);
    for (const quint32 number : numbers)
        probe.dataFrame(number, data.mid(qsizetype(number) * 8, 8));
    probe.recordEnd(crcOf(data));
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
    probe.recordEnd(crcOf(data));
    probe.expectRecordAccepted();
    probe.close(data);
}

void recordCrcWrong(Probe &probe)
{
    const QByteArray data = content(40, 7);
    probe.open(generic, 40, 1);
    probe.recordStart(5);
    probe.sendFrames(content(40, 33));
    probe.recordEnd(crcOf(data));
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
        probe.sendFrames(refused);
        probe.message(Wire::RecordEnd::type,
                      (littleEndian(crcOf(refused)) + QByteArray(4, '\0')).left(size));
        probe.expectRecordRefused();
    }
    probe.record(data);
    probe.close(data);
}

void zeroLengthRecord(Probe &probe)
{
    const QByteArray data = content(20, 9);
    probe.open(generic, 20, 2);
    probe.recordStart(0);
    probe.recordEnd(0);
    probe.expectRecordAccepted();
    probe.recordStart(0);
    probe.message(Wire::RecordEnd::type, hex("000000"));
    probe.expectRecordAccepted();
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
    probe.message(Wire::RecordStart::type, hex("05000000"));
    probe.message(Wire::RecordStart::type, hex("050000000000"));
    probe.dataFrame(1, data.mid(8));
    probe.recordEnd(crcOf(data));
    probe.expectRecordAccepted();
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
    // The gap it leaves stays zero and counts, and as many bytes are cut off the end.
    const QByteArray kept = data.left(11) + QByteArray(5, '\0') + data.mid(16, 3);
    probe.open(generic, 19, 1);
    probe.recordStart(3);
    probe.dataFrame(0, data.left(8));
    probe.dataFrame(1, data.mid(8, 3));
    probe.dataFrame(2, data.mid(16, 8));
    probe.recordEnd(crcOf(kept));
    probe.expectRecordAccepted();
    probe.close(kept);
}

void recordNumbersDoNotPlace(Probe &probe)
{
    probe.open(generic, 40, 2);
    probe.record(content(24, 15), 7);
    probe.record(content(16, 16), 3);
    probe.close(content(24, 15) + content(16, 16));
}

void lowBitsOfDataFrame(Probe &probe)
{
    const QByteArray data = content(16, 17);
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    for (quint32 i = 0; i < 2; ++i) {
        probe.send(Wire::DataFrame::messageId(Wire::nodeShipwright, Wire::nodeDockhand, i) | 0xF,
                   data.mid(qsizetype(i) * 8, 8));
    }
    probe.recordEnd(crcOf(data));
    probe.expectRecordAccepted();
    probe.close(data);
}

// ---- Completion

void fileCrcWrong(Probe &probe)
{
    const QByteArray data = content(40, 18);
    probe.open(generic, 40, 1);
    probe.record(data);
    probe.complete(crcOf(data) ^ 0x80000000);
    probe.expectFileRefused(crcOf(data));
    probe.close(data);
}

void completeOfWrongSize(Probe &probe)
{
    const QByteArray data = content(40, 19);
    probe.open(generic, 40, 1);
    probe.record(data);
    for (const qsizetype size : {0, 3, 5}) {
        probe.message(Wire::TransferComplete::type,
                      (littleEndian(crcOf(data)) + QByteArray(1, '\0')).left(size));
        probe.expectFileRefused(crcOf(data));
    }
    probe.close(data);
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
}

void abandonedTransferReplaced(Probe &probe)
{
    probe.open(generic, 1000, 2);
    probe.record(content(512, 23));
    probe.recordStart(61, 1);
    probe.dataFrame(0, content(8, 24));
    probe.transfer(generic, content(50, 25));
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

void fileLongerThanAnnounced(Probe &probe)
{
    probe.open(generic, 10, 1);
    probe.record(content(30, 28));
    probe.close(content(30, 28).left(10));
}

void fileShorterThanAnnounced(Probe &probe)
{
    probe.open(generic, 1000, 1);
    probe.record(content(30, 29));
    probe.close(content(30, 29));
}

void startDuringTransfer(Probe &probe)
{
    const QByteArray data = content(16, 30);
    probe.open(generic, 16, 1);
    probe.recordStart(2);
    probe.dataFrame(0, data.left(8));
    probe.command(Wire::StartConfiguration::operation, hex("a55a"));
    probe.expectResponse(0, hex("5aa5"));
    probe.dataFrame(1, data.mid(8));
    probe.recordEnd(crcOf(data));
    probe.expectRecordAccepted();
    probe.close(data);
}

// ---- Only when asked for: these change what the appliance keeps

QByteArray presentTime()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QByteArray payload(Wire::SetDateTime::size, '\0');
    payload[Wire::SetDateTime::year] = char(now.date().year() - Wire::SetDateTime::epoch);
    payload[Wire::SetDateTime::month] = char(now.date().month());
    payload[Wire::SetDateTime::day] = char(now.date().day());
    payload[Wire::SetDateTime::hour] = char(now.time().hour());
    payload[Wire::SetDateTime::minute] = char(now.time().minute());
    payload[Wire::SetDateTime::second] = char(now.time().second());
    return payload;
}

void clockRefused(Probe &probe)
{
    for (const char *payload : {"", "1803050e07", "1803050e070900", "180d010e0709", "1800010e0709",
                                "18041f0e0709", "1803000e0709", "17021d0e0709"}) {
        probe.command(Wire::SetDateTime::operation, hex(payload), 1);
        probe.expectResponse(Wire::resultFailure, hex(payload), 1);
    }
}

void clockSet(Probe &probe)
{
    const QByteArray now = presentTime();
    probe.command(Wire::SetDateTime::operation, now);
    probe.expectResponse(0, now);
}

void serialInOneFrame(Probe &probe)
{
    probe.command(Wire::SetSerial::operation, '\4' + QByteArrayLiteral("TEST"));
    probe.expectResponse(0);
    probe.command(Wire::SetSerial::operation, '\4' + QByteArrayLiteral("TESTxxx"), 2);
    probe.expectResponse(0, {}, 2);
}

void serialInTwoFrames(Probe &probe)
{
    probe.command(Wire::SetSerial::operation, '\x0C' + QByteArrayLiteral("TEST123"));
    probe.expectResponse(0);
    probe.command(Wire::SetSerialExt::operation, QByteArrayLiteral("45678"));
    probe.expectResponse(0);
}

void serialTooShort(Probe &probe)
{
    probe.command(Wire::SetSerial::operation, '\x0C' + QByteArrayLiteral("TE"));
    probe.expectResponse(Wire::resultFailure);
}

void configurationInstalled(Probe &probe)
{
    probe.transfer(Wire::FileType::configuration, QByteArrayLiteral("{}\n"));
}

void menuAndPackage(Probe &probe)
{
    probe.transfer(Wire::FileType::menu, content(700, 31));
    probe.transfer(Wire::FileType::package, content(700, 32));
}

struct Check
{
    const char *name;
    void (*run)(Probe &probe);
    bool destructive = false;
};

const Check checks[] = {
    {"start of configuration: answered 5A A5 in every slot", startInEverySlot},
    {"start of configuration: answered at destination 14", startAtSecondDestination},
    {"start of configuration: more bytes behind the handshake", startWithMoreBytes},
    {"start of configuration: refused without the handshake", startWithoutHandshake},
    {"end of configuration: answered whatever it carries", endIsAnswered},
    {"silence: command from node 23", commandFromStranger},
    {"silence: command to node 25", commandToNobody},
    {"silence: command on another interface", commandOnOtherInterface},
    {"silence: operations 5 to 63", unknownOperations},
    {"silence: responses and other protocols", responsesAndOtherProtocols},
    {"silence: transfer message from node 23", transferFromStranger},
    {"silence: transfer message to node 25", transferToNobody},
    {"silence: message types 5 to 14", unknownTypes},
    {"Transfer Info: accepted with 6 bytes and more", infoAccepted},
    {"Transfer Info: low bits of the version byte ignored", infoLowVersionBits},
    {"Transfer Info: 0 to 5 bytes refused with the parameters", infoOfWrongSize},
    {"Transfer Info: versions 0, 1, 3 and 34 refused with the parameters", infoOfWrongVersion},
    {"Transfer Info: answered at destination 14", infoAtSecondDestination},
    {"Transfer Info: command/response bit ignored", infoWithResponseBit},
    {"Initiate Transfer: accepted", initiateAccepted},
    {"Initiate Transfer: 0 to 7 bytes refused", initiateOfWrongSize},
    {"Initiate Transfer: versions 0, 1 and 3 refused", initiateOfWrongVersion},
    {"file: 1 to 1500 bytes in up to 3 records", fileOfEverySize},
    {"file: empty", emptyFile},
    {"file: to destination 14", fileToSecondDestination},
    {"record: Record Start and Data Frames unanswered", startAndDataUnanswered},
    {"record: frames out of order refused, then repeated", framesOutOfOrder},
    {"record: frame missing refused, then repeated", frameMissing},
    {"record: last frame missing refused, then repeated", lastFrameMissing},
    {"record: repeated frames dropped", frameRepeated},
    {"record: wrong CRC-32 refused, then repeated", recordCrcWrong},
    {"record: Record End of wrong size stands for CRC-32 0", recordEndOfWrongSize},
    {"record: of zero length", zeroLengthRecord},
    {"record: Record Start of wrong size changes nothing", recordStartOfWrongSize},
    {"record: started anew before its end", recordStartedAnew},
    {"record: short frame in the middle", shortFrameInTheMiddle},
    {"record: appended in order of arrival, not of number", recordNumbersDoNotPlace},
    {"record: low 4 bits of a Data Frame's identifier ignored", lowBitsOfDataFrame},
    {"completion: wrong CRC-32 answered with the computed one", fileCrcWrong},
    {"completion: Transfer Complete of wrong size stands for CRC-32 0", completeOfWrongSize},
    {"completion: repeated", completeRepeated},
    {"completion: a shorter file replaces a longer one", fileReplaced},
    {"completion: abandoned transfer replaced by a new one", abandonedTransferReplaced},
    {"completion: second Initiate Transfer starts over", initiatedTwice},
    {"completion: file longer than announced", fileLongerThanAnnounced},
    {"completion: file shorter than announced", fileShorterThanAnnounced},
    {"start of configuration: in the middle of a record", startDuringTransfer},
    {"clock: impossible dates and wrong sizes refused", clockRefused, true},
    {"clock: set to the present time", clockSet, true},
    {"serial number: in one frame", serialInOneFrame, true},
    {"serial number: in two frames", serialInTwoFrames, true},
    {"serial number: frame too short refused", serialTooShort, true},
    {"file: configuration, installed", configurationInstalled, true},
    {"file: menu and package", menuAndPackage, true},
};

} // namespace

int checkConformance(Link &link, const ConformanceSettings &settings,
                     const ConformanceReport &report)
{
    using Outcome = ConformanceResult::Outcome;
    Probe probe(link, settings);
    link.discardReceived();
    int failed = 0;
    for (const Check &check : checks) {
        ConformanceResult result;
        result.name = QString::fromLatin1(check.name);
        if (check.destructive && !settings.destructive) {
            result.outcome = Outcome::Skipped;
            report(result);
            continue;
        }
        try {
            probe.destination = Wire::nodeDockhand;
            check.run(probe);
            // An answer too many shows here, not as a deviation of the next check.
            probe.expectSilence();
        } catch (const Deviation &deviation) {
            result.outcome = Outcome::Failed;
            result.deviation = deviation.text;
            ++failed;
        }
        report(result);
        if (result.outcome == Outcome::Failed)
            probe.settle();
    }
    return failed;
}

} // namespace Shipwright
