#include "broker.h"
#include "busclient.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QFileInfo>
#include <QTest>

#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

/// The broker, with participants that send raw frames; and the plugin, loaded through QCanBus. The
/// tests that use the bus faults show that they work.
class TestVirtualBus : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Broker> m_broker;

    static std::unique_ptr<QCanBusDevice> connected(const QString &interfaceName = u"can0"_s)
    {
        std::unique_ptr<QCanBusDevice> device(
            QCanBus::instance()->createDevice(u"socketcan"_s, interfaceName));
        if (!device || !device->connectDevice())
            qFatal("no device");
        return device;
    }

    /// Frames that carry their sender's number as the identifier, and a count.
    static QByteArray numbered(quint32 sender, quint32 first, quint32 last)
    {
        QByteArray result;
        for (quint32 count = first; count < last; ++count) {
            can_frame frame{};
            frame.can_id = CAN_EFF_FLAG | sender;
            frame.can_dlc = sizeof count;
            std::memcpy(frame.data, &count, sizeof count);
            result.append(reinterpret_cast<const char *>(&frame), sizeof frame);
        }
        return result;
    }

    static quint32 countOf(const QByteArray &text)
    {
        quint32 count;
        std::memcpy(&count, BusClient::parse(text).data, sizeof count);
        return count;
    }

