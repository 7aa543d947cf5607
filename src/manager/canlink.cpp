#include "canbusmanager.h"
#include "log.h"
#include "wire.h"

#include <QCanBus>
#include <QVariant>

#include <utility>

CanBusManager::CanBusManager(QObject *parent)
    : QObject(parent)
{
}

CanBusManager::~CanBusManager() = default;

bool CanBusManager::init()
{
    QString errorString;
    canDevice = QCanBus::instance()->createDevice(QStringLiteral("socketcan"),
                                                  QStringLiteral("can0"), &errorString);
    if (!canDevice) {
        qCCritical(logCategory) << "Moorline: Failed to create device " << errorString;
        return false;
    }
    qCInfo(logCategory) << "Connecting to" << canDevice->deviceInfo().name();

    multiPacketTransfer.infoParam1 = 1000;
    multiPacketTransfer.infoParam2 = 1000;
    multiPacketTransfer.infoParam3 = 60000;
    multiPacketTransfer.infoFrameLimit = 63;
    multiPacketTransfer.infoFlag = true;
    serialNumber = QStringLiteral("NotReceived");

    QCanBusDevice::Filter everyExtendedDataFrame;
    everyExtendedDataFrame.frameId = 0;
    everyExtendedDataFrame.frameIdMask = 0;
    everyExtendedDataFrame.type = QCanBusFrame::DataFrame;
    everyExtendedDataFrame.format = QCanBusDevice::Filter::MatchExtendedFormat;
    canDevice->setConfigurationParameter(
        QCanBusDevice::RawFilterKey,
        QVariant::fromValue(QList<QCanBusDevice::Filter>{everyExtendedDataFrame}));
    canDevice->setConfigurationParameter(QCanBusDevice::LoopbackKey, false);
    canDevice->setConfigurationParameter(QCanBusDevice::ReceiveOwnKey, false);
    canDevice->setConfigurationParameter(QCanBusDevice::CanFdKey, false);

    connect(canDevice, &QCanBusDevice::framesReceived, this, &CanBusManager::onFramesReceived);
    connect(canDevice, &QCanBusDevice::framesWritten, this, &CanBusManager::canFramesWritten);
    connect(canDevice, &QCanBusDevice::errorOccurred, this, &CanBusManager::canFrameError);
    connect(canDevice, &QCanBusDevice::stateChanged, this, &CanBusManager::canStateChanged);

    return canDevice->connectDevice();
}

void CanBusManager::writeFrame(quint32 frameId, const QByteArray &payload)
{
    if (canDevice->writeFrame(QCanBusFrame(frameId, payload))) {
        qCDebug(logCategory) << "writeFrame: Frame sent with ID:" << QString::number(frameId, 16);
    } else {
        qCWarning(logCategory) << "writeFrame: Failed to write frame:" << canDevice->errorString();
    }
}

void CanBusManager::onFramesReceived()
{
    while (canDevice->framesAvailable() > 0) {
        QCanBusFrame frame = canDevice->readFrame();
        // A device that is not connected reports an error and keeps its queue.
        if (frame.frameType() == QCanBusFrame::InvalidFrame
            && canDevice->state() != QCanBusDevice::ConnectedState)
            return;
        const quint32 id = frame.frameId();
        qCDebug(logCategory) << "onFramesReceived: Frame: 0x" << QString::number(id, 16).toUpper()
                             << "Payload:" << frame.payload().toHex('-').toUpper();

        switch (const quint32 protocol = Wire::protocolType.of(id)) {
        case Wire::protocolP3:
            qCDebug(logCategory) << "onFramesReceived: Simple CAN Message";
            if (Wire::P3::response.of(id)) {
                qCInfo(logCategory) << "onFramesReceived: Simple CAN Response Message";
                processP3CanResponse(std::move(frame));
            } else {
                qCInfo(logCategory) << "onFramesReceived: Simple CAN Command Message";
                processP3CanCommand(std::move(frame));
            }
            break;
        case Wire::protocolP5:
            qCInfo(logCategory) << "onFramesReceived: Config File Transfer CAN Message";
            processP5CanMessage(std::move(frame));
            break;
        case Wire::protocolP6:
            qCInfo(logCategory) << "onFramesReceived: Multipacket CAN Message";
            processP6CanMessage(std::move(frame));
            break;
        default:
            qCWarning(logCategory)
                << "onFramesReceived: Unhanlded Protocol Type CAN Message: " << protocol;
        }
    }
}

void CanBusManager::canFramesWritten(quint64)
{
    qCDebug(logCategory) << "canFramesWritten: CAN Frame Written";
}

void CanBusManager::canFrameError(QCanBusDevice::CanBusError error)
{
    qCCritical(logCategory) << "canFrameError: CAN Error" << error;
}

void CanBusManager::canStateChanged(QCanBusDevice::CanBusDeviceState state)
{
    qCInfo(logCategory) << "canStateChanged: New CAN State" << state;
}

void CanBusManager::processP3CanResponse(QCanBusFrame frame)
{
    qCWarning(logCategory) << "processP3CanResponse: Simple Response Frame sent to Dockhand: "
                           << Wire::responseNumber.of(frame.frameId()) << " - No Action";
}

void CanBusManager::processP3CanEvent(QCanBusFrame frame)
{
    qCWarning(logCategory) << "processP3CanEvent: Simple Event Frame sent to Dockhand: "
                           << Wire::P3::eventNumber.of(frame.frameId()) << " - No Action";
}

void CanBusManager::processP5CanMessage(QCanBusFrame)
{
    qCWarning(logCategory) << "processP5CanMessage: Config File P5 Message Frame sent to Dockhand"
                           << " - No Action";
}
