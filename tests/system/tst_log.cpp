#include "broker.h"
#include "busclient.h"
#include "receiverprocess.h"
#include "servicetree.h"

#include <QFile>
#include <QSaveFile>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

QByteArrayList transcript()
{
    QFile file(QFINDTESTDATA("session.log"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no transcript");
    QByteArrayList lines = file.readAll().split('\n');
    lines.removeLast();
    return lines;
}

} // namespace

/// What the receiver logs: every line of a session, and the faults of the bus.
class TestLog : public QObject
{
    Q_OBJECT

private:
    void setFaults(const QByteArray &lines)
    {
        QSaveFile file(m_receiver->directory() + u"/faults"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(lines);
        QVERIFY(file.commit());
    }

    /// A configuration of two frames, clock and serial number, and frames that get no answer.
    void playSession()
    {
        ServiceTree::write("application/main/stats.db", "");
        QVERIFY(m_receiver->start());
        QCOMPARE(m_tool->request("0F1A02C0#A55A"), "0F584000#5AA5");
        QCOMPARE(m_tool->request("1B1A0000#00080D000000"), "1B580000#0A3FE803E80360EA");
        QCOMPARE(m_tool->request("1B1A1000#0008000001000000"), "1B581000#0000000000000000");
        QCOMPARE(
            m_tool->request("1B1A2000#0201000000 1B1AF000#7B22766F6C756D65 1B1AF010#223A31317D "
                            "1B1A3000#32B85095"),
            "1B583000#00");
        QCOMPARE(m_tool->request("1B1A4000#32B85095"), "1B584000#32B85095");
        QCOMPARE(m_tool->request("0F1A02C1#1803050E0709"), "0F584000#1803050E0709");
        QCOMPARE(m_tool->request("0F1A02C2#0C534E3132333435"), "0F584000#");
        QCOMPARE(m_tool->request("0F1A02C3#3637383930"), "0F584000#");
        QVERIFY(
            m_tool->send("0F1A42C0# 141A0000#01 101A0000#02 1B1A5000#03 0F1902C0#04 0F1A02C5#05"));
        QCOMPARE(m_tool->request("0F1A0AC4#"), "0F584800#");
    }

    std::unique_ptr<ReceiverProcess> m_receiver;
    std::unique_ptr<BusClient> m_tool;

private slots:
    void init()
    {
        ServiceTree::reset();
        m_tool = std::make_unique<BusClient>();
        m_receiver = std::make_unique<ReceiverProcess>();
        m_receiver->setVariable(u"VIRTUALBUS_FAULTS"_s, m_receiver->directory() + u"/faults"_s);
        m_receiver->setVariable(u"DOCKHAND_STAND_IN_LOG"_s, u"/dev/null"_s);
    }

    void cleanup()
    {
        QVERIFY(m_receiver->isRunning());
        m_receiver.reset();
        m_tool.reset();
    }

    void everyLineOfASession()
    {
        playSession();
        QVERIFY(m_tool->isSilent());
        const QByteArrayList expected = transcript();
        const QByteArrayList log = m_receiver->log();
        for (qsizetype i = 0; i < std::min(log.size(), expected.size()); ++i)
            QCOMPARE(log.at(i), expected.at(i));
        QCOMPARE(log.size(), expected.size());
    }

    /// The device signals several frames at once; they are handled in order.
    void recordThatArrivesAtOnceIsLoggedTheSame()
    {
        setFaults("batch 4");
        QVERIFY(m_receiver->start());
        QVERIFY(m_tool->send("1B1A2000#0201000000"));
        QVERIFY(m_tool->send("1B1AF000#7B22766F6C756D65"));
        QVERIFY(m_tool->send("1B1AF010#223A31317D"));
        QVERIFY(m_tool->isSilent());
        QCOMPARE(m_receiver->log().size(), 3);
        QCOMPARE(m_tool->request("1B1A3000#32B85095"), "1B583000#00");

        QByteArrayList frames;
        const QByteArrayList log = m_receiver->log();
        for (const QByteArray &line : log) {
            if (line.startsWith("debug|default|onFramesReceived: Frame: "))
                frames.append(line);
        }
        QCOMPARE(
            frames,
            (QByteArrayList{
                "debug|default|onFramesReceived: Frame: 0x \"1B1A2000\" Payload: \"02-01-00-00-00\"",
                "debug|default|onFramesReceived: Frame: 0x \"1B1AF000\" Payload: \"7B-22-76-6F-6C-75-6D-65\"",
                "debug|default|onFramesReceived: Frame: 0x \"1B1AF010\" Payload: \"22-3A-31-31-7D\"",
                "debug|default|onFramesReceived: Frame: 0x \"1B1A3000\" Payload: \"32-B8-50-95\""}));
    }

    void busError()
    {
        QVERIFY(m_receiver->start());
        QCOMPARE(m_tool->request("0F1A02C0#A55A"), "0F584000#5AA5");
        setFaults("error");
        QVERIFY(m_receiver->waitForLog(
            "critical|default|canFrameError: CAN Error QCanBusDevice::ReadError"));
        QCOMPARE(m_tool->request("0F1A02C0#A55A"), "0F584000#5AA5");
    }

    void disconnect()
    {
        QVERIFY(m_receiver->start());
        QCOMPARE(m_tool->request("0F1A02C0#A55A"), "0F584000#5AA5");
        setFaults("disconnect");
        QVERIFY(m_receiver->waitForLog(
            "info|default|canStateChanged: New CAN State QCanBusDevice::UnconnectedState"));
        QVERIFY(m_tool->send("0F1A02C0#A55A"));
        QVERIFY(m_tool->isSilent());
    }

    void lossOfTheBus()
    {
        const QByteArray commonBus = qgetenv("VIRTUALBUS_SOCKET");
        Broker broker;
        m_receiver->setVariable(u"VIRTUALBUS_SOCKET"_s, broker.path());
        qputenv("VIRTUALBUS_SOCKET", commonBus);
        QVERIFY(m_receiver->start());
        QVERIFY(broker.stop());
        QVERIFY(m_receiver->waitForLog(
            "info|default|canStateChanged: New CAN State QCanBusDevice::UnconnectedState"));
        QCOMPARE(
            m_receiver->log().mid(3),
            (QByteArrayList{
                "critical|default|canFrameError: CAN Error QCanBusDevice::ConnectionError",
                "info|default|canStateChanged: New CAN State QCanBusDevice::UnconnectedState"}));
    }

    void failureToWrite()
    {
        setFaults("write");
        QVERIFY(m_receiver->start());
        QVERIFY(m_tool->send("0F1A02C0#A55A"));
        QVERIFY(m_receiver->waitForLog(
            "warning|default|writeFrame: Failed to write frame: \"Bus fault: write\""));
        QVERIFY(m_receiver->log().contains(
            "critical|default|canFrameError: CAN Error QCanBusDevice::WriteError"));
        QVERIFY(m_tool->isSilent());
        // The answer is lost. Later commands are answered again.
        setFaults("");
        QTRY_COMPARE(m_tool->request("0F1A0AC0#A55A"), "0F584800#5AA5");
    }
};

QTEST_GUILESS_MAIN(TestLog)
#include "tst_log.moc"
