#include "allocations.h"
#include "receivertest.h"

#include <QLoggingCategory>
#include <QMetaMethod>
#include <QPointer>
#include <QTest>

#include <type_traits>

using namespace Qt::StringLiterals;
using EventLog::transcript;

/// The class as a whole, its device, the send path and the routing of received frames.
class tst_canlink : public ReceiverTest
{
    Q_OBJECT

private slots:
    void membersAndOrdinaryMethodsArePublic();
    void membersStandInOrder();
    void metaObjectHasOneSignalAnd24SlotsInOrder();
    void signalNamesItsParameters();
    void deviceSlotsNameTheirParameters();
    void slotsCannotBeCalledFromOutside();
    void ordinaryMethodsAreNotInvokable();

    void constructionTouchesNothing();
    void constructorTakesAParent();
    void initAsksForSocketCanOnCan0();
    void initLogsTheDeviceAndItsStates();
    void initSetsReceiverParametersAndSerialPlaceholder();
    void initConfiguresTheDevice();
    void initDoesItsStepsInOrder();
    void initConnectsEachSignalOnce();
    void initWithoutDeviceSetsNothing();
    void initWithRefusedConnectionSetsEverything();
    void destructionLeavesTheDeviceAlone();
    void destructionClosesAnOpenOutputFile();
    void secondParentlessReceiverHasItsOwnRecord();

    void writeFrameSendsExtendedDataFrames_data();
    void writeFrameSendsExtendedDataFrames();
    void writeFrameReportsRefusal();
    void writeFrameKeepsNothingOfARefusedFrame();

    void framesWrittenIsLoggedWithoutCount();
    void deviceErrorsAreLogged_data();
    void deviceErrorsAreLogged();
    void deviceStatesAreLogged_data();
    void deviceStatesAreLogged();
    void lostDeviceStaysLost();

    void framesAreRoutedByProtocolType_data();
    void framesAreRoutedByProtocolType();
    void errorFrameIsOfUnknownProtocol();
    void payloadIsLoggedInUpperCaseWithHyphens();
    void burstIsHandledInOneCallInOrder();
    void frameQueuedMeanwhileIsHandledInTheSameCall();
    void invalidFrameIsRoutedLikeAnyOther();
    void queueOfALostDeviceIsLeft();
    void deviceLostDuringABurstEndsTheDrain();
    void p3ResponseIsLoggedOnly_data();
    void p3ResponseIsLoggedOnly();
    void p3EventIsLoggedOnly_data();
    void p3EventIsLoggedOnly();
    void p5MessageIsLoggedOnly();

    void filteredLevelsEvaluateNothing();
    void filteredLevelsLeaveTheOthers();
};

void tst_canlink::membersAndOrdinaryMethodsArePublic()
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
    [[maybe_unused]] quint32 (M::*const bufferCrc)(QByteArray, long, quint32) = &M::CalculateCRC32;
    [[maybe_unused]] quint32 (M::*const fileCrc)(QString, long, long) = &M::CalculateCRC32;
    [[maybe_unused]] void (M::*const config)() = &M::processReceivedConfigFile;
    [[maybe_unused]] void (M::*const menu)() = &M::processReceivedMenuFile;
    [[maybe_unused]] void (M::*const unpack)(QString) = &M::DecompressMenuFile;
    [[maybe_unused]] void (M::*const cleanUp)(QString) = &M::CleanUpMenuDirectory;
    [[maybe_unused]] void (M::*const status)(QString, bool, QString, bool, double,
                                             bool) = &M::statusUpdated;
}

void tst_canlink::membersStandInOrder()
{
    const QList<const void *> members{&manager->canDevice, &manager->multiPacketTransfer,
                                      &manager->serialNumber, &manager->serialNumberLength};
    QVERIFY(std::is_sorted(members.cbegin(), members.cend()));
}

