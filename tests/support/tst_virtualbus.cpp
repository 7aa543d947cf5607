#include "broker.h"
#include "busclient.h"

#include <QElapsedTimer>
#include <QTest>

#include <cstring>
#include <memory>

namespace {

/// A frame in extended format that carries a sender's number and a count.
QByteArray numbered(quint32 sender, quint32 count)
{
    can_frame frame{};
    frame.can_id = CAN_EFF_FLAG | sender;
    frame.can_dlc = sizeof count;
    std::memcpy(frame.data, &count, sizeof count);
    return {reinterpret_cast<const char *>(&frame), sizeof frame};
}

QByteArray numbered(quint32 sender, quint32 first, quint32 last)
{
    QByteArray result;
    for (quint32 count = first; count < last; ++count)
        result += numbered(sender, count);
    return result;
}

/// Receives frames that carry 0, 1, 2, ...; returns how many did before one that does not.
quint32 receiveInOrder(BusClient &client, quint32 expected)
{
    for (quint32 count = 0; count < expected; ++count) {
        const can_frame frame = BusClient::parse(client.receive());
        quint32 received;
        std::memcpy(&received, frame.data, sizeof received);
        if (frame.can_dlc != sizeof received || received != count)
            return count;
    }
    return expected;
}

} // namespace

/// The wire itself, by participants that speak raw frames.
class TestVirtualBus : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Broker> m_broker;

