#include "receivertest.h"

#include <QLoggingCategory>
#include <QMetaMethod>
#include <QPointer>
#include <QTest>

#include <atomic>
#include <type_traits>

using namespace Qt::StringLiterals;
using EventLog::transcript;

// Counts the allocations of the process. It takes malloc()'s place.
static std::atomic<long> allocationCount = 0;

#if defined(__SANITIZE_ADDRESS__)

// GCC's runtime has it, GCC's headers do not.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void *,
                                                                           std::size_t),
                                                         void (*freed)(const volatile void *));

/// Allocations up to now; the difference of two values counts.
static long allocations()
{
    static const int installed = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void *, std::size_t) { ++allocationCount; },
        [](const volatile void *) {});
    return installed ? allocationCount.load() : -1;
}

#else

// glibc's own entry, so that its free() and realloc() fit.
extern "C" void *__libc_malloc(std::size_t size);

extern "C" void *malloc(std::size_t size) noexcept
{
    ++allocationCount;
    return __libc_malloc(size);
}

static long allocations()
{
    return allocationCount;
}

#endif

/// The class as a whole, its device, the send path and the routing of received frames.
class tst_canlink : public ReceiverTest
{
    Q_OBJECT

private slots:
    void membersAndOrdinaryMethodsArePublic()
    {
        using M = CanBusManager;
        static_assert(std::is_base_of_v<QObject, M>);
        static_assert(std::is_constructible_v<M, QObject *>);
        static_assert(std::has_virtual_destructor_v<M>);
        static_assert(std::is_same_v<decltype(M::canDevice), QCanBusDevice *>);
        static_assert(std::is_same_v<decltype(M::multiPacketTransfer), KV_MultiPacket_Transfer>);
        static_assert(std::is_same_v<decltype(M::serialNumber), QString>);
        static_assert(std::is_same_v<decltype(M::serialNumberLength), quint32>);

        [[maybe_unused]] bool (M::*const start)() = &M::init;
        [[maybe_unused]] void (M::*const writeFrame)(quint32, const QByteArray &) = &M::writeFrame;
        [[maybe_unused]] QString (M::*const type)(quint32) = &M::getFileTypeString;
        [[maybe_unused]] QString (M::*const path)(quint32) = &M::getFilePathString;
        [[maybe_unused]] quint32 (M::*const bufferCrc)(QByteArray, long,
                                                       quint32) = &M::CalculateCRC32;
        [[maybe_unused]] quint32 (M::*const fileCrc)(QString, long, long) = &M::CalculateCRC32;
        [[maybe_unused]] void (M::*const config)() = &M::processReceivedConfigFile;
        [[maybe_unused]] void (M::*const menu)() = &M::processReceivedMenuFile;
        [[maybe_unused]] void (M::*const unpack)(QString) = &M::DecompressMenuFile;
        [[maybe_unused]] void (M::*const cleanUp)(QString) = &M::CleanUpMenuDirectory;
        [[maybe_unused]] void (M::*const status)(QString, bool, QString, bool, double,
                                                 bool) = &M::statusUpdated;

        const QList<const void *> members{&manager->canDevice, &manager->multiPacketTransfer,
                                          &manager->serialNumber, &manager->serialNumberLength};
        QVERIFY(std::is_sorted(members.cbegin(), members.cend()));
    }

