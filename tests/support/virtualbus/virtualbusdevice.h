#pragma once

#include "faults.h"

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>
#include <QScopedPointer>
#include <QSocketNotifier>

#include <memory>

/// A CAN device on a virtual bus. The environment variable VIRTUALBUS_SOCKET names the socket of
/// the bus that can0 is on; another interface's socket lies beside it, named after the interface.
class VirtualBusDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    VirtualBusDevice(QString interfaceName, std::unique_ptr<FaultFile> faultFile);
    ~VirtualBusDevice() override;

    static QCanBusDeviceInfo deviceInfoOf(const QString &interfaceName);

    QCanBusDeviceInfo deviceInfo() const override;
    bool writeFrame(const QCanBusFrame &frame) override;
    QString interpretErrorFrame(const QCanBusFrame &) override { return {}; }

protected:
    bool open() override;
    void close() override;

private:
    // A notifier may have to go while it is telling of something.
    using Notifier = std::unique_ptr<QSocketNotifier, QScopedPointerDeleteLater>;

    bool join();
    void leave();
    void receive();
    void deliver();
    qint64 sendSome();
    void sendQueued();
    void applyFaults(const QByteArrayList &before);

    const QString m_interfaceName;
    const std::unique_ptr<FaultFile> m_faultFile;
    int m_socket = -1;
    Notifier m_readable;
    Notifier m_writable;
    QByteArray m_input;             ///< a frame that is still incomplete
    QList<QCanBusFrame> m_received; ///< frames that wait for their batch to be complete
    QByteArray m_output;            ///< frames that have left the queue, but not the process
};
