#include "canbusmanager.h"
#include "log.h"
#include "paths.h"
#include "wire.h"

#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QTextStream>
#include <QTimeZone>

#include <algorithm>
#include <utility>

void CanBusManager::sendP3CommandMessage(quint32 src, quint32 dest, quint32 slotNum,
                                         quint32 interfaceId, quint32 opId, const QByteArray &data)
{
    const quint32 id = Wire::P3::commandId(src, dest, slotNum, interfaceId, opId);
    // All three senders have this prefix; log readers depend on its spelling.
    qCDebug(logCategory) << "sendP3ResposesMessage: src: " << src << " dest: " << dest
                         << " slotNum: " << slotNum << " interfaceId: " << interfaceId
                         << " opId: " << opId << "frameId: " << QString::number(id, 16);
    writeFrame(id, data);
}

void CanBusManager::sendP3ResposesMessage(quint32 src, quint32 dest, quint32 slotNum,
                                          quint32 responseNum, const QByteArray &data)
{
    const quint32 id = Wire::P3::responseId(src, dest, slotNum, responseNum);
    qCDebug(logCategory) << "sendP3ResposesMessage: src: " << src << " dest: " << dest
                         << " slotNum: " << slotNum << " responseNum: " << responseNum
                         << "frameId: " << QString::number(id, 16);
    writeFrame(id, data);
}

void CanBusManager::sendP3EventMessage(quint32 src, quint32 dest, quint32 eventNum,
                                       const QByteArray &data)
{
    const quint32 id = Wire::P3::eventId(src, dest, eventNum);
    qCDebug(logCategory) << "sendP3ResposesMessage: src: " << src << " dest: " << dest
                         << " eventNum: " << eventNum << "frameId: " << QString::number(id, 16);
    writeFrame(id, data);
}

void CanBusManager::processP3CanCommand(QCanBusFrame frame)
{
    const quint32 id = frame.frameId();
    const quint32 source = Wire::sourceNode.of(id);
    const quint32 destination = Wire::destinationNode.of(id);
    const quint32 interfaceId = Wire::P3::interfaceNumber.of(id);
    const quint32 operation = Wire::P3::operation.of(id);
    qCDebug(logCategory) << "processP3CanCommand: Received P3 Frame srcID: " << source
                         << " destID: " << destination << " interfaceID: " << interfaceId
                         << "opID: " << operation;

    if ((destination != Wire::nodeDockhandAlt && destination != Wire::nodeDockhand)
        || source != Wire::nodeShipwright || interfaceId != Wire::P3::interfaceShipwright) {
        // The number logged is always the destination's.
        qCWarning(logCategory)
            << "processP3CanCommand: Frame received by Shipwright on unhandled Interface ID:"
            << QString::number(destination, 16);
        return;
    }
    qCDebug(logCategory)
        << "processP3CanCommand: Dockhand received frame on the Shipwright interface";

    switch (operation) {
    case Wire::StartConfiguration::operation:
        qCInfo(logCategory) << "processP3CanCommand: Start Config Writing Command Received";
        processP3StartConfigResponse(std::move(frame));
        break;
    case Wire::SetDateTime::operation:
        qCInfo(logCategory) << "processP3CanCommand: Set Date Time Command Received";
        processP3SetDateTimeResponse(std::move(frame));
        break;
    case Wire::SetSerial::operation:
        qCInfo(logCategory) << "processP3CanCommand: Set Serial Command Received";
        processP3SetSerialResponse(std::move(frame));
        break;
    case Wire::SetSerialExt::operation:
        qCInfo(logCategory) << "processP3CanCommand: Set Serial Ext Command Received";
        processP3SetSerialExtResponse(std::move(frame));
        break;
    case Wire::EndConfiguration::operation:
        qCInfo(logCategory) << "processP3CanCommand: End Configuration Command Received";
        processP3EndConfigurationResponse(std::move(frame));
        break;
    default:
        qCWarning(logCategory) << "processP3CanCommand: Simple Op ID received that is unknown: "
                               << QString::number(operation, 16);
    }
}

void CanBusManager::processP3StartConfigResponse(QCanBusFrame frame)
{
    const quint32 slot = Wire::P3::slot.of(frame.frameId());
    if (!frame.payload().startsWith(QByteArray::fromHex(Wire::StartConfiguration::request))) {
        sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, Wire::resultFailure,
                              QByteArray());
        return;
    }
    if (!multiPacketTransfer.transferInProgress) {
        emit statusUpdated(QStringLiteral("Connected to Shipwright"), true,
                           QStringLiteral("Waiting for transfer"), true, 0.0, true);
    }
    sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, Wire::resultSuccess,
                          QByteArray::fromHex(Wire::StartConfiguration::response));
}

