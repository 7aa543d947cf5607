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
    {Wire::FileType::configuration, QLatin1StringView("configuration")},
    {Wire::FileType::menu, QLatin1StringView("menu")},
    {Wire::FileType::generic, QLatin1StringView("generic")},
    {Wire::FileType::package, QLatin1StringView("package")},
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
    QByteArray payload(Wire::P6::crcSize, '\0');
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
    const quint32 id = Wire::P6::messageId(Wire::nodeShipwright, m_settings.destination, type, 0,
                                           0);
    const quint32 answerId = Wire::P6::messageId(Wire::nodeDockhand, Wire::nodeShipwright, type, 0,
                                                 0);
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

TransferResult Peer::sendFile(quint32 fileType, QIODevice &file, const ProgressHandler &onProgress)
{
    const qint64 start = m_link.clock().now();
    const qint64 size = file.size();
    if (size > std::numeric_limits<quint32>::max()) {
        throw Failure(
            Exit::LocalFile,
            u"The file has %1 bytes; the wire carries sizes up to 4294967295."_s.arg(size));
    }

    QByteArray info(Wire::TransferInfo::minSize, '\0');
    info[Wire::TransferInfo::fileType] = char(fileType);
    info[Wire::TransferInfo::version] = char(Wire::P6::versionField.pack(Wire::P6::version));
    put(info, Wire::TransferInfo::fileSize, quint32(size));
    m_parameters = announce(info, false);

    const qsizetype frames = qMin<qsizetype>(Wire::RecordStart::maxFrames,
                                             m_parameters.frameLimit + 1);
    const qsizetype recordSize = frames * Wire::DataFrame::size;
    TransferProgress progress;
    progress.total = quint64(size);
    progress.totalRecords = quint32((size + recordSize - 1) / recordSize);

    QByteArray init(Wire::InitiateTransfer::size, '\0');
    init[Wire::InitiateTransfer::fileType] = info.at(Wire::TransferInfo::fileType);
    init[Wire::InitiateTransfer::version] = info.at(Wire::TransferInfo::version);
    put(init, Wire::InitiateTransfer::numberOfRecords, progress.totalRecords);
    const QString initiate = u"Initiate Transfer"_s;
    expectSuccess(transferMessage(Wire::InitiateTransfer::type, init, initiate,
                                  limit(m_parameters.negotiationTimeout),
                                  Wire::InitiateTransfer::responseSize),
                  initiate,
                  u"The receiver does not speak protocol version %1."_s.arg(Wire::P6::version));

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
    const Answer answer = transferMessage(Wire::TransferComplete::type, crcPayload(crc),
                                          u"Transfer Complete"_s,
                                          limit(m_parameters.completeTimeout), Wire::P6::crcSize);
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
    onProgress(progress);

    const QString what =
        u"Record End of record %1 of %2"_s.arg(number + 1).arg(progress.totalRecords);
    const quint32 crc = crc32Of(crc32Of(0, {}), data);
    const Answer answer = transferMessage(Wire::RecordEnd::type, crcPayload(crc), what,
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

} // namespace Shipwright