    void metaObjectHasOneSignalAnd24SlotsInOrder()
    {
        const QMetaObject &meta = CanBusManager::staticMetaObject;
        QCOMPARE(meta.className(), "CanBusManager");
        QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
        QCOMPARE(meta.propertyCount(), meta.propertyOffset());

        QStringList methods;
        for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
            const QMetaMethod method = meta.method(index);
            QCOMPARE(method.typeName(), "void");
            const QString access[] = {u"private "_s, u"protected "_s, u"public "_s};
            const QString kind[] = {u"method "_s, u"signal "_s, u"slot "_s};
            methods += access[method.access()] + kind[method.methodType()]
                + QString::fromLatin1(method.methodSignature());
        }
        QCOMPARE(methods, transcript(uR"(
            public signal statusUpdated(QString,bool,QString,bool,double,bool)
            private slot onFramesReceived()
            private slot canFramesWritten(qulonglong)
            private slot canFrameError(QCanBusDevice::CanBusError)
            private slot canStateChanged(QCanBusDevice::CanBusDeviceState)
            private slot processP3CanCommand(QCanBusFrame)
            private slot processP3CanResponse(QCanBusFrame)
            private slot processP3CanEvent(QCanBusFrame)
            private slot processP5CanMessage(QCanBusFrame)
            private slot processP6CanMessage(QCanBusFrame)
            private slot sendP3CommandMessage(uint,uint,uint,uint,uint,QByteArray)
            private slot sendP3ResposesMessage(uint,uint,uint,uint,QByteArray)
            private slot sendP3EventMessage(uint,uint,uint,QByteArray)
            private slot processP3StartConfigResponse(QCanBusFrame)
            private slot processP3SetDateTimeResponse(QCanBusFrame)
            private slot processP3SetSerialResponse(QCanBusFrame)
            private slot processP3SetSerialExtResponse(QCanBusFrame)
            private slot processP3EndConfigurationResponse(QCanBusFrame)
            private slot processP6TransferInfoCommand(QCanBusFrame)
            private slot processP6InitTransferCommand(QCanBusFrame)
            private slot processP6RecordStartCommand(QCanBusFrame)
            private slot processP6DataFrameCommand(QCanBusFrame)
            private slot processP6RecordEndCommand(QCanBusFrame)
            private slot processP6TransferCompleteCommand(QCanBusFrame)
            private slot sendP6ResposesMessage(uint,uint,uint,uint,uint,QByteArray)
        )"_s));
    }

    void signalAndDeviceSlotsNameTheirParameters()
    {
        const QMetaObject &meta = CanBusManager::staticMetaObject;
        QByteArrayList names;
        for (int index = meta.methodOffset(); index < meta.methodOffset() + 5; ++index)
            names += meta.method(index).parameterNames().join(' ');
        QCOMPARE(names,
                 (QByteArrayList{("actionName1_text actionName1_visible actionName2_text "
                                  "actionName2_visible progressInd_percent progressInd_visible"),
                                 "", "framesCount", "error", "state"}));
    }

    void constructionTouchesNothing()
    {
        FakeCanDevice::requests.clear();
        QObject parent;
        for (QObject *const object : {static_cast<QObject *>(nullptr), &parent}) {
            const CanBusManager fresh(object);
            QCOMPARE(fresh.parent(), object);
            QCOMPARE(fresh.canDevice, nullptr);
            QCOMPARE(fresh.serialNumber, QString());
            QCOMPARE(fresh.serialNumberLength, 0u);
            QCOMPARE(fresh.multiPacketTransfer.parent(), nullptr);
            QCOMPARE(fresh.multiPacketTransfer.infoParam1, 0u);
        }
        QCOMPARE(FakeCanDevice::requests, QStringList());
        QCOMPARE(events(), QStringList());
    }

    void initAsksForSocketCanOnCan0()
    {
        QCOMPARE(FakeCanDevice::requests, QStringList{u"socketcan can0"_s});
        QCOMPARE(manager->canDevice, device.get());
        QCOMPARE(device->state(), QCanBusDevice::ConnectedState);
    }