void CanBusManager::processP3SetDateTimeResponse(QCanBusFrame frame)
{
    const quint32 slot = Wire::P3::slot.of(frame.frameId());
    const QByteArray payload = frame.payload();
    QDateTime dateTime;
    if (payload.size() == Wire::SetDateTime::size) {
        const auto byte = [&payload](qsizetype index) { return quint8(payload.at(index)); };
        // QDateTime turns a valid date with an invalid time of day into midnight.
        dateTime = QDateTime(QDate(Wire::SetDateTime::epoch + byte(Wire::SetDateTime::year),
                                   byte(Wire::SetDateTime::month), byte(Wire::SetDateTime::day)),
                             QTime(byte(Wire::SetDateTime::hour), byte(Wire::SetDateTime::minute),
                                   byte(Wire::SetDateTime::second)),
                             QTimeZone::utc());
    }
    if (!dateTime.isValid()) {
        sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, Wire::resultFailure,
                              payload);
        return;
    }

    const QString text = dateTime.toString(u"yyyy-MM-dd hh:mm:ss UTC");
    QProcess::startDetached(QStringLiteral("timedatectl"), {QStringLiteral("set-time"), text});
    qCDebug(logCategory) << "processP3SetDateTimeResponse: Updated Linux system UTC time to:"
                         << text;
    QProcess::startDetached(QStringLiteral("hwclock"), {QStringLiteral("--systohc")});

    emit statusUpdated(QStringLiteral("Received Date Time Command"), true,
                       QStringLiteral("dateString"), true, 0.0, false);
    sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, Wire::resultSuccess,
                          payload);
}

/// Writes the serial number to its file and shows it. Log messages start with \a handler. Returns
/// the result code.
quint32 CanBusManager::storeSerialNumber(const char *handler)
{
    QFile file(Paths::serialNumber);
    if (!file.open(QIODeviceBase::WriteOnly | QIODeviceBase::Text)) {
        qCWarning(logCategory).nospace()
            << handler
            << ": File write failed! Verify directory permissions for path: " << file.fileName();
        return Wire::resultFailure;
    }
    QTextStream(&file) << serialNumber << "\n";
    file.close();
    qCDebug(logCategory).nospace()
        << handler << ": Successfully wrote serial number to storage: " << serialNumber;
    emit statusUpdated(QStringLiteral("Received Serial Command"), true, serialNumber, true, 0.0,
                       false);
    return Wire::resultSuccess;
}

void CanBusManager::processP3SetSerialResponse(QCanBusFrame frame)
{
    const quint32 slot = Wire::P3::slot.of(frame.frameId());
    const QByteArray payload = frame.payload();
    serialNumberLength = payload.isEmpty() ? 0 : quint8(payload.at(Wire::SetSerial::length));
    const qsizetype count = std::min<qsizetype>(serialNumberLength, Wire::SetSerial::textMax);

    quint32 result = Wire::resultSuccess;
    if (payload.size() < Wire::SetSerial::text + count) {
        qCWarning(logCategory)
            << "processP3SetSerialResponse: Not enough data to parse serial string: "
            << payload.size();
        result = Wire::resultFailure;
    } else {
        serialNumber = QString::fromUtf8(payload.sliced(Wire::SetSerial::text, count));
        qCDebug(logCategory) << "processP3SetSerialResponse: received " << count << "bytes of "
                             << serialNumberLength << ": rcvSerialNumber " << serialNumber;
    }
    // A short number is stored even if the frame did not hold it.
    if (serialNumberLength <= Wire::SetSerial::textMax)
        result = storeSerialNumber("processP3SetSerialResponse");

    sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, result, QByteArray());
}

void CanBusManager::processP3SetSerialExtResponse(QCanBusFrame frame)
{
    const quint32 slot = Wire::P3::slot.of(frame.frameId());
    const QByteArray payload = frame.payload();
    qsizetype remaining = qsizetype(serialNumberLength) - Wire::SetSerial::textMax;
    if (remaining <= 0) {
        qCWarning(logCategory)
            << "processP3SetSerialExtResponse: Something has gone wrong, I have already received "
               "the full serial. I should not get this: "
            << payload.size();
        remaining = Wire::SetSerial::textMax;
    }

    if (payload.size() < remaining) {
        qCWarning(logCategory)
            << "processP3SetSerialExtResponse: Not enough data to parse serial string: "
            << payload.size();
    } else {
        serialNumber += QString::fromUtf8(payload.first(remaining));
        qCDebug(logCategory) << "processP3SetSerialExtResponse: received " << payload.size()
                             << "bytes of " << serialNumberLength << ": rcvSerialNumber "
                             << serialNumber;
    }
    const quint32 result = storeSerialNumber("processP3SetSerialExtResponse");
    sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright, slot, result, QByteArray());
}

void CanBusManager::processP3EndConfigurationResponse(QCanBusFrame frame)
{
    emit statusUpdated(QStringLiteral("Configuration Complete"), true, QStringLiteral("Empty"),
                       false, 1.0, true);
    sendP3ResposesMessage(Wire::nodeDockhand, Wire::nodeShipwright,
                          Wire::P3::slot.of(frame.frameId()), Wire::resultSuccess, QByteArray());
}
