#include "peer.h"

#include "clock.h"
#include "crc32.h"
#include "failure.h"
#include "filetypes.h"
#include "link.h"
#include "text.h"

#include <QtEndian>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

template<typename Number>
void put(QByteArray &payload, qsizetype offset, Number number)
{
    qToLittleEndian(number, payload.data() + offset);
}

QByteArray crcPayload(quint32 crc)
{
    QByteArray payload(Wire::P6::crcSize, '\0');
    put(payload, 0, crc);
    return payload;
}

} // namespace

quint32 ReceiverParameters::recordFrames() const
{
    return qMin(frameLimit + 1, quint32(Wire::RecordStart::maxFrames));
}

Peer::Answer Peer::transferMessage(quint32 type, const QByteArray &payload, const QString &what,
                                   qint64 timeout, qsizetype answerSize, const QString &unanswered)
{
    const quint32 id = Wire::P6::messageId(Wire::nodeShipwright, m_settings.destination, type, 0,
                                           0);
    const quint32 answerId = Wire::P6::messageId(Wire::nodeDockhand, Wire::nodeShipwright, type, 0,
                                                 0);
    Answer answer = exchange(id, payload,
                             {~Wire::responseNumber.mask(), answerId, what, timeout, unanswered});
    if (answer.payload.size() != answerSize) {
        throw Failure(Exit::BadAnswer,
                      u"The answer to %1 has %2 bytes (%3) where %4 were expected."_s.arg(what)
                          .arg(answer.payload.size())
                          .arg(QString::fromLatin1(answer.payload.toHex()))
                          .arg(answerSize));
    }
    return answer;
}

ReceiverParameters Peer::announce(const QByteArray &payload, bool mayBeRefused)
{
    const QString what = u"Transfer Info"_s;
    const Answer answer = transferMessage(Wire::TransferInfo::type, payload, what, limit(0),
                                          Wire::TransferInfoResponse::size);
    ReceiverParameters parameters;
    const auto flags = uchar(answer.payload.at(Wire::TransferInfoResponse::flags));
    const auto limitLow = uchar(answer.payload.at(Wire::TransferInfoResponse::frameLimit));
    const auto word = [&answer](qsizetype offset) {
        return qFromLittleEndian<quint16>(answer.payload.constData() + offset);
    };
    parameters.version = Wire::P6::versionField.of(flags);
    parameters.flag = (flags >> Wire::TransferInfoResponse::flagShift & 1) != 0;
    parameters.frameLimit = Wire::TransferInfoResponse::frameLimitHighField.of(flags) << 8
        | limitLow;
    parameters.negotiationTimeout = word(Wire::TransferInfoResponse::parameter1);
    parameters.recordTimeout = word(Wire::TransferInfoResponse::parameter2);
    parameters.completeTimeout = word(Wire::TransferInfoResponse::parameter3);

    if (mayBeRefused && answer.code == Wire::TransferInfo::rejected)
        return parameters;
    expectSuccess(
        answer, what,
        u"The receiver speaks protocol version %1, this tool version %2."_s.arg(parameters.version)
            .arg(Wire::P6::version));
    return parameters;
}

ReceiverParameters Peer::receiverParameters()
{
    return announce({}, true);
}

TransferResult Peer::sendFile(quint32 fileType, const QByteArray &content,
                              const ProgressHandler &onProgress)
{
    const qint64 start = m_link.clock().now();
    Transfer transfer{fileType, content, onProgress, crc32Of(content), 0, {}};
    negotiate(transfer);
    sendRecords(transfer);
    confirm(transfer);
    const TransferProgress &done = transfer.progress;
    return {transfer.crc, done.total, done.totalRecords, done.repeated,
            m_link.clock().now() - start};
}

void Peer::negotiate(Transfer &transfer)
{
    QByteArray info(Wire::TransferInfo::minSize, '\0');
    info[Wire::TransferInfo::fileType] = char(transfer.fileType);
    info[Wire::TransferInfo::version] = char(Wire::P6::versionField.pack(Wire::P6::version));
    put(info, Wire::TransferInfo::fileSize, quint32(transfer.content.size()));
    m_parameters = announce(info, false);

    transfer.recordSize = m_parameters.recordFrames() * Wire::DataFrame::size;
    const qint64 size = transfer.content.size();
    transfer.progress.total = quint64(size);
    transfer.progress.totalRecords = quint32((size + transfer.recordSize - 1)
                                             / transfer.recordSize);

    QByteArray initiate(Wire::InitiateTransfer::size, '\0');
    initiate[Wire::InitiateTransfer::fileType] = char(transfer.fileType);
    initiate[Wire::InitiateTransfer::version] = info.at(Wire::TransferInfo::version);
    put(initiate, Wire::InitiateTransfer::numberOfRecords, transfer.progress.totalRecords);
    const QString what = u"Initiate Transfer"_s;
    const Answer answer = transferMessage(
        Wire::InitiateTransfer::type, initiate, what, limit(m_parameters.negotiationTimeout),
        Wire::InitiateTransfer::responseSize,
        u"The receiver may have emptied its %1 file already; sending the file again replaces it."_s
            .arg(fileTypeName(transfer.fileType)));
    m_state.clear();
    expectSuccess(answer, what,
                  u"The receiver does not speak protocol version %1."_s.arg(Wire::P6::version));
}

