#include "peer.h"

#include "clock.h"
#include "failure.h"
#include "link.h"

#include <QIODevice>
#include <QtEndian>

#include <limits>
#include <utility>
#include <zlib.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr std::pair<quint32, QLatin1StringView> fileTypes[] = {
    {Wire::fileConfiguration, QLatin1StringView("configuration")},
    {Wire::fileMenu, QLatin1StringView("menu")},
    {Wire::fileGeneric, QLatin1StringView("generic")},
    {Wire::filePackage, QLatin1StringView("package")},
};

quint32 crc32Of(quint32 crc, const QByteArray &data)
{
    return quint32(
        ::crc32(crc, reinterpret_cast<const Bytef *>(data.constData()), uInt(data.size())));
}

template<typename Number>
void put(QByteArray &payload, qsizetype offset, Number number)
{
    qToLittleEndian(number, payload.data() + offset);
}

QByteArray crcPayload(quint32 crc)
{
    QByteArray payload(Wire::crcSize, '\0');
    put(payload, 0, crc);
    return payload;
}

QString hexNumber(quint32 number)
{
    return u"0x%1"_s.arg(number, 8, 16, QLatin1Char('0'));
}

} // namespace

QString fileTypeName(quint32 fileType)
{
    for (const auto &[code, name] : fileTypes) {
        if (code == fileType)
            return name;
    }
    return u"unknown"_s;
}

std::optional<quint32> fileTypeFromName(const QString &name)
{
    for (const auto &[code, known] : fileTypes) {
        if (name == known)
            return code;
    }
    return std::nullopt;
}

Peer::Answer Peer::transferMessage(quint32 type, const QByteArray &payload, const QString &what,
                                   qint64 timeout, qsizetype answerSize)
{
    const quint32 id = Wire::p6Id(Wire::nodeShipwright, m_settings.destination, type, 0, 0);
    const quint32 answerId = Wire::p6Id(Wire::nodeDockhand, Wire::nodeShipwright, type, 0, 0);
    Answer answer = exchange(id, payload, {~Wire::responseNumber.mask(), answerId, what, timeout});
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
    const Answer answer = transferMessage(Wire::p6TransferInfo, payload, what, limit(0),
                                          Wire::negotiationReplySize);
    ReceiverParameters parameters;
    const auto flags = uchar(answer.payload.at(Wire::infoFlagsOffset));
    const auto limitLow = uchar(answer.payload.at(Wire::infoFrameLimitOffset));
    const auto word = [&answer](qsizetype offset) {
        return qFromLittleEndian<quint16>(answer.payload.constData() + offset);
    };
    parameters.version = Wire::versionField.of(flags);
    parameters.flag = (flags >> Wire::infoFlagShift & 1) != 0;
    parameters.frameLimit = Wire::infoFrameLimitHighField.of(flags) << 8 | limitLow;
    parameters.negotiationTimeout = word(Wire::infoParam1Offset);
    parameters.recordTimeout = word(Wire::infoParam2Offset);
    parameters.completeTimeout = word(Wire::infoParam3Offset);

    if (mayBeRefused && answer.code == Wire::resultTransferInfoRejected)
        return parameters;
    expectSuccess(
        answer, what,
        u"The receiver speaks protocol version %1, this tool version %2."_s.arg(parameters.version)
            .arg(Wire::protocolVersion));
    return parameters;
}

ReceiverParameters Peer::receiverParameters()
{
    return announce({}, true);
}