private slots:
    void init() { m_broker = std::make_unique<Broker>(); }
    void cleanup() { m_broker.reset(); }

    void frameReachesAllOthersUnchanged()
    {
        BusClient sender, second, third;
        for (const QByteArray &frame :
             QByteArrayList{"0F1A02C0#A55A", "1FFFFFFF#FFEEDDCCBBAA9988", "00000001#00",
                            "7FF#0102030405060708", "123#", "0F1A02C0#R"}) {
            QVERIFY(sender.send(frame));
            QCOMPARE(second.receive(), frame);
            QCOMPARE(third.receive(), frame);
        }
        QVERIFY(sender.isSilent());
    }

    void receiverThatConnectedFirstSeesTheFirstFrame()
    {
        for (int i = 0; i < 200; ++i) {
            BusClient receiver, sender;
            QVERIFY(sender.send("0F1A02C0#A55A"));
            QCOMPARE(receiver.receive(), "0F1A02C0#A55A");
        }
    }

    void twoWritersGiveOneOrderForAllReaders()
    {
        constexpr quint32 each = 1000;
        BusClient first, second, third, fourth;
        for (quint32 i = 0; i < each; ++i) {
            QVERIFY(first.sendBytes(numbered(1, i, i + 1)));
            QVERIFY(second.sendBytes(numbered(2, i, i + 1)));
        }
        quint32 next[2] = {0, 0};
        for (quint32 i = 0; i < 2 * each; ++i) {
            const QByteArray text = third.receive();
            QCOMPARE(fourth.receive(), text);
            QCOMPARE(countOf(text), next[text.startsWith("00000002")]++);
        }
        QCOMPARE(next[0], each);
    }

    void frameInPiecesArrivesWhole()
    {
        BusClient sender, receiver;
        const QByteArray bytes = numbered(5, 0, 3);
        QVERIFY(sender.sendBytes(bytes.left(20)));
        QCOMPARE(receiver.receive(), "00000005#00000000");
        QVERIFY(receiver.isSilent());
        QVERIFY(sender.sendBytes(bytes.mid(20)));
        QCOMPARE(receiver.receive(), "00000005#01000000");
        QCOMPARE(receiver.receive(), "00000005#02000000");
    }

    void framesOfAParticipantThatDiedMidFrameArrive()
    {
        constexpr quint32 total = 5000;
        BusClient sender, receiver;
        {
            BusClient dying;
            QVERIFY(dying.sendBytes(numbered(7, 0, total) + numbered(7, 0, 1).left(5)));
        }
        for (quint32 count = 0; count < total; ++count)
            QCOMPARE(countOf(receiver.receive()), count);
        QVERIFY(sender.send("0F1A02C0#A55A"));
        QCOMPARE(receiver.receive(), "0F1A02C0#A55A");
    }

    void eachInterfaceIsABusOfItsOwn()
    {
        const QString first = m_broker->path();
        const QString second = QFileInfo(first).path() + u"/can1"_s;
        auto can0 = connected();
        const Broker other(second);
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

    void deviceSendsFramesUnchanged()
    {
        QCanBusFrame small(1, QByteArray(1, '\0'));
        small.setExtendedFrameFormat(true);
        QCanBusFrame remote(0x0F584000, QByteArray());
        remote.setFrameType(QCanBusFrame::RemoteRequestFrame);
        const std::pair<QCanBusFrame, const char *> rows[] = {
            {QCanBusFrame(0x0F584000, QByteArray::fromHex("5AA5")), "0F584000#5AA5"},
            {QCanBusFrame(0x1FFFFFFF, QByteArray(8, '\xA5')), "1FFFFFFF#A5A5A5A5A5A5A5A5"},
            {QCanBusFrame(0x7FF, QByteArray(1, '\0')), "7FF#00"},
            {small, "00000001#00"},
            {remote, "0F584000#R"},
        };
        BusClient client;
        auto device = connected();
        for (const auto &[frame, text] : rows) {
            QVERIFY(device->writeFrame(frame));
            QCOMPARE(device->framesToWrite(), 1);
            QVERIFY(device->waitForFramesWritten(1000));
            QCOMPARE(device->framesToWrite(), 0);
            QCOMPARE(client.receive(), text);
        }
        QVERIFY(!device->writeFrame(QCanBusFrame(0x0F584000, QByteArray(12, 'x'))));
        QCOMPARE(device->error(), QCanBusDevice::WriteError);
    }

    void deviceReceivesFramesUnchanged()
    {
        auto device = connected();
        BusClient client;
        QVERIFY(client.send("0F1A02C0#A55A 00000001#FFEEDDCCBBAA9988 7FF# 0F1A02C0#R"));
        QTRY_COMPARE(device->framesAvailable(), 4);
        for (const auto *text : {"0f1a02c0   [2]  A5 5A", "00000001   [8]  FF EE DD CC BB AA 99 88",
                                 "7ff   [0]", "0f1a02c0   [0]  Remote Request"})
            QCOMPARE(device->readFrame().toString().trimmed().toLower(),
                     QString::fromLatin1(text).toLower());
    }

    void framesOfADeviceLeaveInOrderAndWaitForAReader()
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

    void framesWrittenBeforeDisconnectingLeave()
    {
        BusClient client;
        auto device = connected();
        QVERIFY(device->writeFrame(QCanBusFrame(0x0F584000, QByteArray())));
        device->disconnectDevice();
        QCOMPARE(client.receive(), "0F584000#");
    }

    void deviceFiltersLikeSocketCan()
    {
        using Filter = QCanBusDevice::Filter;
        const auto passing = [](const QList<Filter> &filters) {
            auto device = connected();
            device->setConfigurationParameter(QCanBusDevice::RawFilterKey,
                                              QVariant::fromValue(filters));
            BusClient client;
            client.send("123#01 0F1A02C0#02 00000123#03 123#R 0F1A02C0#R 00000777#04");
            QTest::qWait(100);
            QByteArray result;
            while (device->framesAvailable() > 0) {
                const QCanBusFrame frame = device->readFrame();
                result += QByteArray::number(frame.frameId(), 16)
                    + (frame.hasExtendedFrameFormat() ? 'x' : 'b')
                    + (frame.frameType() == QCanBusFrame::DataFrame ? "d " : "r ");
            }
            return result;
        };
        const Filter extendedData{0, 0, QCanBusFrame::DataFrame, Filter::MatchExtendedFormat};
        const Filter base{0, 0, QCanBusFrame::InvalidFrame, Filter::MatchBaseFormat};
        const Filter remote{0x123, 0x7FF, QCanBusFrame::RemoteRequestFrame};
        const Filter protocol{0x0F000000, 0x1F000000};
        QCOMPARE(passing({}), "123bd f1a02c0xd 123xd 123br f1a02c0xr 777xd ");
        QCOMPARE(passing({extendedData}), "f1a02c0xd 123xd 777xd ");
        QCOMPARE(passing({base}), "123bd 123br ");
        QCOMPARE(passing({remote, protocol}), "f1a02c0xd 123br f1a02c0xr ");
    }
};

QTEST_GUILESS_MAIN(TestVirtualBus)
#include "tst_virtualbus.moc"
