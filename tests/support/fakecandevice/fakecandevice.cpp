#include "fakecandevice.h"

#include "eventlog.h"

#include <QCanBusFactory>
#include <QMetaMethod>
#include <QSignalBlocker>
#include <QtPlugin>

#include <utility>

using namespace Qt::StringLiterals;

FakeCanDevice::Behaviour FakeCanDevice::behaviour;
QStringList FakeCanDevice::requests;
FakeCanDevice *FakeCanDevice::latest = nullptr;

FakeCanDevice::FakeCanDevice(QString interfaceName)
    : m_interfaceName(std::move(interfaceName))
{
    latest = this;
}

FakeCanDevice::~FakeCanDevice()
{
    if (latest == this)
        latest = nullptr;
}

void FakeCanDevice::note(QString step) const
{
    if (behaviour.onStep)
        behaviour.onStep(step);
    steps.append(step);
}

void FakeCanDevice::deliver(const QList<QCanBusFrame> &frames)
{
    enqueueReceivedFrames(frames);
}

void FakeCanDevice::queue(const QList<QCanBusFrame> &frames)
{
    const QSignalBlocker blocker(this);
    enqueueReceivedFrames(frames);
}

void FakeCanDevice::reportError(const QString &text, CanBusError error)
{
    setError(text, error);
}

void FakeCanDevice::reportState(CanBusDeviceState state)
{
    setState(state);
}

QCanBusDeviceInfo FakeCanDevice::deviceInfo() const
{
    note(u"info"_s);
    return createDeviceInfo(u"socketcan"_s, u"name of "_s + m_interfaceName, false, false);
}

void FakeCanDevice::setConfigurationParameter(ConfigurationKey key, const QVariant &value)
{
    configuration.append({key, value});
    note(u"set %1"_s.arg(key));
    QCanBusDevice::setConfigurationParameter(key, value);
}

bool FakeCanDevice::writeFrame(const QCanBusFrame &frame)
{
    if (!behaviour.writeError.isEmpty()) {
        // No signal, like a device without room.
        const QSignalBlocker blocker(this);
        setError(behaviour.writeError, WriteError);
        return false;
    }
    if (behaviour.onWrite)
        behaviour.onWrite(frame);
    EventLog::add(u"sent "_s + EventLog::text(frame));
    return true;
}

QString FakeCanDevice::interpretErrorFrame(const QCanBusFrame &)
{
    return {};
}

bool FakeCanDevice::open()
{
    note(u"open"_s);
    if (behaviour.refusesConnection) {
        setError(u"No such device"_s, ConnectionError);
        return false;
    }
    setState(ConnectedState);
    return true;
}

void FakeCanDevice::close()
{
    setState(UnconnectedState);
}

void FakeCanDevice::connectNotify(const QMetaMethod &signal)
{
    note(u"connect "_s + QLatin1StringView(signal.name()));
}

/// Linked into the executable, it comes after Qt's plugin of that key and replaces it.
class FakeCanPlugin : public QObject, public QCanBusFactory
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QCanBusFactory" FILE "fakecanplugin.json")
    Q_INTERFACES(QCanBusFactory)

public:
    QList<QCanBusDeviceInfo> availableDevices(QString *) const override { return {}; }

    QCanBusDevice *createDevice(const QString &interfaceName, QString *errorMessage) const override
    {
        FakeCanDevice::requests.append(u"socketcan "_s + interfaceName);
        const QString &error = FakeCanDevice::behaviour.creationError;
        if (!error.isEmpty()) {
            *errorMessage = error;
            return nullptr;
        }
        return new FakeCanDevice(interfaceName);
    }
};

Q_IMPORT_PLUGIN(FakeCanPlugin)

#include "fakecandevice.moc"
