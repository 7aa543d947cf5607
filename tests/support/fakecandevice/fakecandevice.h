#pragma once

#include <QCanBusDevice>
#include <QCanBusDeviceInfo>
#include <QList>
#include <QVariant>

#include <functional>
#include <utility>

/// A CAN device without a bus: the test delivers the received frames, and finds the written ones in
/// the event log. A plugin in the test executable creates it for the key "socketcan".
class FakeCanDevice : public QCanBusDevice
{
    Q_OBJECT

public:
    /// How the plugin and its devices behave.
    struct Behaviour
    {
        QString creationError; ///< not empty: no device is created, for this reason
        bool refusesConnection = false;
        QString writeError; ///< not empty: writing fails for this reason
        /// Called with each frame before it is logged as sent.
        std::function<void(const QCanBusFrame &)> onWrite;
        /// Called with each step before it is noted.
        std::function<void(QString &step)> onStep;
    };
    static Behaviour behaviour;
    /// Plugin and interface of every device requested, as "plugin interface".
    static QStringList requests;
    /// The device created last.
    static FakeCanDevice *latest;

    explicit FakeCanDevice(QString interfaceName);
    ~FakeCanDevice() override;

    /// The configuration parameters that were set, in order.
    QList<std::pair<ConfigurationKey, QVariant>> configuration;
    /// The calls to the device, in order: "info", "set KEY", "connect SIGNAL", "open".
    mutable QStringList steps;

    /// Puts \a frames into the receive queue and signals them once.
    void deliver(const QList<QCanBusFrame> &frames);
    /// Puts \a frames into the receive queue without a signal.
    void queue(const QList<QCanBusFrame> &frames);
    void reportError(const QString &text, CanBusError error);
    void reportState(CanBusDeviceState state);

    QCanBusDeviceInfo deviceInfo() const override;
    void setConfigurationParameter(ConfigurationKey key, const QVariant &value) override;
    bool writeFrame(const QCanBusFrame &frame) override;
    QString interpretErrorFrame(const QCanBusFrame &errorFrame) override;

protected:
    bool open() override;
    void close() override;
    void connectNotify(const QMetaMethod &signal) override;

private:
    void note(QString step) const;

    const QString m_interfaceName;
};