void tst_canlink::metaObjectHasOneSignalAnd24SlotsInOrder()
{
    const QMetaObject &meta = CanBusManager::staticMetaObject;
    QCOMPARE(meta.className(), "CanBusManager");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());

    QStringList methods;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        const QMetaMethod method = meta.method(index);
        QCOMPARE(method.typeName(), "void");
        const auto access = method.access() == QMetaMethod::Public ? "public"_L1
            : method.access() == QMetaMethod::Private              ? "private"_L1
                                                                   : "protected"_L1;
        const auto kind = method.methodType() == QMetaMethod::Signal ? "signal"_L1
            : method.methodType() == QMetaMethod::Slot               ? "slot"_L1
                                                                     : "other"_L1;
        methods += access + u' ' + kind + u' ' + QString::fromLatin1(method.methodSignature());
    }
    QCOMPARE(methods, transcript(R"(
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
    )"));
}

void tst_canlink::signalNamesItsParameters()
{
    const QMetaMethod signal = QMetaMethod::fromSignal(&CanBusManager::statusUpdated);
    QCOMPARE(
        signal.parameterNames(),
        (QList<QByteArray>{"actionName1_text", "actionName1_visible", "actionName2_text",
                           "actionName2_visible", "progressInd_percent", "progressInd_visible"}));
    QCOMPARE(signal.parameterTypes(),
             (QList<QByteArray>{"QString", "bool", "QString", "bool", "double", "bool"}));
}

void tst_canlink::deviceSlotsNameTheirParameters()
{
    const auto names = [](const char *slot) {
        const QMetaObject &meta = CanBusManager::staticMetaObject;
        return meta.method(meta.indexOfMethod(slot)).parameterNames();
    };
    QCOMPARE(names("canFramesWritten(quint64)"), QList<QByteArray>{"framesCount"});
    QCOMPARE(names("canFrameError(QCanBusDevice::CanBusError)"), QList<QByteArray>{"error"});
    QCOMPARE(names("canStateChanged(QCanBusDevice::CanBusDeviceState)"),
             QList<QByteArray>{"state"});
}

// Version 14 does not know requires expressions.
// clang-format off
template<typename T>
concept HasPublicFrameSlot = requires(T object) { object.onFramesReceived(); };
template<typename T>
concept HasPublicHandler =
    requires(T object, QCanBusFrame received) { object.processP6CanMessage(received); };
// clang-format on

void tst_canlink::slotsCannotBeCalledFromOutside()
{
    static_assert(!HasPublicFrameSlot<CanBusManager>);
    static_assert(!HasPublicHandler<CanBusManager>);
}

void tst_canlink::ordinaryMethodsAreNotInvokable()
{
    const QMetaObject &meta = CanBusManager::staticMetaObject;
    for (const char *signature :
         {"init()", "writeFrame(quint32,QByteArray)", "getFileTypeString(quint32)",
          "getFilePathString(quint32)", "processReceivedConfigFile()", "processReceivedMenuFile()",
          "DecompressMenuFile(QString)", "CleanUpMenuDirectory(QString)"}) {
        QCOMPARE(meta.indexOfMethod(signature), -1);
    }
}

void tst_canlink::constructionTouchesNothing()
{
    FakeCanDevice::requests.clear();
    const CanBusManager fresh(nullptr);
    QCOMPARE(fresh.canDevice, nullptr);
    QCOMPARE(fresh.parent(), nullptr);
    QCOMPARE(fresh.serialNumber, QString());
    QCOMPARE(fresh.serialNumberLength, 0u);
    QCOMPARE(fresh.multiPacketTransfer.parent(), nullptr);
    QCOMPARE(fresh.multiPacketTransfer.infoParam1, 0u);
    QCOMPARE(FakeCanDevice::requests, QStringList());
    QCOMPARE(events(), QStringList());
}

void tst_canlink::constructorTakesAParent()
{
    QObject parent;
    const CanBusManager fresh(&parent);
    QCOMPARE(fresh.parent(), &parent);
    QCOMPARE(fresh.multiPacketTransfer.parent(), nullptr);
}

void tst_canlink::initAsksForSocketCanOnCan0()
{
    QCOMPARE(FakeCanDevice::requests, QStringList{u"socketcan can0"_s});
    QCOMPARE(manager->canDevice, device.get());
    QCOMPARE(device->state(), QCanBusDevice::ConnectedState);
}

