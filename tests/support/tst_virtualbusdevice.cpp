#include "broker.h"
#include "busclient.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

/// Which frames pass \a filters: identifier, base or extended format, data or remote frame.
QByteArrayList passing(QCanBusDevice &device, const QList<QCanBusDevice::Filter> &filters)
{
    device.setConfigurationParameter(QCanBusDevice::RawFilterKey, QVariant::fromValue(filters));
    BusClient client;
    client.send("123#01 0F1A02C0#02 00000123#03 123#R 0F1A02C0#R 00000777#04");
    QTest::qWait(100);
    QByteArrayList result;
    while (device.framesAvailable() > 0) {
        const QCanBusFrame frame = device.readFrame();
        result.append(QByteArray::number(frame.frameId(), 16)
                      + (frame.hasExtendedFrameFormat() ? 'x' : 'b')
                      + (frame.frameType() == QCanBusFrame::DataFrame ? 'd' : 'r'));
    }
    return result;
}

} // namespace

/// The plugin that takes the place of "socketcan", as a program finds it through QCanBus.
class TestVirtualBusDevice : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QCanBusDevice> create(const QString &interfaceName = u"can0"_s)
    {
        return std::unique_ptr<QCanBusDevice>(
            QCanBus::instance()->createDevice(u"socketcan"_s, interfaceName, &m_error));
    }

    std::unique_ptr<QCanBusDevice> connected(const QString &interfaceName = u"can0"_s)
    {
        std::unique_ptr<QCanBusDevice> device = create(interfaceName);
        if (!device || !device->connectDevice())
            qFatal("no device");
        return device;
    }

    void setFaults(const QByteArray &lines)
    {
        QSaveFile file(m_faults);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(lines);
        QVERIFY(file.commit());
    }

    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_faults;
    QString m_error;