    /// Between logging the name and configuring the device it sets the parameters.
    void initDoesItsStepsInOrder()
    {
        manager = std::make_unique<CanBusManager>(nullptr);
        EventLog::watcher = [](const QString &line) {
            FakeCanDevice::latest->steps += line.section(u' ', 1);
        };
        FakeCanDevice::behaviour.onStep = [this](QString &step) {
            step += manager->serialNumber.isEmpty() && session().infoParam1 == 0
                    && session().infoParam2 == 0 && session().infoParam3 == 0
                    && session().infoFrameLimit == 0 && session().infoFlag == 0
                ? u" before"_s
                : u' '
                    + QStringList(state().filter(u"info"_s) + state().filter(u"serialNumber "_s))
                          .join(u' ');
        };
        QVERIFY(manager->init());
        device.reset(FakeCanDevice::latest);
        const QString set = u" infoParam1 1000 infoParam2 1000 infoParam3 60000 infoFrameLimit 63 "
                            "infoFlag 1 serialNumber NotReceived"_s;
        QStringList expected = transcript(uR"(
            info before
            |Connecting to "name of can0"|
            set 0%1
            set 2%1
            set 3%1
            set 5%1
            connect framesReceived%1
            connect framesWritten%1
            connect errorOccurred%1
            connect stateChanged%1
            |canStateChanged: New CAN State QCanBusDevice::ConnectingState|
            open%1
            |canStateChanged: New CAN State QCanBusDevice::ConnectedState|
        )"_s.replace(u"%1"_s, set));
        QCOMPARE(device->steps, expected);
    }

    void initConfiguresTheDevice()
    {
        using Device = QCanBusDevice;
        QCOMPARE(device->configuration.size(), 4);
        const QVariant filterValue = device->configuration.at(0).second;
        QCOMPARE(device->configuration.at(0).first, Device::RawFilterKey);
        QCOMPARE(filterValue.metaType(), QMetaType::fromType<QList<Device::Filter>>());
        const auto filters = filterValue.value<QList<Device::Filter>>();
        QCOMPARE(filters.size(), 1);
        QCOMPARE(filters.at(0).frameId, 0u);
        QCOMPARE(filters.at(0).frameIdMask, 0u);
        QCOMPARE(filters.at(0).type, QCanBusFrame::DataFrame);
        QCOMPARE(filters.at(0).format, Device::Filter::MatchExtendedFormat);

        const Device::ConfigurationKey keys[] = {Device::LoopbackKey, Device::ReceiveOwnKey,
                                                 Device::CanFdKey};
        for (int index = 1; index < 4; ++index) {
            const auto &[key, value] = device->configuration.at(index);
            QCOMPARE(key, keys[index - 1]);
            QCOMPARE(value.metaType(), QMetaType::fromType<bool>());
            QCOMPARE(value.toBool(), false);
        }
    }