void tst_canlink::initLogsTheDeviceAndItsStates()
{
    CanBusManager fresh(nullptr);
    QVERIFY(fresh.init());
    const std::unique_ptr<QCanBusDevice> itsDevice(fresh.canDevice);
    QCOMPARE(events(), transcript(R"(
        info |Connecting to "name of can0"|
        info |canStateChanged: New CAN State QCanBusDevice::ConnectingState|
        info |canStateChanged: New CAN State QCanBusDevice::ConnectedState|
    )"));
}

void tst_canlink::initSetsReceiverParametersAndSerialPlaceholder()
{
    QCOMPARE(session().infoParam1, 1000u);
    QCOMPARE(session().infoParam2, 1000u);
    QCOMPARE(session().infoParam3, 60000u);
    QCOMPARE(session().infoFrameLimit, 63u);
    QCOMPARE(int(session().infoFlag), 1);
    QCOMPARE(manager->serialNumber, u"NotReceived"_s);
    QCOMPARE(manager->serialNumberLength, 0u);
    QVERIFY(!session().outputFile.isOpen());
    QVERIFY(!session().transferInProgress);
}

void tst_canlink::initDoesItsStepsInOrder()
{
    const auto set = [](QCanBusDevice::ConfigurationKey key) { return u"set %1"_s.arg(key); };
    QCOMPARE(
        device->steps,
        (QStringList{u"info"_s, set(QCanBusDevice::RawFilterKey), set(QCanBusDevice::LoopbackKey),
                     set(QCanBusDevice::ReceiveOwnKey), set(QCanBusDevice::CanFdKey),
                     u"connect framesReceived"_s, u"connect framesWritten"_s,
                     u"connect errorOccurred"_s, u"connect stateChanged"_s, u"open"_s}));
}

void tst_canlink::initConfiguresTheDevice()
{
    QCOMPARE(device->configuration.size(), 4);
    const QVariant filterValue = device->configuration.at(0).second;
    QCOMPARE(filterValue.metaType(), QMetaType::fromType<QList<QCanBusDevice::Filter>>());
    const auto filters = filterValue.value<QList<QCanBusDevice::Filter>>();
    QCOMPARE(filters.size(), 1);
    QCOMPARE(filters.at(0).frameId, 0u);
    QCOMPARE(filters.at(0).frameIdMask, 0u);
    QCOMPARE(filters.at(0).type, QCanBusFrame::DataFrame);
    QCOMPARE(filters.at(0).format, QCanBusDevice::Filter::MatchExtendedFormat);

    for (int index = 1; index < 4; ++index) {
        const QVariant value = device->configuration.at(index).second;
        QCOMPARE(value.metaType(), QMetaType::fromType<bool>());
        QCOMPARE(value.toBool(), false);
    }
}

void tst_canlink::initConnectsEachSignalOnce()
{
    emit device->framesWritten(1);
    emit device->errorOccurred(QCanBusDevice::WriteError);
    emit device->stateChanged(QCanBusDevice::ClosingState);
    receive({frame(0x10000000)});
    QCOMPARE(events(), transcript(R"(
        debug |canFramesWritten: CAN Frame Written|
        critical |canFrameError: CAN Error QCanBusDevice::WriteError|
        info |canStateChanged: New CAN State QCanBusDevice::ClosingState|
        debug |onFramesReceived: Frame: 0x "10000000" Payload: ""|
        warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  4|
    )"));
}

void tst_canlink::initWithoutDeviceSetsNothing()
{
    FakeCanDevice::behaviour.creationError = u"No such plugin: 'socketcan'"_s;
    CanBusManager fresh(nullptr);
    QVERIFY(!fresh.init());
    QCOMPARE(events(), transcript(R"(
        critical |Moorline: Failed to create device  "No such plugin: 'socketcan'"|
    )"));
    QCOMPARE(fresh.canDevice, nullptr);
    QCOMPARE(fresh.serialNumber, QString());
    QCOMPARE(fresh.multiPacketTransfer.infoParam1, 0u);
    QCOMPARE(fresh.multiPacketTransfer.infoParam2, 0u);
    QCOMPARE(fresh.multiPacketTransfer.infoParam3, 0u);
    QCOMPARE(fresh.multiPacketTransfer.infoFrameLimit, 0u);
    QCOMPARE(int(fresh.multiPacketTransfer.infoFlag), 0);
}

void tst_canlink::initWithRefusedConnectionSetsEverything()
{
    FakeCanDevice::behaviour.refusesConnection = true;
    CanBusManager fresh(nullptr);
    QVERIFY(!fresh.init());
    // The device's own report comes through the connections; init() adds nothing.
    QCOMPARE(events(), transcript(R"(
        info |Connecting to "name of can0"|
        info |canStateChanged: New CAN State QCanBusDevice::ConnectingState|
        critical |canFrameError: CAN Error QCanBusDevice::ConnectionError|
        info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
    )"));
    const std::unique_ptr<FakeCanDevice> itsDevice(FakeCanDevice::latest);
    QCOMPARE(fresh.canDevice, itsDevice.get());
    QCOMPARE(fresh.serialNumber, u"NotReceived"_s);
    QCOMPARE(fresh.multiPacketTransfer.infoParam3, 60000u);
    QCOMPARE(int(fresh.multiPacketTransfer.infoFlag), 1);
    QCOMPARE(itsDevice->configuration.size(), 4);

    emit itsDevice->framesWritten(1);
    emit itsDevice->framesReceived();
    QCOMPARE(events(), transcript("debug |canFramesWritten: CAN Frame Written|"));
}

void tst_canlink::destructionLeavesTheDeviceAlone()
{
    const QPointer<QCanBusDevice> kept(device.get());
    manager.reset();
    QVERIFY(kept);
    QCOMPARE(kept->state(), QCanBusDevice::ConnectedState);
    QCOMPARE(events(), QStringList());
}

void tst_canlink::destructionClosesAnOpenOutputFile()
{
    session().outputFile.setFileName(ServiceTree::path("pendingUpdates/file.log"));
    QVERIFY(session().outputFile.open(QIODevice::WriteOnly));
    QCOMPARE(session().outputFile.write("held back"), 9);
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
    manager.reset();
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "held back");
}

void tst_canlink::secondParentlessReceiverHasItsOwnRecord()
{
    CanBusManager other(nullptr);
    session().fileSize = 7;
    QCOMPARE(other.multiPacketTransfer.fileSize, 0u);
    QVERIFY(manager->findChildren<KV_MultiPacket_Transfer *>().isEmpty());
}

void tst_canlink::writeFrameSendsExtendedDataFrames_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("least identifier of a message") << 0x0C000000u << QByteArray() << transcript(R"(
        sent 0c000000 ext []
        debug |writeFrame: Frame sent with ID: "c000000"|
    )");
    QTest::newRow("one byte") << 0x1B5830BAu << QByteArray::fromHex("01") << transcript(R"(
        sent 1b5830ba ext [01]
        debug |writeFrame: Frame sent with ID: "1b5830ba"|
    )");
    QTest::newRow("eight bytes") << 0x0F584000u << QByteArray::fromHex("00ff7f8001020304")
                                 << transcript(R"(
        sent 0f584000 ext [00 ff 7f 80 01 02 03 04]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
    QTest::newRow("more than a classic frame holds")
        << 0x0F584000u << QByteArray::fromHex("0102030405060708090a0b0c") << transcript(R"(
        sent 0f584000 ext fd [01 02 03 04 05 06 07 08 09 0a 0b 0c]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )");
    QTest::newRow("identifier that no message has") << 0x7FFu << QByteArray() << transcript(R"(
        sent 000007ff base []
        debug |writeFrame: Frame sent with ID: "7ff"|
    )");
}

void tst_canlink::writeFrameSendsExtendedDataFrames()
{
    QFETCH(quint32, identifier);
    QFETCH(QByteArray, payload);
    manager->writeFrame(identifier, payload);
    QTEST(events(), "expected");
}

void tst_canlink::writeFrameReportsRefusal()
{
    FakeCanDevice::behaviour.writeError = u"Cannot write CAN frame: no buffer space available"_s;
    manager->writeFrame(0x0F584000, "x");
    QCOMPARE(events(), transcript(R"(
        warning |writeFrame: Failed to write frame: "Cannot write CAN frame: no buffer space available"|
    )"));
}

void tst_canlink::writeFrameKeepsNothingOfARefusedFrame()
{
    FakeCanDevice::behaviour.writeError = u"full"_s;
    session().fileSize = 10;
    receive({frame(0x1B1A0000, "03 08 05 00 00 00")});
    QVERIFY(events().contains(u"warning |writeFrame: Failed to write frame: \"full\"|"_s));
    // The handler does not learn of it, and nothing is sent again later.
    QCOMPARE(session().fileSize, 5u);
    FakeCanDevice::behaviour.writeError.clear();
    emit device->framesWritten(1);
    QCoreApplication::processEvents();
    QCOMPARE(events(), transcript("debug |canFramesWritten: CAN Frame Written|"));
}

void tst_canlink::framesWrittenIsLoggedWithoutCount()
{
    emit device->framesWritten(17);
    QCOMPARE(events(), transcript("debug |canFramesWritten: CAN Frame Written|"));
}

void tst_canlink::deviceErrorsAreLogged_data()
{
    QTest::addColumn<QCanBusDevice::CanBusError>("error");
    QTest::addColumn<QString>("name");

    QTest::newRow("no error") << QCanBusDevice::NoError << u"NoError"_s;
    QTest::newRow("read") << QCanBusDevice::ReadError << u"ReadError"_s;
    QTest::newRow("write") << QCanBusDevice::WriteError << u"WriteError"_s;
    QTest::newRow("connection") << QCanBusDevice::ConnectionError << u"ConnectionError"_s;
    QTest::newRow("configuration") << QCanBusDevice::ConfigurationError << u"ConfigurationError"_s;
    QTest::newRow("unknown") << QCanBusDevice::UnknownError << u"UnknownError"_s;
    QTest::newRow("operation") << QCanBusDevice::OperationError << u"OperationError"_s;
    QTest::newRow("timeout") << QCanBusDevice::TimeoutError << u"TimeoutError"_s;
}

void tst_canlink::deviceErrorsAreLogged()
{
    QFETCH(QCanBusDevice::CanBusError, error);
    QFETCH(QString, name);
    device->reportError(u"text that is not logged"_s, error);
    QCOMPARE(events(),
             QStringList{u"critical |canFrameError: CAN Error QCanBusDevice::"_s + name + u'|'});
    QCOMPARE(device->state(), QCanBusDevice::ConnectedState);
}

void tst_canlink::deviceStatesAreLogged_data()
{
    QTest::addColumn<QCanBusDevice::CanBusDeviceState>("state");
    QTest::addColumn<QString>("name");

    QTest::newRow("unconnected") << QCanBusDevice::UnconnectedState << u"UnconnectedState"_s;
    QTest::newRow("connecting") << QCanBusDevice::ConnectingState << u"ConnectingState"_s;
    QTest::newRow("closing") << QCanBusDevice::ClosingState << u"ClosingState"_s;
}

void tst_canlink::deviceStatesAreLogged()
{
    QFETCH(QCanBusDevice::CanBusDeviceState, state);
    QFETCH(QString, name);
    device->reportState(state);
    QCOMPARE(events(),
             QStringList{u"info |canStateChanged: New CAN State QCanBusDevice::"_s + name + u'|'});
}

void tst_canlink::lostDeviceStaysLost()
{
    device->reportState(QCanBusDevice::UnconnectedState);
    QCoreApplication::processEvents();
    QCOMPARE(events(), transcript(R"(
        info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
    )"));
    QCOMPARE(device->state(), QCanBusDevice::UnconnectedState);
    QCOMPARE(FakeCanDevice::requests.size(), 1);
    QCOMPARE(manager->canDevice, device.get());
}

void tst_canlink::framesAreRoutedByProtocolType_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("P3 response") << 0x0C004123u << transcript(R"(
        debug |onFramesReceived: Frame: 0x "C004123" Payload: ""|
        debug |onFramesReceived: Simple CAN Message|
        info |onFramesReceived: Simple CAN Response Message|
        warning |processP3CanResponse: Simple Response Frame sent to Dockhand:  291  - No Action|
    )");
    QTest::newRow("P3 command") << 0x0C000000u << transcript(R"(
        debug |onFramesReceived: Frame: 0x "C000000" Payload: ""|
        debug |onFramesReceived: Simple CAN Message|
        info |onFramesReceived: Simple CAN Command Message|
        debug |processP3CanCommand: Received P3 Frame srcID:  0  destID:  0  interfaceID:  0 opID:  0|
        warning |processP3CanCommand: Frame received by Shipwright on unhandled Interface ID: "0"|
    )");
    QTest::newRow("P5") << 0x14000000u << transcript(R"(
        debug |onFramesReceived: Frame: 0x "14000000" Payload: ""|
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
    )");
    QTest::newRow("P6") << 0x18000000u << transcript(R"(
        debug |onFramesReceived: Frame: 0x "18000000" Payload: ""|
        info |onFramesReceived: Multipacket CAN Message|
        debug |processP6CanCommand: Received P6 Frame srcID:  0  destID:  0  p6Type:  0 cmdResp:  0|
    )");
    const auto unhandled = [](const char *id, const char *type) {
        return QStringList{
            u"debug |onFramesReceived: Frame: 0x \"%1\" Payload: \"\"|"_s.arg(
                QLatin1StringView(id)),
            u"warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  %1|"_s.arg(
                QLatin1StringView(type))};
    };
    QTest::newRow("type 0") << 0x00000123u << unhandled("123", "0");
    QTest::newRow("type 1") << 0x04000000u << unhandled("4000000", "1");
    QTest::newRow("type 2") << 0x0BFFFFFFu << unhandled("BFFFFFF", "2");
    QTest::newRow("type 4") << 0x10000000u << unhandled("10000000", "4");
    QTest::newRow("type 7") << 0x1FFFFFFFu << unhandled("1FFFFFFF", "7");
}

void tst_canlink::framesAreRoutedByProtocolType()
{
    QFETCH(quint32, identifier);
    receive({frame(identifier)});
    QTEST(events(), "expected");
    QCOMPARE(device->framesAvailable(), 0);
}

void tst_canlink::errorFrameIsOfUnknownProtocol()
{
    receive({errorFrame()});
    QCOMPARE(events(), transcript(R"(
        debug |onFramesReceived: Frame: 0x "0" Payload: ""|
        warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  0|
    )"));
}

void tst_canlink::payloadIsLoggedInUpperCaseWithHyphens()
{
    receive({frame(0x1000ABCD, "01 0a ff")});
    QCOMPARE(events(), transcript(R"(
        debug |onFramesReceived: Frame: 0x "1000ABCD" Payload: "01-0A-FF"|
        warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  4|
    )"));
}

void tst_canlink::burstIsHandledInOneCallInOrder()
{
    receive({frame(0x14000000, "01"), frame(0x0F1A02C0, "a55a"), frame(0x14000000, "02")});
    QCOMPARE(events(), transcript(R"(
        debug |onFramesReceived: Frame: 0x "14000000" Payload: "01"|
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
        debug |onFramesReceived: Frame: 0x "F1A02C0" Payload: "A5-5A"|
        debug |onFramesReceived: Simple CAN Message|
        info |onFramesReceived: Simple CAN Command Message|
        debug |processP3CanCommand: Received P3 Frame srcID:  24  destID:  26  interfaceID:  11 opID:  0|
        debug |processP3CanCommand: Dockhand received frame on the Shipwright interface|
        info |processP3CanCommand: Start Config Writing Command Received|
        display "Connected to Shipwright" on "Waiting for transfer" on 0 on
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext [5a a5]
        debug |writeFrame: Frame sent with ID: "f584000"|
        debug |onFramesReceived: Frame: 0x "14000000" Payload: "02"|
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
    )"));
}

void tst_canlink::frameQueuedMeanwhileIsHandledInTheSameCall()
{
    FakeCanDevice::behaviour.onWrite = [this](const QCanBusFrame &) {
        device->queue({frame(0x14000000)});
    };
    receive({frame(0x0F1A02C4)});
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |onFramesReceived: Simple CAN Command Message|
        info |processP3CanCommand: End Configuration Command Received|
        display "Configuration Complete" on "Empty" off 1 on
        sent 0f584000 ext []
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
    )"));
}

void tst_canlink::invalidFrameIsRoutedLikeAnyOther()
{
    QCanBusFrame invalid = frame(0x14000000);
    invalid.setFrameType(QCanBusFrame::InvalidFrame);
    receive({invalid, frame(0x10000000)});
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
        warning |onFramesReceived: Unhanlded Protocol Type CAN Message:  4|
    )"));
}

void tst_canlink::queueOfALostDeviceIsLeft()
{
    device->queue({frame(0x14000000)});
    device->reportState(QCanBusDevice::UnconnectedState);
    events();
    emit device->framesReceived();
    QCOMPARE(events(), transcript(R"(
        warning(qt.canbus) |Cannot read frame as device is not connected.|
        critical |canFrameError: CAN Error QCanBusDevice::OperationError|
    )"));
    QCOMPARE(device->framesAvailable(), 1);
}

void tst_canlink::deviceLostDuringABurstEndsTheDrain()
{
    FakeCanDevice::behaviour.onWrite = [this](const QCanBusFrame &) {
        device->reportState(QCanBusDevice::UnconnectedState);
    };
    receive({frame(0x0F1A02C4), frame(0x14000000)});
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |onFramesReceived: Simple CAN Command Message|
        info |processP3CanCommand: End Configuration Command Received|
        display "Configuration Complete" on "Empty" off 1 on
        info |canStateChanged: New CAN State QCanBusDevice::UnconnectedState|
        sent 0f584000 ext []
        warning(qt.canbus) |Cannot read frame as device is not connected.|
        critical |canFrameError: CAN Error QCanBusDevice::OperationError|
    )"));
    QCOMPARE(device->framesAvailable(), 1);
}

void tst_canlink::p3ResponseIsLoggedOnly_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QString>("number");

    QTest::newRow("ten bits") << 0x0F584123u << u"291"_s;
    QTest::newRow("none but them") << 0x0FFF7C00u << u"0"_s;
    QTest::newRow("all of them") << 0x0C0043FFu << u"1023"_s;
}

void tst_canlink::p3ResponseIsLoggedOnly()
{
    QFETCH(quint32, identifier);
    QFETCH(QString, number);
    call("processP3CanResponse", frame(identifier, "010203"));
    QCOMPARE(events(),
             QStringList{u"warning |processP3CanResponse: Simple Response Frame sent to "
                         "Dockhand:  %1  - No Action|"_s.arg(number)});
}

void tst_canlink::p3EventIsLoggedOnly_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QString>("number");

    QTest::newRow("fourteen bits") << 0x0F583FFFu << u"16383"_s;
    QTest::newRow("none but them") << 0x0FFFC000u << u"0"_s;
    QTest::newRow("more than a response has") << 0x0C002123u << u"8483"_s;
}

void tst_canlink::p3EventIsLoggedOnly()
{
    QFETCH(quint32, identifier);
    QFETCH(QString, number);
    call("processP3CanEvent", frame(identifier, "010203"));
    QCOMPARE(events(),
             QStringList{u"warning |processP3CanEvent: Simple Event Frame sent to "
                         "Dockhand:  %1  - No Action|"_s.arg(number)});
}

void tst_canlink::p5MessageIsLoggedOnly()
{
    call("processP5CanMessage", frame(0x15554321, "0102030405060708"));
    QCOMPARE(events(), transcript(R"(
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
    )"));
}

void tst_canlink::filteredLevelsEvaluateNothing()
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
    device->queue({frame(0x1B1AF000, "0102030405060708"), frame(0x1B1AF010, "0102030405060708")});
    const long before = allocations();
    emit device->framesReceived();
    const long after = allocations();
    QCOMPARE(session().expectedFrameNumber, 2u);
    QCOMPARE(after - before, 0L);
    QCOMPARE(events(), QStringList());
}

void tst_canlink::filteredLevelsLeaveTheOthers()
{
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);
    const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules(QString()); });
    receive({frame(0x14000000)});
    QCOMPARE(events(), transcript(R"(
        info |onFramesReceived: Config File Transfer CAN Message|
        warning |processP5CanMessage: Config File P5 Message Frame sent to Dockhand  - No Action|
    )"));
}

QTEST_GUILESS_MAIN(tst_canlink)
#include "tst_canlink.moc"