TransferResult Peer::sendFile(quint32 fileType, QIODevice &file, const ProgressHandler &onProgress)
{
    const qint64 start = m_link.clock().now();
    const qint64 size = file.size();
    if (size > std::numeric_limits<quint32>::max()) {
        throw Failure(
            Exit::LocalFile,
            u"The file has %1 bytes; the wire carries sizes up to 4294967295."_s.arg(size));
    }

    QByteArray info(Wire::transferInfoMinSize, '\0');
    info[Wire::fileTypeOffset] = char(fileType);
    info[Wire::versionOffset] = char(Wire::versionField.pack(Wire::protocolVersion));
    put(info, Wire::fileSizeOffset, quint32(size));
    m_parameters = announce(info, false);

    const qsizetype frames = qMin<qsizetype>(Wire::recordFrames, m_parameters.frameLimit + 1);
    const qsizetype recordSize = frames * Wire::frameSize;
    TransferProgress progress;
    progress.total = quint64(size);
    progress.totalRecords = quint32((size + recordSize - 1) / recordSize);

    QByteArray init(Wire::initTransferSize, '\0');
    init[Wire::fileTypeOffset] = info.at(Wire::fileTypeOffset);
    init[Wire::versionOffset] = info.at(Wire::versionOffset);
    put(init, Wire::numberOfBlocksOffset, progress.totalRecords);
    const QString initiate = u"Initiate Transfer"_s;
    expectSuccess(
        transferMessage(Wire::p6InitTransfer, init, initiate,
                        limit(m_parameters.negotiationTimeout), Wire::negotiationReplySize),
        initiate, u"The receiver does not speak protocol version %1."_s.arg(Wire::protocolVersion));

    const auto noteState = [&] {
        m_transferState =
            u"The receiver holds an incomplete %1 file (%2 of %3 records) and waits without a time "
            "limit; sending the file again replaces it."_s.arg(fileTypeName(fileType))
                .arg(progress.records)
                .arg(progress.totalRecords);
    };
    noteState();
    onProgress(progress);

    quint32 crc = crc32Of(0, {});
    for (quint32 number = 0; number < progress.totalRecords; ++number) {
        const qint64 wanted = qMin<qint64>(recordSize, size - qint64(progress.bytes));
        const QByteArray data = file.read(wanted);
        if (data.size() != wanted) {
            throw Failure(Exit::LocalFile,
                          u"The file ended after %1 of %2 bytes while it was being sent: %3."_s
                              .arg(progress.bytes + quint64(qMax<qsizetype>(0, data.size())))
                              .arg(size)
                              .arg(file.errorString()));
        }
        crc = crc32Of(crc, data);
        for (int attempt = 0; !sendRecord(number, data, progress, onProgress); ++attempt) {
            if (attempt >= m_settings.retries) {
                throw Failure(
                    Exit::RecordCrc,
                    u"The receiver refused record %1 of %2 with code %3 in each of %4 attempts: the "
                    "CRC-32 that it computed is not %5, the one sent."_s.arg(number + 1)
                        .arg(progress.totalRecords)
                        .arg(Wire::resultFailure)
                        .arg(attempt + 1)
                        .arg(hexNumber(crc32Of(crc32Of(0, {}), data))),
                    u"Frames are lost or changed on the way: check the wiring, the termination and "
                    "other traffic on the bus, or allow more --retries."_s);
            }
            ++progress.repeated;
        }
        progress.records = number + 1;
        progress.bytes += quint64(data.size());
        noteState();
        onProgress(progress);
    }

    progress.phase = TransferProgress::Phase::Confirming;
    onProgress(progress);
    m_transferState =
        u"The receiver has all %1 records of the %2 file; whether it accepted the file is not known. "
        "Sending the file again replaces it."_s.arg(progress.totalRecords)
            .arg(fileTypeName(fileType));
    const Answer answer = transferMessage(Wire::p6TransferComplete, crcPayload(crc),
                                          u"Transfer Complete"_s,
                                          limit(m_parameters.completeTimeout), Wire::crcSize);
    const auto receiverCrc = qFromLittleEndian<quint32>(answer.payload.constData());
    if (answer.code != Wire::resultSuccess || receiverCrc != crc) {
        m_transferState =
            u"The receiver closed the %1 file with a wrong content and did not install "
            "it; sending the file again replaces it."_s.arg(fileTypeName(fileType));
        if (answer.code != Wire::resultSuccess && answer.code != Wire::resultFailure)
            expectSuccess(answer, u"Transfer Complete"_s, {});
        if ((answer.code == Wire::resultSuccess) != (receiverCrc == crc)) {
            throw Failure(
                Exit::BadAnswer,
                u"The receiver answered Transfer Complete with code %1, but its CRC-32 of "
                "the file is %2 and the one sent was %3."_s.arg(answer.code)
                    .arg(hexNumber(receiverCrc), hexNumber(crc)));
        }
        throw Failure(Exit::FileCrc,
                      u"The CRC-32 of the file differs: %1 sent, %2 at the receiver."_s.arg(
                          hexNumber(crc), hexNumber(receiverCrc)),
                      u"The receiver could not write all of it, or its storage is full or not "
                      "writable: its log tells. Then send the file again."_s);
    }

    m_transferState.clear();
    progress.phase = TransferProgress::Phase::Confirmed;
    onProgress(progress);
    return {crc, progress.total, progress.totalRecords, progress.repeated,
            m_link.clock().now() - start};
}

bool Peer::sendRecord(quint32 number, const QByteArray &data, TransferProgress &progress,
                      const ProgressHandler &onProgress)
{
    const qsizetype frames = (data.size() + Wire::frameSize - 1) / Wire::frameSize;
    QByteArray start(Wire::recordStartSize, '\0');
    start[Wire::framesToFollowOffset] = char(frames);
    put(start, Wire::blockNumberOffset, number);
    m_link.send(Wire::p6Id(Wire::nodeShipwright, m_settings.destination, Wire::p6RecordStart, 0, 0),
                start);
    for (qsizetype i = 0; i < frames; ++i) {
        m_link.send(Wire::p6DataFrameId(Wire::nodeShipwright, m_settings.destination, quint32(i)),
                    data.mid(i * Wire::frameSize, Wire::frameSize));
        ++progress.frames;
    }
    onProgress(progress);

    const QString what =
        u"Record End of record %1 of %2"_s.arg(number + 1).arg(progress.totalRecords);
    const quint32 crc = crc32Of(crc32Of(0, {}), data);
    const Answer answer = transferMessage(Wire::p6RecordEnd, crcPayload(crc), what,
                                          limit(m_parameters.recordTimeout),
                                          Wire::recordEndReplySize);
    const char verdict = answer.payload.at(0);
    if (answer.code == Wire::resultFailure && verdict == Wire::recordRejected)
        return false;
    expectSuccess(answer, what, {});
    if (verdict != Wire::recordAccepted) {
        throw Failure(Exit::BadAnswer,
                      u"The receiver answered %1 with code 0 but the verdict %2."_s.arg(what).arg(
                          uchar(verdict)));
    }
    return true;
}

} // namespace Shipwright
