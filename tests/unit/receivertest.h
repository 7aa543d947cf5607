#pragma once

#include "canbusmanager.h"
#include "eventlog.h"
#include "fakecandevice.h"
#include "servicetree.h"

#include <QCanBusFrame>
#include <QObject>

#include <memory>

/// A frame as the service tool sends it: 29-bit identifier, and the payload in hexadecimal.
QCanBusFrame frame(quint32 id, const char *payload = "");
QCanBusFrame errorFrame();

/// Gives each test a receiver on a fake CAN device, an empty service tree and an empty event log.
class ReceiverTest : public QObject
{
    Q_OBJECT

protected:
    std::unique_ptr<CanBusManager> manager;
    std::unique_ptr<FakeCanDevice> device;

    /// What initTestCase(), init() and cleanup() do, for tests with a part of their own in them.
    void checkSandbox();
    void startReceiver();
    void stopReceiver();
    /// Lets the receiver get \a frames from its device, in one signal.
    void receive(const QList<QCanBusFrame> &frames);
    /// Calls the slot \a slot, which takes a frame, past the dispatch.
    void call(const char *slot, const QCanBusFrame &frame);
    /// What reached the outside since the test's begin or the last call.
    QStringList events() { return EventLog::take(); }
    /// The last of these lines that are not debug messages.
    QStringList eventsButDebug();
    /// The last of these lines that tell of frames sent.
    QStringList sentFrames();
    /// Begins a transfer, so that each field of the session that anything uses holds something,
    /// and gives the receiver a serial number. Leaves the event log empty.
    void beginTransfer();
    /// Every value that the receiver keeps, one in a line.
    QStringList state();

    KV_MultiPacket_Transfer &session() { return manager->multiPacketTransfer; }

private slots:
    void initTestCase() { checkSandbox(); }
    void init() { startReceiver(); }
    void cleanup() { stopReceiver(); }
};