void Peer::sendRecords(Transfer &transfer)
{
    TransferProgress &progress = transfer.progress;
    const auto report = [&] {
        m_state =
            u"The receiver holds an incomplete %1 file (%2 of %3 records) and waits without a time "
            "limit; sending the file again replaces it."_s.arg(fileTypeName(transfer.fileType))
                .arg(progress.records)
                .arg(progress.totalRecords);
        transfer.onProgress(progress);
    };
    report();
    for (quint32 number = 0; number < progress.totalRecords; ++number) {
        const QByteArray data = transfer.content.mid(qsizetype(number) * transfer.recordSize,
                                                     transfer.recordSize);
        for (int attempt = 0; !sendRecord(transfer, number, data); ++attempt) {
            if (attempt >= m_settings.retries) {
                throw Failure(
                    Exit::RecordCrc,
                    u"The receiver refused record %1 of %2 with code %3 in each of %4 attempts: the "
                    "CRC-32 that it computed is not %5, the one sent."_s.arg(number + 1)
                        .arg(progress.totalRecords)
                        .arg(Wire::resultFailure)
                        .arg(attempt + 1)
                        .arg(hexNumber(crc32Of(data))),
                    u"Frames are lost or changed on the way: check the wiring, the termination and "
                    "other traffic on the bus, or allow more --retries."_s);
            }
            ++progress.repeated;
        }
        progress.records = number + 1;
        progress.bytes += quint64(data.size());
        report();
    }
}

bool Peer::sendRecord(Transfer &transfer, quint32 number, const QByteArray &data)
{
    TransferProgress &progress = transfer.progress;
    const qsizetype frames = (data.size() + Wire::DataFrame::size - 1) / Wire::DataFrame::size;
    QByteArray start(Wire::RecordStart::size, '\0');
    start[Wire::RecordStart::framesToFollow] = char(frames);
    put(start, Wire::RecordStart::recordNumber, number);
    m_link.send(Wire::P6::messageId(Wire::nodeShipwright, m_settings.destination,
                                    Wire::RecordStart::type, 0, 0),
                start);
    for (qsizetype i = 0; i < frames; ++i) {
        m_link.send(
            Wire::DataFrame::messageId(Wire::nodeShipwright, m_settings.destination, quint32(i)),
            data.mid(i * Wire::DataFrame::size, Wire::DataFrame::size));
        ++progress.frames;
    }
    transfer.onProgress(progress);

    const QString what =
        u"Record End of record %1 of %2"_s.arg(number + 1).arg(progress.totalRecords);
    const Answer answer = transferMessage(Wire::RecordEnd::type, crcPayload(crc32Of(data)), what,
                                          limit(m_parameters.recordTimeout),
                                          Wire::RecordEnd::responseSize);
    const char verdict = answer.payload.at(0);
    if (answer.code == Wire::resultFailure && verdict == Wire::RecordEnd::rejected)
        return false;
    expectSuccess(answer, what, {});
    if (verdict != Wire::RecordEnd::accepted) {
        throw Failure(Exit::BadAnswer,
                      u"The receiver answered %1 with code 0 but the verdict %2."_s.arg(what).arg(
                          uchar(verdict)));
    }
    return true;
}

void Peer::confirm(Transfer &transfer)
{
    transfer.progress.phase = TransferProgress::Phase::Confirming;
    transfer.onProgress(transfer.progress);
    const QString what = u"Transfer Complete"_s;
    const QString type = fileTypeName(transfer.fileType);
    const QString unanswered =
        u"The receiver has all %1 records of the %2 file; it is not known whether it accepted the "
        "file. Sending the file again replaces it."_s.arg(transfer.progress.totalRecords)
            .arg(type);
    const Answer answer = transferMessage(Wire::TransferComplete::type, crcPayload(transfer.crc),
                                          what, limit(m_parameters.completeTimeout),
                                          Wire::P6::crcSize, unanswered);
    const auto receiverCrc = qFromLittleEndian<quint32>(answer.payload.constData());
    const bool isAccepted = answer.code == Wire::resultSuccess;
    const bool isEqual = receiverCrc == transfer.crc;
    if (isAccepted && isEqual) {
        m_state.clear();
        transfer.progress.phase = TransferProgress::Phase::Confirmed;
        transfer.onProgress(transfer.progress);
        return;
    }

    if (isAccepted) {
        m_state =
            u"The receiver says that it accepted the %1 file, but reports another CRC-32. It is "
            "not known what it stored or installed. Sending the file again replaces it."_s.arg(
                type);
    } else if (isEqual) {
        m_state =
            u"The receiver refused the %1 file although it computed the CRC-32 that was sent, "
            "so it did not install it; sending the file again replaces it."_s.arg(type);
    } else if (answer.code == Wire::resultFailure) {
        m_state = u"The receiver closed the %1 file with wrong content and did not install it; "
                  "sending the file again replaces it."_s.arg(type);
    }
    if (!isAccepted && answer.code != Wire::resultFailure)
        expectSuccess(answer, what, {});
    if (isAccepted != isEqual) {
        throw Failure(Exit::BadAnswer,
                      u"The receiver answered Transfer Complete with code %1, but its CRC-32 of "
                      "the file is %2 and the one sent was %3."_s.arg(answer.code)
                          .arg(hexNumber(receiverCrc), hexNumber(transfer.crc)));
    }
    throw Failure(Exit::FileCrc,
                  u"The CRC-32 of the file differs: %1 sent, %2 at the receiver."_s.arg(
                      hexNumber(transfer.crc), hexNumber(receiverCrc)),
                  u"The receiver may have failed to write: see its log, and check its storage. "
                  "Then send the file again."_s);
}

} // namespace Shipwright
