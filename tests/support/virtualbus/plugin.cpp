#include "faults.h"
#include "virtualbusdevice.h"

#include <QCanBusFactory>

#include <memory>

using namespace Qt::StringLiterals;

/// Replaces Qt's "socketcan" plugin.
class VirtualBusPlugin : public QObject, public QCanBusFactory
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QCanBusFactory" FILE "plugin.json")
    Q_INTERFACES(QCanBusFactory)

public:
    QList<QCanBusDeviceInfo> availableDevices(QString *errorMessage) const override
    {
        if (errorMessage)
            errorMessage->clear();
        return {VirtualBusDevice::deviceInfoOf(u"can0"_s)};
    }

    QCanBusDevice *createDevice(const QString &interfaceName, QString *errorMessage) const override
    {
        auto faults = std::make_unique<FaultFile>();
        const bool refuse = faults->has("create");
        if (errorMessage)
            *errorMessage = refuse ? u"Bus fault: create"_s : QString();
        return refuse ? nullptr : new VirtualBusDevice(interfaceName, std::move(faults));
    }
};

#include "plugin.moc"
