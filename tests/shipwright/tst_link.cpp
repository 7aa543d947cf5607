#include "bench.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class LinkTest : public QObject
{
    Q_OBJECT

private slots:
    void open_refusedNamesTheCause();
    void fullSendBuffer_isWaitedFor();
    void fullSendBuffer_losesNoFrameOfATransfer();
    void fullSendBuffer_forTooLongNamesTheCause();
    void slowQueue_doesNotEatTheReceiversTime();
    void stuckQueue_namesTheCause();
    void receive_takesFramesInOrder();
    void receive_skipsBaseFormatAndErrorFrames();
    void interruption_endsAWait();
    void observers_seeBothDirectionsWithTimeStamps();
    void fault_changesWhatGoesOut_data();
    void fault_changesWhatGoesOut();
    void fault_delayHoldsBackTheFrame();
    void fault_countsTheFramesOfItsKind();
    void fault_killClosesTheInterface();
    void fault_badTextIsRefused_data();
    void fault_badTextIsRefused();
};

void LinkTest::open_refusedNamesTheCause()
{
    FakeClock clock;
    FakeBus bus(clock);
    bus.refusesToOpen = true;
    Link link(bus, clock);
    const Failure failure = failureOf([&] { link.open(); });
    QCOMPARE(failure.exit, Exit::Interface);
    QCOMPARE(failure.message, u"The CAN interface cannot be opened: No such device."_s);
}

void LinkTest::fullSendBuffer_isWaitedFor()
{
    Bench bench;
    bench.bus.refusedWrites = 20;
    bench.link.send(0x1B1A4000, QByteArrayLiteral("\1"));
    QCOMPARE(bench.bus.sent, QStringList{u"1B1A4000#01"_s});
    QCOMPARE(bench.bus.writeAttempts, 21);
}

void LinkTest::fullSendBuffer_losesNoFrameOfATransfer()
{
    // A queue of ten frames, drained one frame a millisecond.
    Bench bench;
    bench.bus.onWritten = [&bench](const QCanBusFrame &) {
        if (bench.bus.sent.size() % 10 == 0)
            bench.bus.refusedWrites = 3;
    };
    bench.send(2, pattern(5000));
    QCOMPARE(bench.bus.receiver.file(2), pattern(5000));
    QCOMPARE(bench.progress.last().repeated, 0u);
}

void LinkTest::fullSendBuffer_forTooLongNamesTheCause()
{
    Bench bench;
    bench.bus.refusedWrites = 1'000'000;
    bench.bus.status = QCanBusDevice::CanBusStatus::BusOff;
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::SendBlocked);
    QCOMPARE(
        failure.message,
        u"0F1A02C0#A55A could not be sent for 1000 ms: No buffer space available; the controller "
        "is off the bus (bus-off)."_s);
    QVERIFY(failure.hint.contains(u"termination"_s));
}

void LinkTest::slowQueue_doesNotEatTheReceiversTime()
{
    // 66 frames of a record take 3.3 s to leave, more than the second that the answer may take.
    Bench bench;
    bench.bus.queueInterval = 50;
    bench.send(2, pattern(512));
    QCOMPARE(bench.bus.receiver.file(2), pattern(512));
}

void LinkTest::stuckQueue_namesTheCause()
{
    Bench bench;
    bench.bus.queueInterval = 1'000'000;
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::SendBlocked);
    QCOMPARE(failure.message, u"Frames (1) stay in the send buffer for 1000 ms."_s);
}

void LinkTest::receive_takesFramesInOrder()
{
    Bench bench;
    bench.bus.deliver(frame(0x10000001, "01"));
    bench.bus.deliver(frame(0x10000002, "02"));
    QCOMPARE(bench.link.receive(0)->frameId(), 0x10000001u);
    QCOMPARE(bench.link.receive(0)->frameId(), 0x10000002u);
    QVERIFY(!bench.link.receive(0));
}

void LinkTest::receive_skipsBaseFormatAndErrorFrames()
{
    Bench bench;
    bench.bus.deliver(QCanBusFrame(0x123, {}));
    bench.bus.deliver(QCanBusFrame(QCanBusFrame::ErrorFrame));
    bench.bus.deliver(frame(0x10000002, "02"));
    QCOMPARE(bench.link.receive(0)->frameId(), 0x10000002u);
}

void LinkTest::interruption_endsAWait()
{
    Bench bench;
    bench.clock.at(300, [&bench] { bench.link.interrupt(); });
    QCOMPARE(failureOf([&] { bench.link.receive(1000); }).exit, Exit::Interrupted);
    QCOMPARE(bench.clock.now(), 300);
}

