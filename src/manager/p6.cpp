#include "canbusmanager.h"
#include "log.h"
#include "wire.h"

#include <QStringBuilder>
#include <QtEndian>

#include <algorithm>
#include <cstring>
#include <utility>

#include <unistd.h>

namespace {

quint8 byteAt(QByteArrayView payload, qsizetype offset)
{
    return quint8(payload.at(offset));
}

quint32 numberAt(QByteArrayView payload, qsizetype offset)
{
    return qFromLittleEndian<quint32>(payload.data() + offset);
}

quint32 protocolVersionOf(QByteArrayView payload)
{
    return payload.size() > Wire::TransferInfo::version
        ? Wire::P6::versionField.of(byteAt(payload, Wire::TransferInfo::version))
        : 0;
}

/// The CRC of a Record End or Transfer Complete; a payload of another size counts as CRC 0.
quint32 receivedCrc(QByteArrayView payload)
{
    return payload.size() == Wire::P6::crcSize ? numberAt(payload, 0) : 0;
}

} // namespace

void CanBusManager::processP6CanMessage(QCanBusFrame frame)
{
    const quint32 id = frame.frameId();
    const quint32 source = Wire::sourceNode.of(id);
    const quint32 destination = Wire::destinationNode.of(id);
    const quint32 type = Wire::P6::type.of(id);
    qCDebug(logCategory) << "processP6CanCommand: Received P6 Frame srcID: " << source
                         << " destID: " << destination << " p6Type: " << type
                         << "cmdResp: " << Wire::P6::commandResponse.of(id);

    if (source != Wire::nodeShipwright
        || (destination != Wire::nodeDockhandAlt && destination != Wire::nodeDockhand))
        return;

    switch (type) {
    case Wire::TransferInfo::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Transfer Info received";
        processP6TransferInfoCommand(std::move(frame));
        break;
    case Wire::InitiateTransfer::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Initiate Transfer received";
        processP6InitTransferCommand(std::move(frame));
        break;
    case Wire::RecordStart::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Record Start received";
        processP6RecordStartCommand(std::move(frame));
        break;
    case Wire::RecordEnd::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Record End received";
        processP6RecordEndCommand(std::move(frame));
        break;
    case Wire::TransferComplete::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Transfer Complete received";
        processP6TransferCompleteCommand(std::move(frame));
        break;
    case Wire::DataFrame::type:
        qCInfo(logCategory) << "processP6CanCommand: P6 Message Type Data Frame received";
        processP6DataFrameCommand(std::move(frame));
        break;
    default:
        qCWarning(logCategory) << "processP6CanCommand: P6 Message Type received that is unknown: "
                               << QString::number(type, 16);
    }
}

void CanBusManager::sendP6ResposesMessage(quint32 src, quint32 dest, quint32 p6Type,
                                          quint32 cmdResp, quint32 responseNum,
                                          const QByteArray &data)
{
    const quint32 id = Wire::P6::messageId(src, dest, p6Type, cmdResp, responseNum);
    qCDebug(logCategory) << "sendP6ResposesMessage: src: " << src << " dest: " << dest
                         << " p6Type: " << p6Type << " cmdResp: " << cmdResp
                         << " responseNum: " << responseNum
                         << "frameId: " << QString::number(id, 16);
    writeFrame(id, data);
}

void CanBusManager::processP6TransferInfoCommand(QCanBusFrame frame)
{
    const QByteArray inData = frame.payload();
    qCDebug(logCategory) << "processP6TransferInfoCommand: ";
    qCDebug(logCategory) << "processP6TransferInfoCommand: Protocol check";
    qCDebug(logCategory) << "Payload size:" << inData.size() << "Hex:" << inData.toHex();

    quint32 result = Wire::TransferInfo::rejected;
    if (inData.size() >= Wire::TransferInfo::minSize
        && protocolVersionOf(inData) == Wire::P6::version) {
        qCDebug(logCategory) << "processP6TransferInfoCommand: Protocol Check Passed";
        multiPacketTransfer.fileType = byteAt(inData, Wire::TransferInfo::fileType);
        multiPacketTransfer.fileSize = numberAt(inData, Wire::TransferInfo::fileSize);
        qCDebug(logCategory) << "processP6TransferInfoCommand: FileSize:"
                             << multiPacketTransfer.fileSize
                             << "FileType:" << multiPacketTransfer.fileType;
        result = Wire::resultSuccess;
    }

    qCDebug(logCategory) << "processP6TransferInfoCommand: packing the response data";
    namespace Response = Wire::TransferInfoResponse;
    QByteArray response(Response::size, '\0');
    char *const out = response.data();
    qToLittleEndian(
        quint8(Wire::P6::versionField.pack(Wire::P6::version)
               | quint32(multiPacketTransfer.infoFlag << Response::flagShift)
               | Response::frameLimitHighField.pack(multiPacketTransfer.infoFrameLimit >> 8)),
        out + Response::flags);
    qToLittleEndian(quint8(multiPacketTransfer.infoFrameLimit), out + Response::frameLimit);
    qToLittleEndian(quint16(multiPacketTransfer.infoParam1), out + Response::parameter1);
    qToLittleEndian(quint16(multiPacketTransfer.infoParam2), out + Response::parameter2);
    qToLittleEndian(quint16(multiPacketTransfer.infoParam3), out + Response::parameter3);

    qCDebug(logCategory) << "processP6TransferInfoCommand: sending the response";
    sendP6ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, Wire::TransferInfo::type, 0,
                          result, response);
}

