#pragma once

#include "faults.h"

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>
#include <QScopedPointer>
#include <QSocketNotifier>

#include <linux/can.h>

#include <array>
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
    void setConfigurationParameter(ConfigurationKey key, const QVariant &value) override;
    bool writeFrame(const QCanBusFrame &frame) override;
    QString interpretErrorFrame(const QCanBusFrame &errorFrame) override;

protected:
    bool open() override;
    void close() override;

private:
    /// Passes the identifiers that have, in the mask's bits, what id has there.
    struct IdFilter
    {
        canid_t id;
        canid_t mask;
    };
    // A notifier may have to go while it is telling of something.
    using Notifier = std::unique_ptr<QSocketNotifier, QScopedPointerDeleteLater>;

    bool setFilters(const QList<Filter> &filters);
    bool passes(canid_t id) const;
    bool join();
    void leave();
    void receive();
    void deliver();
    qint64 sendSome();
    void sendQueued();
    void lose(const QString &why);
    void applyFaults(const Faults &before);

    const QString m_interfaceName;
    const std::unique_ptr<FaultFile> m_faultFile;
    QList<IdFilter> m_filters;
    quint32 m_errorMask = CAN_ERR_MASK;

    int m_socket = -1;
    Notifier m_readable;
    Notifier m_writable;
    std::array<can_frame, 4096> m_input;
    std::size_t m_inputBytes = 0;   ///< bytes in m_input of a frame that is still incomplete
    QList<QCanBusFrame> m_received; ///< frames that wait for their batch to be complete
    std::array<can_frame, 1024> m_output;
    std::size_t m_outputFrames = 0; ///< frames in m_output
    std::size_t m_outputSent = 0;   ///< bytes of them that have left
};