void LinkTest::observers_seeBothDirectionsWithTimeStamps()
{
    Bench bench;
    QStringList seen;
    bench.link.addObserver([&seen](const QCanBusFrame &frame, Direction direction) {
        QVERIFY(frame.timeStamp().seconds() > 0);
        seen += (direction == Direction::Sent ? u"> "_s : u"< "_s) + text(frame);
    });
    bench.peer.startConfiguration();
    QCOMPARE(seen, (QStringList{u"> 0F1A02C0#A55A"_s, u"< 0F584000#5AA5"_s}));
}

void LinkTest::fault_changesWhatGoesOut_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QStringList>("sent");
    const QString a = u"1B1AF000#AA01"_s;
    const QString b = u"1B1AF010#BB02"_s;
    const QString c = u"1B1AF020#CC03"_s;
    QTest::newRow("none of these") << u"drop@record-end"_s << QStringList{a, b, c};
    QTest::newRow("drop") << u"drop@data:2"_s << QStringList{a, c};
    QTest::newRow("drop the first by default") << u"drop@data"_s << QStringList{b, c};
    QTest::newRow("drop a range") << u"drop@data:2-3"_s << QStringList{a};
    QTest::newRow("drop from the second on") << u"drop@any:2-"_s << QStringList{a};
    QTest::newRow("repeat") << u"repeat@data:2"_s << QStringList{a, b, b, c};
    QTest::newRow("swap") << u"swap@data:1"_s << QStringList{b, a, c};
    QTest::newRow("corrupt") << u"corrupt@data:2"_s << QStringList{a, u"1B1AF010#BA02"_s, c};
    QTest::newRow("truncate") << u"truncate@data:3"_s << QStringList{a, b, u"1B1AF020#CC"_s};
}

void LinkTest::fault_changesWhatGoesOut()
{
    QFETCH(QString, fault);
    QFETCH(QStringList, sent);
    Bench bench;
    FaultPlan faults;
    faults.add(fault);
    bench.link.setFaults(faults);
    bench.link.send(0x1B1AF000, QByteArray::fromHex("aa01"));
    bench.link.send(0x1B1AF010, QByteArray::fromHex("bb02"));
    bench.link.send(0x1B1AF020, QByteArray::fromHex("cc03"));
    QCOMPARE(bench.bus.sent, sent);
}

void LinkTest::fault_delayHoldsBackTheFrame()
{
    Bench bench;
    FaultPlan faults;
    faults.add(u"delay=700@record-start"_s);
    bench.link.setFaults(faults);
    bench.link.send(0x1B1A2000, {});
    QCOMPARE(bench.clock.now(), 700);
    QCOMPARE(bench.bus.sent, QStringList{u"1B1A2000#"_s});
}

void LinkTest::fault_countsTheFramesOfItsKind()
{
    Bench bench;
    FaultPlan faults;
    faults.add(u"drop@record-end:2"_s);
    faults.add(u"drop@command:1"_s);
    bench.link.setFaults(faults);
    bench.link.send(0x1B1A2000, {});
    bench.link.send(0x1B1A3000, {});
    bench.link.send(0x0F1A02C0, {});
    bench.link.send(0x1B1A3000, {});
    QCOMPARE(bench.bus.sent, (QStringList{u"1B1A2000#"_s, u"1B1A3000#"_s}));
}

void LinkTest::fault_killClosesTheInterface()
{
    Bench bench;
    FaultPlan faults;
    faults.add(u"kill@any:2"_s);
    bench.link.setFaults(faults);
    bench.link.send(0x1B1A2000, {});
    bench.link.send(0x1B1A2000, {});
    QVERIFY(bench.bus.state() == QCanBusDevice::UnconnectedState);
    QCOMPARE(failureOf([&] { bench.link.send(0x1B1A2000, {}); }).exit, Exit::Interface);
}

void LinkTest::fault_badTextIsRefused_data()
{
    QTest::addColumn<QString>("text");
    for (const char *text :
         {"", "drop", "drop@", "lose@data", "drop@frames", "drop@data:0", "drop@data:5-4",
          "drop@data:x", "delay@data", "drop=5@data", "drop@data:99999999999"}) {
        QTest::newRow(text) << QString::fromLatin1(text);
    }
}

void LinkTest::fault_badTextIsRefused()
{
    QFETCH(QString, text);
    FaultPlan faults;
    const Failure failure = failureOf([&] { faults.add(text); });
    QCOMPARE(failure.exit, Exit::Usage);
    QVERIFY(failure.message.startsWith(u'"' + text + u"\" is not a fault: "_s));
}

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