private slots:
    void init()
    {
        m_broker = std::make_unique<Broker>();
        m_directory = std::make_unique<QTemporaryDir>();
        m_faults = m_directory->filePath(u"faults"_s);
        qputenv("VIRTUALBUS_FAULTS", QFile::encodeName(m_faults));
    }

    void cleanup()
    {
        m_broker.reset();
        m_directory.reset();
    }

    void connectsAtOnce()
    {
        auto device = create();
        QVERIFY(device);
        QCOMPARE(m_error, QString());
        QList<QCanBusDevice::CanBusDeviceState> states;
        connect(device.get(), &QCanBusDevice::stateChanged, this,
                [&](auto state) { states.append(state); });
        QVERIFY(device->connectDevice());
        QCOMPARE(states, (QList{QCanBusDevice::ConnectingState, QCanBusDevice::ConnectedState}));
        device->disconnectDevice();
        QCOMPARE(states,
                 (QList{QCanBusDevice::ConnectingState, QCanBusDevice::ConnectedState,
                        QCanBusDevice::ClosingState, QCanBusDevice::UnconnectedState}));
    }

    void eachInterfaceIsABusOfItsOwn()
    {
        const QString first = m_broker->path();
        const QString second = QFileInfo(first).dir().filePath(u"can1"_s);
        auto can0 = connected();
        const Broker other({}, second);
        auto can0OfTheOther = connected();
        qputenv("VIRTUALBUS_SOCKET", QFile::encodeName(first));
        auto can1 = connected(u"can1"_s);
        QCOMPARE(can1->deviceInfo().name(), u"can1"_s);
        QCOMPARE(can0->deviceInfo().serialNumber(), first);
        QCOMPARE(can1->deviceInfo().serialNumber(), second);

        BusClient onFirst(first.toLocal8Bit()), onSecond(second.toLocal8Bit());
        can0->writeFrame(QCanBusFrame(0x0F584000, QByteArray()));
        can0OfTheOther->writeFrame(QCanBusFrame(0x0F584001, QByteArray()));
        QTRY_COMPARE(can1->framesAvailable(), 1);
        QCOMPARE(can1->readFrame().frameId(), 0x0F584001u);
        QCOMPARE(onFirst.receive(), "0F584000#");
        QCOMPARE(onSecond.receive(), "0F584001#");
        QVERIFY(onFirst.isSilent() && onSecond.isSilent());
        QCOMPARE(can0->framesAvailable(), 0);
    }

    void refusesToConnectWhereThereIsNoBus()
    {
        qputenv("VIRTUALBUS_SOCKET", "/nowhere/bus");
        auto device = create();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        QVERIFY(!device->connectDevice());
        QCOMPARE(device->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(device->error(), QCanBusDevice::ConnectionError);
        QCOMPARE(device->errorString(),
                 u"No virtual bus at /nowhere/bus: No such file or directory"_s);
    }

    void refusesToConnectWithoutASocket()
    {
        qunsetenv("VIRTUALBUS_SOCKET");
        auto device = create();
        QVERIFY(!device->connectDevice());
        QCOMPARE(device->errorString(), u"VIRTUALBUS_SOCKET does not name a socket"_s);
    }

    void sendsFramesUnchanged_data()
    {
        QTest::addColumn<QCanBusFrame>("frame");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("extended") << QCanBusFrame(0x0F584000, QByteArray::fromHex("5AA5"))
                                  << QByteArray("0F584000#5AA5");
        QTest::newRow("8 bytes") << QCanBusFrame(0x1FFFFFFF,
                                                 QByteArray::fromHex("FFEEDDCCBBAA9988"))
                                 << QByteArray("1FFFFFFF#FFEEDDCCBBAA9988");
        QTest::newRow("empty") << QCanBusFrame(0x0F584000, QByteArray()) << QByteArray("0F584000#");
        QTest::newRow("base") << QCanBusFrame(0x7FF, QByteArray(1, '\0')) << QByteArray("7FF#00");
        QCanBusFrame small(1, QByteArray(1, '\0'));
        small.setExtendedFrameFormat(true);
        QTest::newRow("small extended") << small << QByteArray("00000001#00");
        QCanBusFrame remote(0x0F584000, QByteArray());
        remote.setFrameType(QCanBusFrame::RemoteRequestFrame);
        QTest::newRow("remote request") << remote << QByteArray("0F584000#R");
    }

    void sendsFramesUnchanged()
    {
        QFETCH(QCanBusFrame, frame);
        QFETCH(QByteArray, text);
        BusClient client;
        auto device = connected();
        QSignalSpy written(device.get(), &QCanBusDevice::framesWritten);
        QVERIFY(device->writeFrame(frame));
        QCOMPARE(device->framesToWrite(), 1);
        QVERIFY(device->waitForFramesWritten(1000));
        QCOMPARE(device->framesToWrite(), 0);
        QCOMPARE(written.size(), 1);
        QCOMPARE(client.receive(), text);
    }

    void receivesFramesUnchanged_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QCanBusFrame::FrameType>("type");
        QTest::addColumn<bool>("extended");
        QTest::addColumn<quint32>("id");
        QTest::addColumn<QByteArray>("payload");
        QTest::newRow("extended") << QByteArray("0F1A02C0#A55A") << QCanBusFrame::DataFrame << true
                                  << 0x0F1A02C0u << QByteArray("a55a");
        QTest::newRow("small extended")
            << QByteArray("00000001#FFEEDDCCBBAA9988") << QCanBusFrame::DataFrame << true << 1u
            << QByteArray("ffeeddccbbaa9988");
        QTest::newRow("base") << QByteArray("7FF#") << QCanBusFrame::DataFrame << false << 0x7FFu
                              << QByteArray();
        QTest::newRow("remote request")
            << QByteArray("0F1A02C0#R") << QCanBusFrame::RemoteRequestFrame << true << 0x0F1A02C0u
            << QByteArray();
    }

    void receivesFramesUnchanged()
    {
        QFETCH(QByteArray, text);
        auto device = connected();
        BusClient client;
        QVERIFY(client.send(text));
        QTRY_COMPARE(device->framesAvailable(), 1);
        const QCanBusFrame frame = device->readFrame();
        QTEST(frame.frameType(), "type");
        QTEST(frame.hasExtendedFrameFormat(), "extended");
        QTEST(frame.frameId(), "id");
        QTEST(frame.payload().toHex(), "payload");
        QVERIFY(!frame.hasLocalEcho());
        QVERIFY(!frame.hasFlexibleDataRateFormat());
        QVERIFY(frame.isValid());
    }

    void framesOfOneTurnLeaveTogetherInOrder()
    {
        BusClient client;
        auto device = connected();
        QSignalSpy written(device.get(), &QCanBusDevice::framesWritten);
        for (quint32 i = 0; i < 100; ++i)
            QVERIFY(device->writeFrame(QCanBusFrame(0x0F584000 + i, QByteArray())));
        QCOMPARE(written.size(), 0);
        QTRY_COMPARE(written.size(), 1);
        QCOMPARE(written.at(0).at(0).toLongLong(), 100);
        QCOMPARE(client.receive(), "0F584000#");
        for (quint32 i = 1; i < 99; ++i)
            QVERIFY(!client.receive().isEmpty());
        QCOMPARE(client.receive(), "0F584063#");
    }

    void manyFramesLeaveWhileNobodyReads()
    {
        constexpr int total = 50'000;
        BusClient client;
        auto device = connected();
        qint64 written = 0;
        connect(device.get(), &QCanBusDevice::framesWritten, this,
                [&](qint64 count) { written += count; });
        for (quint32 i = 0; i < total; ++i)
            QVERIFY(device->writeFrame(QCanBusFrame(0x10000000 + i, QByteArray())));
        QTest::qWait(300);
        QVERIFY2(written < total, "nothing had to wait");
        for (quint32 i = 0; i < total; ++i) {
            if (written < total)
                QCoreApplication::processEvents();
            QCOMPARE(BusClient::parse(client.receive(1000)).can_id & CAN_EFF_MASK, 0x10000000 + i);
        }
        QTRY_COMPARE(written, total);
    }

    void framesOfOneReadAreSignalledOnce()
    {
        auto device = connected();
        QSignalSpy received(device.get(), &QCanBusDevice::framesReceived);
        BusClient client;
        QVERIFY(client.send("0F1A02C0#A5 0F1A02C1#5A 0F1A02C2#01"));
        QVERIFY(received.wait());
        QCOMPARE(received.size(), 1);
        QCOMPARE(device->framesAvailable(), 3);
        QCOMPARE(device->readFrame().frameId(), 0x0F1A02C0u);
        QCOMPARE(device->readFrame().frameId(), 0x0F1A02C1u);
        QCOMPARE(device->readFrame().frameId(), 0x0F1A02C2u);
    }

    void framesWrittenBeforeDisconnectingLeave()
    {
        BusClient client;
        auto device = connected();
        QVERIFY(device->writeFrame(QCanBusFrame(0x0F584000, QByteArray())));
        device->disconnectDevice();
        QCOMPARE(client.receive(), "0F584000#");
    }

    void filterForExtendedDataFrames()
    {
        auto device = connected();
        QCanBusDevice::Filter filter;
        filter.type = QCanBusFrame::DataFrame;
        filter.format = QCanBusDevice::Filter::MatchExtendedFormat;
        QCOMPARE(passing(*device, {filter}), (QByteArrayList{"f1a02c0xd", "123xd", "777xd"}));
    }

    void filterForBaseFrames()
    {
        auto device = connected();
        QCanBusDevice::Filter filter;
        filter.format = QCanBusDevice::Filter::MatchBaseFormat;
        QCOMPARE(passing(*device, {filter}), (QByteArrayList{"123bd", "123br"}));
    }

    void filterForIdentifiers()
    {
        auto device = connected();
        QCanBusDevice::Filter first, second;
        first.frameId = 0x123;
        first.frameIdMask = 0x7FF;
        first.type = QCanBusFrame::RemoteRequestFrame;
        second.frameId = 0x0F000000;
        second.frameIdMask = 0x1F000000;
        QCOMPARE(passing(*device, {first, second}),
                 (QByteArrayList{"f1a02c0xd", "123br", "f1a02c0xr"}));
    }

    void withoutAFilterEverythingPasses()
    {
        auto device = connected();
        QCOMPARE(passing(*device, {}),
                 (QByteArrayList{"123bd", "f1a02c0xd", "123xd", "123br", "f1a02c0xr", "777xd"}));
    }

    void refusesAFilterForErrorFrames()
    {
        auto device = connected();
        QCanBusDevice::Filter filter;
        filter.type = QCanBusFrame::ErrorFrame;
        device->setConfigurationParameter(
            QCanBusDevice::RawFilterKey, QVariant::fromValue(QList<QCanBusDevice::Filter>{filter}));
        QCOMPARE(device->error(), QCanBusDevice::ConfigurationError);
        QVERIFY(!device->configurationParameter(QCanBusDevice::RawFilterKey).isValid());
    }

    void refusesFdFrames()
    {
        auto device = connected();
        QVERIFY(!device->writeFrame(QCanBusFrame(0x0F584000, QByteArray(12, 'x'))));
        QCOMPARE(device->error(), QCanBusDevice::WriteError);
        QCOMPARE(device->errorString(), u"The virtual bus carries no CAN FD frames"_s);
    }

    void refusesInvalidFrames()
    {
        auto device = connected();
        QVERIFY(!device->writeFrame(QCanBusFrame(QCanBusFrame::InvalidFrame)));
        QCOMPARE(device->error(), QCanBusDevice::WriteError);
        QCOMPARE(device->errorString(), u"Cannot write invalid QCanBusFrame"_s);
    }

    void refusesToWriteUnconnected()
    {
        auto device = create();
        QVERIFY(!device->writeFrame(QCanBusFrame(0x0F584000, QByteArray())));
        QCOMPARE(device->error(), QCanBusDevice::OperationError);
    }

    void tellsErrorFramesInWords()
    {
        auto device = connected();
        QCanBusFrame frame(QCanBusFrame::ErrorFrame);
        frame.setError(QCanBusFrame::BusOffError | QCanBusFrame::LostArbitrationError);
        QCOMPARE(device->interpretErrorFrame(frame), u"lost arbitration, bus off"_s);
        QCOMPARE(device->interpretErrorFrame(QCanBusFrame(1, QByteArray())), QString());
    }

    void noticesThatTheBusIsGone()
    {
        auto device = connected();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        QVERIFY(m_broker->stop());
        QTRY_COMPARE(device->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(device->error(), QCanBusDevice::ConnectionError);
        QCOMPARE(device->errorString(), u"The virtual bus is gone"_s);
        QVERIFY(!device->writeFrame(QCanBusFrame(0x0F584000, QByteArray())));
    }

    void faultCreate()
    {
        setFaults("create");
        QVERIFY(!create());
        QCOMPARE(m_error, u"Bus fault: create"_s);
        setFaults("# create");
        QVERIFY(create());
    }

    void faultConnect()
    {
        setFaults("connect # refused");
        auto device = create();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        QVERIFY(!device->connectDevice());
        QCOMPARE(device->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(device->error(), QCanBusDevice::ConnectionError);
        QCOMPARE(device->errorString(), u"Bus fault: connect"_s);
    }

    void faultWrite()
    {
        auto device = connected();
        BusClient client;
        const QCanBusFrame frame(0x0F584000, QByteArray());
        QVERIFY(device->writeFrame(frame));
        setFaults("write");
        QTRY_VERIFY(!device->writeFrame(frame));
        QCOMPARE(device->error(), QCanBusDevice::WriteError);
        QCOMPARE(device->errorString(), u"Bus fault: write"_s);
        setFaults("");
        QTRY_VERIFY(device->writeFrame(frame));
    }

    void faultErrorStrikesOnce()
    {
        auto device = connected();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        setFaults("error");
        QVERIFY(errors.wait());
        QCOMPARE(device->error(), QCanBusDevice::ReadError);
        QCOMPARE(device->errorString(), u"Bus fault: error"_s);
        setFaults("error\nbatch 1");
        QTest::qWait(100);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(device->state(), QCanBusDevice::ConnectedState);
    }

    void faultErrorWaitsForTheConnection()
    {
        setFaults("error");
        auto device = create();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        QTest::qWait(50);
        QCOMPARE(errors.size(), 0);
        QVERIFY(device->connectDevice());
        QVERIFY(errors.wait());
        QTest::qWait(50);
        QCOMPARE(errors.size(), 1);
    }

    void faultDisconnect()
    {
        auto device = connected();
        QSignalSpy errors(device.get(), &QCanBusDevice::errorOccurred);
        setFaults("disconnect");
        QTRY_COMPARE(device->state(), QCanBusDevice::UnconnectedState);
        QCOMPARE(errors.size(), 0);
    }

    void faultBatch()
    {
        setFaults("batch 3");
        auto device = connected();
        QSignalSpy received(device.get(), &QCanBusDevice::framesReceived);
        BusClient client;
        for (int i = 0; i < 2; ++i) {
            QVERIFY(client.send("0F1A02C0#"));
            QTest::qWait(50);
            QCOMPARE(received.size(), 0);
        }
        QVERIFY(client.send("0F1A02C1#"));
        QVERIFY(received.wait());
        QCOMPARE(received.size(), 1);
        QCOMPARE(device->framesAvailable(), 3);
    }

    void heldFramesArriveWhenTheBatchEnds()
    {
        setFaults("batch 3");
        auto device = connected();
        BusClient client;
        QVERIFY(client.send("0F1A02C0#"));
        QTest::qWait(50);
        QCOMPARE(device->framesAvailable(), 0);
        setFaults("");
        QTRY_COMPARE(device->framesAvailable(), 1);
    }

    void faultsFollowAFileWrittenInPlace()
    {
        auto device = connected();
        const QCanBusFrame frame(0x0F584000, QByteArray());
        QFile file(m_faults);
        for (int round = 0; round < 3; ++round) {
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("write\n");
            file.close();
            QTRY_VERIFY(!device->writeFrame(frame));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.close();
            QTRY_VERIFY(device->writeFrame(frame));
        }
        setFaults("write");
        QTRY_VERIFY(!device->writeFrame(frame));
        QVERIFY(QFile::remove(m_faults));
        QTRY_VERIFY(device->writeFrame(frame));
    }

    void unknownFaultIsReported()
    {
        setFaults("lose\n");
        const QByteArray message = "virtualbus: unknown fault \"lose\" in \""
            + m_faults.toLocal8Bit() + '"';
        QTest::ignoreMessage(QtWarningMsg, message.constData());
        QVERIFY(create());
    }
};

QTEST_GUILESS_MAIN(TestVirtualBusDevice)
#include "tst_virtualbusdevice.moc"