    void initConnectsEachSignalOnce()
    {
        emit device->framesWritten(17);
        emit device->errorOccurred(QCanBusDevice::WriteError);
        emit device->stateChanged(QCanBusDevice::ClosingState);
        receive(u"10000000#"_s);
        QCOMPARE(events(), transcript(uR"(
            debug |canFramesWritten: CAN Frame Written|
            critical |canFrameError: CAN Error QCanBusDevice::WriteError|
            info |canStateChanged: New CAN State QCanBusDevice::ClosingState|
            debug |onFramesReceived: Frame: 0x "10000000" Payload: ""|
            warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  4|
        )"_s));
    }

    void initWithoutDeviceSetsNothing()
    {
        FakeCanDevice::behaviour.creationError = u"No such plugin: 'socketcan'"_s;
        manager = std::make_unique<CanBusManager>(nullptr);
        const QStringList before = state();
        QVERIFY(!manager->init());
        QCOMPARE(events(), transcript(uR"(
            critical |Moorline: Failed to create device  "No such plugin: 'socketcan'"|
        )"_s));
        QCOMPARE(manager->canDevice, nullptr);
        QCOMPARE(state(), before);
        QVERIFY(before.contains(u"infoParam1 0"_s));
    }

    /// The device's own report comes through the connections; init() adds nothing.
    void initWithRefusedConnectionSetsEverything()
    {
        const QStringList connected = state();
        FakeCanDevice::behaviour.refusesConnection = true;
        manager = std::make_unique<CanBusManager>(nullptr);
        QVERIFY(!manager->init());
        QCOMPARE(events(), transcript(uR"(
            info |Connecting to "name of can0"|
            info |canStateChanged: New CAN State QCanBusDevice::ConnectingState|
            critical |canFrameError: CAN Error QCanBusDevice::ConnectionError|
            info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
        )"_s));
        device.reset(FakeCanDevice::latest);
        QCOMPARE(manager->canDevice, device.get());
        QCOMPARE(state(), connected);
        QCOMPARE(device->configuration.size(), 4);
        emit device->framesWritten(1);
        emit device->framesReceived();
        QCOMPARE(events(), transcript(u"debug |canFramesWritten: CAN Frame Written|"_s));
    }

    void destructionLeavesTheDeviceAlone()
    {
        const QPointer<QCanBusDevice> kept(device.get());
        manager.reset();
        QVERIFY(kept);
        QCOMPARE(kept->state(), QCanBusDevice::ConnectedState);
        QCOMPARE(events(), QStringList());
    }

    void destructionClosesAnOpenOutputFile()
    {
        receive(u"1B1A1000#0208000001000000"_s);
        QCOMPARE(session().outputFile.write("held back"), 9);
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
        manager.reset();
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "held back");
    }

    void secondReceiverHasItsOwnRecord()
    {
        const CanBusManager other(nullptr);
        session().fileSize = 7;
        QCOMPARE(other.multiPacketTransfer.fileSize, 0u);
        QVERIFY(manager->findChildren<KV_MultiPacket_Transfer *>().isEmpty());
    }

    void writeFrameSendsExtendedDataFrames()
    {
        const std::pair<quint32, QByteArray> frames[] = {
            {0x0C000000u, {}},
            {0x1B5830BAu, "01"},
            {0x0F584000u, "00ff7f8001020304"},
            {0x0F584000u, "0102030405060708090a0b0c"}, // more than a classic frame holds
            {0x7FFu, {}},                              // an identifier that no message has
        };
        for (const auto &[identifier, payload] : frames)
            manager->writeFrame(identifier, QByteArray::fromHex(payload));
        QCOMPARE(events(), transcript(uR"(
            sent 0C000000#
            debug |writeFrame: Frame sent with ID: "c000000"|
            sent 1B5830BA#01
            debug |writeFrame: Frame sent with ID: "1b5830ba"|
            sent 0F584000#00FF7F8001020304
            debug |writeFrame: Frame sent with ID: "f584000"|
            sent 0F584000#0102030405060708090A0B0C fd
            debug |writeFrame: Frame sent with ID: "f584000"|
            sent 7FF#
            debug |writeFrame: Frame sent with ID: "7ff"|
        )"_s));
    }

    /// The handler does not learn of it, and nothing is sent again later.
    void writeFrameKeepsNothingOfARefusedFrame()
    {
        FakeCanDevice::behaviour.writeError =
            u"Cannot write CAN frame: no buffer space available"_s;
        play(uR"(
            receive 1B1A0000#030805000000
            warning |writeFrame: Failed to write frame: "Cannot write CAN frame: no buffer space available"|
            changed fileSize 5, fileType 3
        )"_s);
        FakeCanDevice::behaviour.writeError.clear();
        emit device->framesWritten(1);
        QCoreApplication::processEvents();
        QCOMPARE(events(), transcript(u"debug |canFramesWritten: CAN Frame Written|"_s));
    }

    void deviceErrorsAreLogged()
    {
        for (int error = QCanBusDevice::NoError; error <= QCanBusDevice::TimeoutError; ++error)
            device->reportError(u"text that is not logged"_s, QCanBusDevice::CanBusError(error));
        QCOMPARE(events(), transcript(uR"(
            critical |canFrameError: CAN Error QCanBusDevice::NoError|
            critical |canFrameError: CAN Error QCanBusDevice::ReadError|
            critical |canFrameError: CAN Error QCanBusDevice::WriteError|
            critical |canFrameError: CAN Error QCanBusDevice::ConnectionError|
            critical |canFrameError: CAN Error QCanBusDevice::ConfigurationError|
            critical |canFrameError: CAN Error QCanBusDevice::UnknownError|
            critical |canFrameError: CAN Error QCanBusDevice::OperationError|
            critical |canFrameError: CAN Error QCanBusDevice::TimeoutError|
        )"_s));
        QCOMPARE(device->state(), QCanBusDevice::ConnectedState);
    }

    /// A device that is lost stays so: also after longer than any retry would wait.
    void lostDeviceStaysLost()
    {
        device->reportState(QCanBusDevice::ClosingState);
        device->reportState(QCanBusDevice::ConnectingState);
        device->reportState(QCanBusDevice::UnconnectedState);
        device->steps.clear();
        QTest::qWait(1200);
        QCOMPARE(events(), transcript(uR"(
            info |canStateChanged: New CAN State QCanBusDevice::ClosingState|
            info |canStateChanged: New CAN State QCanBusDevice::ConnectingState|
            info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
        )"_s));
        QCOMPARE(device->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(device->steps, QStringList());
        QCOMPARE(FakeCanDevice::requests.size(), 1);
        QCOMPARE(manager->canDevice, device.get());
    }

    void frameQueuedMeanwhileIsHandledInTheSameCall()
    {
        FakeCanDevice::behaviour.onWrite = [this](const QCanBusFrame &) {
            device->queue({EventLog::frame(u"14000000#"_s)});
        };
        play(uR"(
            receive 0F1A02C4#
            display "Configuration Complete" on "Empty" off 1 on
            sent 0F584000#
            warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
        )"_s);
    }

    void invalidFrameIsRoutedLikeAnyOther()
    {
        QCanBusFrame invalid = EventLog::frame(u"14000000#"_s);
        invalid.setFrameType(QCanBusFrame::InvalidFrame);
        device->deliver({invalid, EventLog::frame(u"10000000#"_s)});
        QCOMPARE(events(Outside), transcript(uR"(
            warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
            warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  4|
        )"_s));
    }

    /// What was not read before stays in the queue.
    void deviceLostDuringABurstEndsTheDrain()
    {
        FakeCanDevice::behaviour.onWrite = [this](const QCanBusFrame &) {
            device->reportState(QCanBusDevice::UnconnectedState);
        };
        play(uR"(
            receive 0F1A02C4# 14000000#
            display "Configuration Complete" on "Empty" off 1 on
            info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
            sent 0F584000#
            warning(qt.canbus) |Cannot read frame as device is not connected.|
            critical |canFrameError: CAN Error QCanBusDevice::OperationError|
        )"_s);
        QCOMPARE(device->framesAvailable(), 1);
        emit device->framesReceived();
        QCOMPARE(events(), transcript(uR"(
            warning(qt.canbus) |Cannot read frame as device is not connected.|
            critical |canFrameError: CAN Error QCanBusDevice::OperationError|
        )"_s));
        QCOMPARE(device->framesAvailable(), 1);
    }

    void filteredLevelsEvaluateNothing()
    {
        QLoggingCategory::setFilterRules(u"default.debug=false\ndefault.info=false"_s);
        const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules(QString()); });

        CanBusManager fresh(nullptr);
        QVERIFY(fresh.init());
        const std::unique_ptr<FakeCanDevice> itsDevice(FakeCanDevice::latest);
        // The name of the device is asked for when its line is built.
        QVERIFY(!itsDevice->steps.contains(u"info"_s));
        QCOMPARE(events(), QStringList());

        // A data frame of a transfer costs no memory: the lines of its way are not built.
        session().blockBuffer.fill('\0', 512);
        device->queue({EventLog::frame(u"1B1AF000#0102030405060708"_s),
                       EventLog::frame(u"1B1AF010#0102030405060708"_s)});
        const long before = allocations();
        emit device->framesReceived();
        const long after = allocations();
        QCOMPARE(session().expectedFrameNumber, 2u);
        QCOMPARE(after - before, 0L);
        QCOMPARE(events(), QStringList());

        QLoggingCategory::setFilterRules(u"default.debug=false"_s);
        receive(u"14000000#"_s);
        QCOMPARE(events(), transcript(uR"(
            info |onFramesReceived: Config File Transfer CAN Message|
            warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
        )"_s));
    }
};

QTEST_GUILESS_MAIN(tst_canlink)
#include "tst_canlink.moc"