void CanBusManager::processP6InitTransferCommand(QCanBusFrame frame)
{
    const QByteArray inData = frame.payload();
    const quint32 version = protocolVersionOf(inData);
    qCDebug(logCategory) << "processP6InitTransferCommand: ";
    qCDebug(logCategory) << "processP6InitTransferCommand: Protocol check - inData.size"
                         << inData.size() << "proto: " << version;

    quint32 result = Wire::InitiateTransfer::rejected;
    if (inData.size() == Wire::InitiateTransfer::size && version == Wire::P6::version) {
        qCDebug(logCategory) << "processP6InitTransferCommand: Protocol Check Passed";
        multiPacketTransfer.fileType = byteAt(inData, Wire::InitiateTransfer::fileType);
        multiPacketTransfer.outputFilePath = getFilePathString(multiPacketTransfer.fileType);
        multiPacketTransfer.numberOfBlocks = numberAt(inData,
                                                      Wire::InitiateTransfer::numberOfRecords);

        // setFileName() closes a file that an unfinished transfer left open, with a warning of
        // Qt's.
        multiPacketTransfer.outputFile.setFileName(multiPacketTransfer.outputFilePath);
        if (multiPacketTransfer.outputFile.open(QIODevice::WriteOnly)) {
            qCInfo(logCategory) << "Successfully initialized output file:"
                                << multiPacketTransfer.outputFilePath;
        } else {
            qCCritical(logCategory) << "Failed to open output file for writing:"
                                    << multiPacketTransfer.outputFile.errorString();
        }
        qCDebug(logCategory) << "Number of Blocks:" << multiPacketTransfer.numberOfBlocks
                             << "FileType:" << multiPacketTransfer.fileType;
        result = Wire::resultSuccess;
    }

    sendP6ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, Wire::InitiateTransfer::type, 0,
                          result, QByteArray(Wire::InitiateTransfer::responseSize, '\0'));
}

void CanBusManager::processP6RecordStartCommand(QCanBusFrame frame)
{
    const QByteArray inData = frame.payload();
    qCDebug(logCategory) << "processP6RecordStartCommand: ";
    if (inData.size() == Wire::RecordStart::size) {
        multiPacketTransfer.transferInProgress = true;
        multiPacketTransfer.framesToFollow = byteAt(inData, Wire::RecordStart::framesToFollow);
        multiPacketTransfer.blockDataLength = qint32(multiPacketTransfer.framesToFollow
                                                     * Wire::DataFrame::size);
        multiPacketTransfer.blockBuffer.fill('\0', multiPacketTransfer.blockDataLength);
        multiPacketTransfer.expectedFrameNumber = 0;
        multiPacketTransfer.currentBlockNumber = numberAt(inData, Wire::RecordStart::recordNumber);
        qCDebug(logCategory) << "Number of Frames to follow:" << multiPacketTransfer.framesToFollow
                             << "Current Block Number:" << multiPacketTransfer.currentBlockNumber;
    }

    // 0 records give infinity or NaN, which the display accepts.
    const double progress = double(multiPacketTransfer.currentBlockNumber)
        / double(multiPacketTransfer.numberOfBlocks);
    emit statusUpdated(QStringLiteral("Receiving ")
                           % getFileTypeString(multiPacketTransfer.fileType)
                           % QStringLiteral(" File"),
                       true, QStringLiteral("Empty String"), false, progress, true);
}

