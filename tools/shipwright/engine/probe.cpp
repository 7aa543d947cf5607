#include "probe.h"

#include "clock.h"
#include "text.h"

#include <QtEndian>

#include <algorithm>

namespace Shipwright {

using namespace Qt::StringLiterals;
using namespace Wire;

namespace {

/// Tools do not use this slot for a start command, so its refusal answers the question.
constexpr quint32 questionSlot = 3;
/// How long to wait for a late answer, in milliseconds.
constexpr qint64 lateness = 500;
/// How long the receiver must stay silent, in milliseconds.
constexpr qint64 watch = 1000;

quint32 answerId(quint32 type, quint32 code)
{
    return P6::messageId(nodeDockhand, nodeShipwright, type, 0, code);
}

} // namespace

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

Probe::Probe(Link &link, const ProbeLimits &limits)
    : m_link(link),
      m_limits(limits),
      m_limit(limits.answer)
{
}

bool Probe::findReceiver()
{
    // The receiver refuses both, so nothing changes. One with a defect may answer only one of them.
    const Message questions[] = {
        {P3::commandId(nodeShipwright, nodeDockhand, questionSlot, P3::interfaceShipwright,
                       StartConfiguration::operation),
         {}},
        {P6::messageId(nodeShipwright, nodeDockhand, TransferInfo::type, 0, 0), {}},
    };
    settle();
    return std::ranges::any_of(questions, [this](const Message &question) {
        put(question.id, question.payload);
        const auto answer = receive(m_limits.answer);
        if (answer) {
            m_question = question;
            m_questionAnswer = {answer->frameId(), answer->payload()};
        }
        return answer.has_value();
    });
}

void Probe::begin()
{
    m_frames.clear();
    m_cause = -1;
    m_limit = m_limits.answer;
    destination = nodeDockhand;
    unreadBits = 0;
}

void Probe::settle()
{
    m_link.pause(200);
    m_link.discardReceived();
}

QStringList Probe::changes() const
{
    QStringList changes;
    const auto add = [&changes](bool isChanged, const QString &what) {
        if (isChanged)
            changes += what;
    };
    add(m_files.contains(FileType::generic), u"generic file"_s);
    add(m_files.contains(FileType::menu), u"menu file"_s);
    add(m_files.contains(FileType::package), u"package file"_s);
    add(m_files.contains(FileType::configuration), u"configuration"_s);
    add(std::any_of(m_files.cbegin(), m_files.cend(),
                    [](quint32 type) { return type > FileType::package; }),
        u"file of unknown type"_s);
    add(m_serialNumberSet, u"serial number"_s);
    add(m_clockSet, u"clock"_s);
    return changes;
}

// ---- What goes out

void Probe::put(quint32 id, const QByteArray &payload)
{
    m_frames += {Direction::Sent, stamped(QCanBusFrame(id, payload))};
    m_link.send(id, payload);
}

void Probe::send(quint32 id, const QByteArray &payload)
{
    const quint32 protocol = protocolType.of(id);
    if (protocol == protocolP6 && P6::type.of(id) == InitiateTransfer::type && !payload.isEmpty()) {
        m_fileType = uchar(payload.at(InitiateTransfer::fileType));
        m_files += m_fileType;
    }
    if (protocol == protocolP3 && P3::response.of(id) == 0) {
        const quint32 operation = P3::operation.of(id);
        m_clockSet |= operation == SetDateTime::operation;
        m_serialNumberSet |= operation == SetSerial::operation
            || operation == SetSerialExt::operation;
    }
    m_cause = m_frames.size();
    put(id, payload);
}

void Probe::command(quint32 operation, const QByteArray &payload, quint32 slot)
{
    send(P3::commandId(nodeShipwright, destination, slot, P3::interfaceShipwright, operation)
             | unreadBits,
         payload);
}

void Probe::message(quint32 type, const QByteArray &payload)
{
    send(P6::messageId(nodeShipwright, destination, type, 0, 0) | unreadBits, payload);
}

void Probe::initiate(quint32 fileType, quint32 records)
{
    const char version = char(P6::versionField.pack(P6::version));
    message(InitiateTransfer::type,
            QByteArray(1, char(fileType)) + version + QByteArray(2, '\0') + littleEndian(records));
}

void Probe::recordStart(qsizetype frames, quint32 number)
{
    message(RecordStart::type, QByteArray(1, char(frames)) + littleEndian(number));
}

void Probe::dataFrame(quint32 number, const QByteArray &payload)
{
    send(DataFrame::messageId(nodeShipwright, destination, number)
             | (unreadBits & ~DataFrame::frameNumber.mask()),
         payload);
}

void Probe::dataFrames(const QByteArray &data)
{
    for (qsizetype i = 0; i * DataFrame::size < data.size(); ++i)
        dataFrame(quint32(i), data.mid(i * DataFrame::size, DataFrame::size));
}

void Probe::recordEnd(quint32 crc)
{
    message(RecordEnd::type, littleEndian(crc));
}

void Probe::complete(quint32 crc)
{
    message(TransferComplete::type, littleEndian(crc));
}

// ---- What is due

std::optional<QCanBusFrame> Probe::receive(qint64 limit)
{
    const qint64 deadline = m_link.clock().now() + limit;
    while (auto frame = m_link.receive(deadline)) {
        if (destinationNode.of(frame->frameId()) == nodeShipwright) {
            m_frames += {Direction::Received, *frame};
            return frame;
        }
    }
    return std::nullopt;
}

QCanBusFrame Probe::next(const QString &due)
{
    if (const auto frame = receive(m_limit))
        return *frame;
    throw Deviation{due, u"nothing for %1 ms"_s.arg(m_limit), true};
}

void Probe::expect(quint32 id, const QByteArray &payload)
{
    const QString due = frameText(id, payload);
    const QCanBusFrame frame = next(due);
    if (frame.frameId() != id || frame.payload() != payload)
        throw Deviation{due, frameText(frame)};
}

void Probe::expectResponse(quint32 code, const QByteArray &payload, quint32 slot)
{
    expect(P3::responseId(nodeDockhand, nodeShipwright, slot, code), payload);
}

void Probe::expectAnswer(quint32 type, quint32 code, const QByteArray &payload)
{
    expect(answerId(type, code), payload);
}

void Probe::expectParameters(quint32 code)
{
    const quint32 id = answerId(TransferInfo::type, code);
    QString due = frameText(id, m_parameters);
    if (m_parameters.isEmpty())
        due += u" and 8 bytes of parameters for version 2"_s;
    const QCanBusFrame frame = next(due);
    const QByteArray payload = frame.payload();
    const bool isVersion2 = payload.size() == TransferInfoResponse::size
        && P6::versionField.of(uchar(payload.at(TransferInfoResponse::flags))) == P6::version;
    if (m_parameters.isEmpty() && isVersion2)
        m_parameters = payload;
    if (frame.frameId() != id || !isVersion2 || payload != m_parameters)
        throw Deviation{due, frameText(frame)};
}

void Probe::expectInitiated()
{
    expectAnswer(InitiateTransfer::type, resultSuccess,
                 QByteArray(TransferInfoResponse::size, '\0'));
}

void Probe::expectInitiateRefused()
{
    expectAnswer(InitiateTransfer::type, InitiateTransfer::rejected,
                 QByteArray(TransferInfoResponse::size, '\0'));
}

void Probe::expectRecordAccepted()
{
    expectAnswer(RecordEnd::type, resultSuccess, QByteArray(1, RecordEnd::accepted));
}

void Probe::expectRecordRefused()
{
    expectAnswer(RecordEnd::type, resultFailure, QByteArray(1, RecordEnd::rejected));
}

void Probe::expectFile(quint32 crc)
{
    m_limit = m_fileType == FileType::configuration ? m_limits.install : m_limits.complete;
    expectAnswer(TransferComplete::type, resultSuccess, littleEndian(crc));
    m_limit = m_limits.answer;
}

void Probe::expectFileRefused(quint32 crc)
{
    m_limit = m_limits.complete;
    expectAnswer(TransferComplete::type, resultFailure, littleEndian(crc));
    m_limit = m_limits.answer;
}

void Probe::expectSilence()
{
    put(m_question.id, m_question.payload);
    const QCanBusFrame frame = next(u"silence"_s);
    if (frame.frameId() != m_questionAnswer.id || frame.payload() != m_questionAnswer.payload)
        throw Deviation{u"silence"_s, frameText(frame)};
}

void Probe::expectLastingSilence()
{
    expectSilence();
    listen(lateness);
}

void Probe::expectNothing()
{
    listen(watch);
}

void Probe::listen(qint64 limit)
{
    if (const auto frame = receive(limit))
        throw Deviation{u"silence"_s, frameText(*frame)};
}

// ---- Whole steps

void Probe::announce(quint32 fileType, quint32 size)
{
    const char version = char(P6::versionField.pack(P6::version));
    message(TransferInfo::type, QByteArray(1, char(fileType)) + version + littleEndian(size));
    expectParameters(resultSuccess);
}

void Probe::open(quint32 fileType, quint32 size, quint32 records)
{
    announce(fileType, size);
    initiate(fileType, records);
    expectInitiated();
}

void Probe::record(const QByteArray &data, quint32 number)
{
    recordStart((data.size() + DataFrame::size - 1) / DataFrame::size, number);
    dataFrames(data);
    endRecord(data);
}

void Probe::endRecord(const QByteArray &data)
{
    recordEnd(crc32Of(data));
    expectRecordAccepted();
}

void Probe::close(const QByteArray &data)
{
    complete(crc32Of(data));
    expectFile(crc32Of(data));
}

void Probe::transfer(quint32 fileType, const QByteArray &data)
{
    constexpr qsizetype recordSize = RecordStart::maxFrames * DataFrame::size;
    const auto records = quint32((data.size() + recordSize - 1) / recordSize);
    open(fileType, quint32(data.size()), records);
    for (quint32 i = 0; i < records; ++i)
        record(data.mid(qsizetype(i) * recordSize, recordSize), i);
    close(data);
}

} // namespace Shipwright
