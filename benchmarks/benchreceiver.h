#pragma once

#include "canbusmanager.h"
#include "candevice.h"
#include "record.h"

#include <QLoggingCategory>

inline const Record record;

inline constexpr char shippedRules[] = "*.debug=false\n*.info=false";
inline constexpr char everyLevel[] = "default=true";

/// The logging rules a benchmark runs under, and a handler that drops what passes them.
class Logging
{
public:
    explicit Logging(const char *rules)
    {
        QLoggingCategory::setFilterRules(QString::fromLatin1(rules));
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    }
    ~Logging() { qInstallMessageHandler(nullptr); }
};

/// A receiver on a device in memory.
struct BenchReceiver
{
    CanDevice device;
    CanBusManager manager;

    BenchReceiver()
    {
        device.connectDevice();
        manager.canDevice = &device;
        QObject::connect(&device, SIGNAL(framesReceived()), &manager, SLOT(onFramesReceived()));
        device.receive(record.start());
    }

    /// Lets a record's data frames come again, without the cost of a Record Start before them.
    void expectData() { manager.multiPacketTransfer.expectedFrameNumber = 0; }
    void receiveData()
    {
        expectData();
        device.receive(record.data());
    }
    bool gotData() const
    {
        return manager.multiPacketTransfer.expectedFrameNumber == Record::dataFrames;
    }
};