void CanBusManager::processP6DataFrameCommand(QCanBusFrame frame)
{
    const quint32 frameNumber = Wire::DataFrame::frameNumber.of(frame.frameId());
    const QByteArray payload = frame.payload();
    qCDebug(logCategory) << "processP6DataFrameCommand: Frame Number: " << frameNumber
                         << "Payload Size: " << payload.size();

    if (frameNumber != multiPacketTransfer.expectedFrameNumber)
        return;
    // Bytes outside of the announced record are dropped; Record End reports the loss.
    const qsizetype offset = frameNumber * Wire::DataFrame::size;
    if (payload.size() > Wire::DataFrame::size
        || offset + Wire::DataFrame::size > multiPacketTransfer.blockBuffer.size())
        return;

    char *const out = multiPacketTransfer.blockBuffer.data() + offset;
    if (payload.size() == Wire::DataFrame::size)
        std::memcpy(out, payload.constData(), Wire::DataFrame::size); // constant size: no call
    else
        std::memcpy(out, payload.constData(), size_t(payload.size()));
    multiPacketTransfer.blockDataLength -= qint32(Wire::DataFrame::size - payload.size());
    multiPacketTransfer.expectedFrameNumber = frameNumber + 1;
}

void CanBusManager::processP6RecordEndCommand(QCanBusFrame frame)
{
    // The handlers keep the length within the buffer, but the member is public.
    const quint32 length = quint32(std::clamp<qsizetype>(multiPacketTransfer.blockDataLength, 0,
                                                         multiPacketTransfer.blockBuffer.size()));
    const quint32 calculated = CalculateCRC32(multiPacketTransfer.blockBuffer, 0, length);
    const quint32 received = receivedCrc(frame.payload());
    qCDebug(logCategory) << "processP6RecordEndCommand: Caclulated CRC:" << calculated
                         << "Received CRC:" << received;

    const bool accepted = calculated == received;
    if (accepted) {
        if (!multiPacketTransfer.outputFile.isOpen()) {
            qCCritical(logCategory) << "Cannot write block data; output file is not open!";
        } else {
            const qint64 written = multiPacketTransfer.outputFile.write(
                multiPacketTransfer.blockBuffer.constData(), length);
            if (written == length) {
                qCInfo(logCategory) << "Successfully appended" << written << "bytes to file.";
                multiPacketTransfer.outputFile.flush();
            } else {
                qCWarning(logCategory)
                    << "File write mismatch! Expected:" << multiPacketTransfer.blockBuffer.size()
                    << "Written:" << written;
            }
        }
    }
    // Refers to the constant: the answer allocates no memory.
    const QByteArray response = QByteArray::fromRawData(accepted ? &Wire::RecordEnd::accepted
                                                                 : &Wire::RecordEnd::rejected,
                                                        Wire::RecordEnd::responseSize);
    sendP6ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, Wire::RecordEnd::type, 0,
                          accepted ? Wire::resultSuccess : Wire::resultFailure, response);
}

void CanBusManager::processP6TransferCompleteCommand(QCanBusFrame frame)
{
    const auto title = [this] {
        return QStringLiteral("Received %1 File")
            .arg(getFileTypeString(multiPacketTransfer.fileType));
    };
    emit statusUpdated(title(), true, QStringLiteral("Checking"), true, 1.0, true);

    const quint32 received = receivedCrc(frame.payload());
    if (multiPacketTransfer.outputFile.isOpen()) {
        // A file that is answered with success must survive a power cut.
        multiPacketTransfer.outputFile.flush();
        ::fsync(multiPacketTransfer.outputFile.handle());
        multiPacketTransfer.outputFile.close();
        qCInfo(logCategory) << "processP6TransferCompleteCommand: File transfer complete. Output "
                               "file closed cleanly.";
    }
    const quint32 calculated = CalculateCRC32(multiPacketTransfer.outputFilePath, 0,
                                              long(multiPacketTransfer.fileSize));
    qCInfo(logCategory) << "processP6TransferCompleteCommand: Received CRC: " << received
                        << "Calculated CRC: " << calculated;

    quint32 result = Wire::resultFailure;
    if (calculated != received) {
        qCCritical(logCategory) << "processP6TransferCompleteCommand: CRCs dont match!";
    } else {
        qCInfo(logCategory) << "processP6TransferCompleteCommand: CRCs match";
        if (multiPacketTransfer.fileType == Wire::FileType::configuration) {
            processReceivedConfigFile();
        } else {
            qCInfo(logCategory) << "processP6TransferCompleteCommand: Unkown file type received";
        }
        result = Wire::resultSuccess;
    }

    QByteArray response(Wire::P6::crcSize, '\0');
    qToLittleEndian(calculated, response.data());
    // Answer only after the installation.
    sendP6ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, Wire::TransferComplete::type, 0,
                          result, response);

    // Shown after a mismatch too.
    emit statusUpdated(title(), true, QStringLiteral("Done"), true, 1.0, true);
    multiPacketTransfer.transferInProgress = false;
}