private slots:
    void init() { m_broker = std::make_unique<Broker>(); }
    void cleanup() { m_broker.reset(); }

    void saysWhenItIsReady()
    {
        QCOMPARE(m_broker->greeting(),
                 "virtualbus: ready on " + m_broker->path().toLocal8Bit() + '\n');
    }

    void frameReachesAllOthersUnchanged_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::newRow("extended") << QByteArray("0F1A02C0#A55A");
        QTest::newRow("extended, all bits, 8 bytes") << QByteArray("1FFFFFFF#FFEEDDCCBBAA9988");
        QTest::newRow("extended with a small identifier") << QByteArray("00000001#00");
        QTest::newRow("base") << QByteArray("7FF#0102030405060708");
        QTest::newRow("empty") << QByteArray("123#");
        QTest::newRow("remote request") << QByteArray("0F1A02C0#R");
    }

    void frameReachesAllOthersUnchanged()
    {
        QFETCH(QByteArray, frame);
        BusClient sender, second, third;
        QVERIFY(sender.send(frame));
        QCOMPARE(second.receive(), frame);
        QCOMPARE(third.receive(), frame);
    }

    void frameDoesNotComeBackToItsSender()
    {
        BusClient sender, other;
        QVERIFY(sender.send("0F1A02C0#A55A"));
        QVERIFY(other.send("0F584000#5AA5"));
        QCOMPARE(sender.receive(), "0F584000#5AA5");
        QCOMPARE(other.receive(), "0F1A02C0#A55A");
        QVERIFY(sender.isSilent());
        QVERIFY(other.isSilent());
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
        constexpr int each = 1000;
        BusClient first, second, third, fourth;
        for (quint32 i = 0; i < each; ++i) {
            QVERIFY(first.sendBytes(numbered(1, i)));
            QVERIFY(second.sendBytes(numbered(2, i)));
        }
        quint32 next[2] = {0, 0};
        for (int i = 0; i < 2 * each; ++i) {
            const QByteArray text = third.receive();
            QCOMPARE(fourth.receive(), text);
            const can_frame frame = BusClient::parse(text);
            const quint32 sender = frame.can_id & CAN_EFF_MASK;
            QVERIFY(sender == 1 || sender == 2);
            quint32 count;
            std::memcpy(&count, frame.data, sizeof count);
            QCOMPARE(count, next[sender - 1]++);
        }
    }

    void slowReaderMakesTheWriterWaitAndNothingIsLost()
    {
        constexpr quint32 total = 200'000;
        const QByteArray bytes = numbered(1, 0, total);
        BusClient writer, reader;

        qsizetype sent = 0;
        QElapsedTimer stalled;
        stalled.start();
        while (sent < bytes.size() && stalled.elapsed() < 300) {
            if (const qsizetype count = writer.trySendBytes(bytes.mid(sent, 65536)); count > 0) {
                sent += count;
                stalled.restart();
            }
        }
        QVERIFY2(sent < bytes.size() / 2, "the writer never had to wait");

        quint32 received = 0;
        while (received < total) {
            sent += writer.trySendBytes(bytes.mid(sent, 65536));
            const can_frame frame = BusClient::parse(reader.receive());
            quint32 count;
            std::memcpy(&count, frame.data, sizeof count);
            QCOMPARE(count, received++);
        }
        QCOMPARE(sent, bytes.size());
        QVERIFY(reader.isSilent());
    }

    void twoFloodersThatReadDoNotBlockEachOther()
    {
        constexpr quint32 each = 50'000;
        BusClient clients[2];
        qsizetype sent[2] = {0, 0};
        quint32 received[2] = {0, 0};
        const QByteArray bytes[2] = {numbered(1, 0, each), numbered(2, 0, each)};
        QElapsedTimer timer;
        timer.start();
        while (received[0] < each || received[1] < each) {
            QVERIFY2(timer.elapsed() < 20'000, "stuck");
            for (int i : {0, 1}) {
                sent[i] += clients[i].trySendBytes(bytes[i].mid(sent[i], 65536));
                for (QByteArray text; !(text = clients[i].receive(0)).isEmpty(); ++received[i]) {
                    quint32 count;
                    std::memcpy(&count, BusClient::parse(text).data, sizeof count);
                    QCOMPARE(count, received[i]);
                }
            }
        }
    }

    void participantThatDiesMidFrameHarmsNobody()
    {
        BusClient sender, receiver;
        {
            BusClient dying;
            QVERIFY(dying.sendBytes(numbered(7, 0) + numbered(7, 1).left(5)));
        }
        QCOMPARE(receiver.receive(), "00000007#00000000");
        QVERIFY(sender.send("0F1A02C0#A55A"));
        QCOMPARE(receiver.receive(), "0F1A02C0#A55A");
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

    void framesOfAParticipantThatLeftArrive()
    {
        constexpr quint32 total = 5000;
        BusClient receiver;
        {
            BusClient sender;
            QVERIFY(sender.sendBytes(numbered(1, 0, total)));
        }
        QCOMPARE(receiveInOrder(receiver, total), total);
    }

    void readerThatVanishesMakesNobodyWait()
    {
        constexpr quint32 total = 100'000;
        const QByteArray bytes = numbered(1, 0, total);
        BusClient writer;
        auto vanishing = std::make_unique<BusClient>();
        qsizetype sent = 0;
        QElapsedTimer stalled;
        stalled.start();
        while (sent < bytes.size() && stalled.elapsed() < 300) {
            if (const qsizetype count = writer.trySendBytes(bytes.mid(sent, 65536)); count > 0) {
                sent += count;
                stalled.restart();
            }
        }
        QVERIFY(sent < bytes.size());
        vanishing.reset();
        QVERIFY(writer.sendBytes(bytes.mid(sent)));
    }

    void bitRateLimitsTheFramesPerSecond()
    {
        m_broker = std::make_unique<Broker>(
            QStringList{QStringLiteral("--bitrate"), QStringLiteral("100000")});
        BusClient sender, receiver;
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 20; ++i) {
            QVERIFY(sender.send(
                "0F1A02C0#0102030405060708 0F1A02C0#0102030405060708 0F1A02C0#0102030405060708"));
            for (int frame = 0; frame < 3; ++frame)
                QCOMPARE(receiver.receive(), "0F1A02C0#0102030405060708");
        }
        // 131 bits last 1.31 ms; the last frame is handed on as it starts.
        QVERIFY2(timer.nsecsElapsed() >= 59 * 1'310'000,
                 qPrintable(QString::number(timer.nsecsElapsed())));
    }

    void bitRateServesSendersInTurn()
    {
        m_broker = std::make_unique<Broker>(
            QStringList{QStringLiteral("--bitrate"), QStringLiteral("100000")});
        BusClient first, second, receiver;
        QVERIFY(first.sendBytes(numbered(1, 0, 200)));
        QVERIFY(second.sendBytes(numbered(2, 0, 200)));
        int fromSecond = 0;
        for (int i = 0; i < 40; ++i)
            fromSecond += receiver.receive().startsWith("00000002#");
        QVERIFY2(fromSecond >= 10 && fromSecond <= 25, qPrintable(QString::number(fromSecond)));
    }

    void endsOnSigtermAndRemovesItsSocket()
    {
        BusClient client;
        QVERIFY(QFile::exists(m_broker->path()));
        QVERIFY(m_broker->stop());
        QCOMPARE(m_broker->process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_broker->process().exitCode(), 0);
        QVERIFY(!QFile::exists(m_broker->path()));
        QCOMPARE(client.receive(), "");
    }

    void refusesASocketThatIsInUse()
    {
        QProcess second;
        second.start(QStringLiteral(VIRTUALBUS_EXECUTABLE), {m_broker->path()});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 1);
        QCOMPARE(second.readAllStandardError(),
                 "virtualbus: " + m_broker->path().toLocal8Bit() + ": Address already in use\n");
        QVERIFY(QFile::exists(m_broker->path()));
    }

    void refusesABitRateThatIsNone()
    {
        QProcess second;
        second.start(
            QStringLiteral(VIRTUALBUS_EXECUTABLE),
            {QStringLiteral("--bitrate"), QStringLiteral("fast"), m_broker->path() + u'2'});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 2);
        QVERIFY(second.readAllStandardError().startsWith("Usage: "));
    }
};

QTEST_GUILESS_MAIN(TestVirtualBus)
#include "tst_virtualbus.moc"
