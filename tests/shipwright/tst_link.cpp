#include "fixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class LinkTest : public QObject
{
    Q_OBJECT

private slots:
    void open_thatFailsNamesTheCause_data()
    {
        QTest::addColumn<FakeBus::Opening>("opening");
        QTest::addColumn<QString>("cause");
        QTest::newRow("refused") << FakeBus::Opening::Refused << u"No such device"_s;
        QTest::newRow("refused without a cause")
            << FakeBus::Opening::RefusedSilently << u"the driver gives no reason"_s;
        QTest::newRow("takes too long")
            << FakeBus::Opening::NeverDone << u"no connection within 5000 ms"_s;
    }

    void open_thatFailsNamesTheCause()
    {
        QFETCH(FakeBus::Opening, opening);
        QFETCH(QString, cause);
        FakeClock clock;
        FakeBus bus(clock);
        bus.opening = opening;
        Link link(bus, clock);
        const Failure failure = failureOf([&] { link.open(u"Plug it in."_s); });
        QCOMPARE(failure.exit, Exit::Interface);
        QCOMPARE(failure.message, u"The CAN interface cannot be opened: %1."_s.arg(cause));
        QCOMPARE(failure.hint, u"Plug it in."_s);
    }

    void open_interruptedWhileTheDeviceConnects()
    {
        FakeClock clock;
        FakeBus bus(clock);
        bus.opening = FakeBus::Opening::NeverDone;
        Link link(bus, clock);
        clock.at(300, [&link] { link.interrupt(); });
        const Failure failure = failureOf([&] { link.open(); });
        QCOMPARE(failure.exit, Exit::Interrupted);
        QCOMPARE(failure.message, u"Interrupted."_s);
        QCOMPARE(clock.now(), 300);
    }

    void fullSendBuffer_isWaitedFor()
    {
        Fixture fixture;
        fixture.bus.refusedWrites = 20;
        fixture.link.send(0x1B1A4000, QByteArrayLiteral("\1"));
        QCOMPARE(fixture.bus.sent, QStringList{u"1B1A4000#01"_s});
        QCOMPARE(fixture.bus.writeAttempts, 21);
    }

    void fullSendBuffer_losesNoFrameOfATransfer()
    {
        // A queue of ten frames, drained one frame a millisecond.
        Fixture fixture;
        fixture.bus.onWritten = [&fixture](const QCanBusFrame &) {
            if (fixture.bus.sent.size() % 10 == 0)
                fixture.bus.refusedWrites = 3;
        };
        fixture.send(2, pattern(5000));
        QCOMPARE(fixture.bus.receiver.file(2), pattern(5000));
        QCOMPARE(fixture.progress.last().repeated, 0u);
    }

    void fullSendBuffer_forTooLongNamesTheCause()
    {
        Fixture fixture;
        fixture.bus.refusedWrites = 1'000'000;
        fixture.bus.status = QCanBusDevice::CanBusStatus::BusOff;
        const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
        QCOMPARE(failure.exit, Exit::SendBlocked);
        QCOMPARE(
            failure.message,
            u"0F1A02C0#A55A could not be sent for 1000 ms: No buffer space available; the controller "
            "is off the bus (bus-off)."_s);
        QVERIFY(failure.hint.contains(u"termination"_s));
    }

    void slowQueue_doesNotEatTheReceiversTime()
    {
        // 66 frames of a record take 3.3 s to leave, more than the second that the answer may take.
        Fixture fixture;
        fixture.bus.queueInterval = 50;
        fixture.send(2, pattern(512));
        QCOMPARE(fixture.bus.receiver.file(2), pattern(512));
    }

    void stuckQueue_namesTheCause()
    {
        Fixture fixture;
        fixture.bus.queueInterval = 1'000'000;
        const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
        QCOMPARE(failure.exit, Exit::SendBlocked);
        QCOMPARE(failure.message, u"Frames (1) stayed in the send buffer for 1000 ms."_s);
    }

    void receive_takesFramesInOrder()
    {
        Fixture fixture;
        fixture.bus.deliver(frame(0x10000001, "01"));
        fixture.bus.deliver(frame(0x10000002, "02"));
        QCOMPARE(fixture.link.receive(0)->frameId(), 0x10000001u);
        QCOMPARE(fixture.link.receive(0)->frameId(), 0x10000002u);
        QVERIFY(!fixture.link.receive(0));
    }

    void receive_skipsBaseFormatAndErrorFrames()
    {
        Fixture fixture;
        fixture.bus.deliver(QCanBusFrame(0x123, {}));
        fixture.bus.deliver(QCanBusFrame(QCanBusFrame::ErrorFrame));
        fixture.bus.deliver(frame(0x10000002, "02"));
        QCOMPARE(fixture.link.receive(0)->frameId(), 0x10000002u);
    }

    void receive_endsWhenTheInterfaceGoesWithFramesUnread()
    {
        Fixture f;
        f.bus.deliver(frame(0x10000001, "01"));
        f.bus.goAway();
        QCOMPARE(failureOf([&] { f.link.receive(1000); }).exit, Exit::Interface);
    }

    void foreignFrame_endsTheSessionBeforeAnythingMoreIsSent()
    {
        Fixture f;
        f.peer.startConfiguration();
        f.bus.deliver(frame(0x0F1A02C2, "0441424344"));
        const Failure failure = failureOf([&] { f.peer.endConfiguration(); });
        QCOMPARE(failure.exit, Exit::ForeignTool);
        QCOMPARE(
            failure.message,
            u"Another service tool uses this bus: node 24 sent 0F1A02C2#0441424344, which this "
            "tool did not send. The session ended there."_s);
        QCOMPARE(f.bus.sent, QStringList{u"0F1A02C0#A55A"_s});
    }

    void foreignFrame_inTheMiddleOfARecordStopsTheRecord()
    {
        Fixture f;
        f.whenSent(0x1B1AF050, [&] { f.bus.deliver(frame(0x1B1A0000, "020809000000")); });
        QCOMPARE(failureOf([&] { f.send(2, pattern(512)); }).exit, Exit::ForeignTool);
        QCOMPARE(f.bus.sent.last().left(8), u"1B1AF050"_s);
    }

    void foreignFrame_insteadOfTheAnswerEndsTheWait()
    {
        Fixture f;
        f.bus.tamper = [](const auto &, const QList<QCanBusFrame> &answers) {
            return QList{frame(0x0F1A0AC0, "a55a")} + answers;
        };
        QCOMPARE(failureOf([&] { f.peer.startConfiguration(); }).exit, Exit::ForeignTool);
    }

    void foreignFrame_behindTheAnswerLeavesTheAnswerGood()
    {
        Fixture f;
        f.bus.tamper = [](const auto &, const QList<QCanBusFrame> &answers) {
            return answers + QList{frame(0x0F1A02C2, "0441424344")};
        };
        f.peer.startConfiguration();
        QCOMPARE(failureOf([&] { f.peer.endConfiguration(); }).exit, Exit::ForeignTool);
    }

    void foreignFrame_isNoneForAListener()
    {
        FakeClock clock;
        FakeBus bus(clock);
        Link link(bus, clock);
        link.open();
        bus.deliver(frame(0x0F1A02C2, "0441424344"));
        QCOMPARE(link.receive(0)->frameId(), 0x0F1A02C2u);
    }

    void echo_isNoForeignFrame_data()
    {
        QTest::addColumn<bool>("marked");
        QTest::newRow("marked as an echo") << true;
        QTest::newRow("not marked") << false;
    }

    void echo_isNoForeignFrame()
    {
        QFETCH(bool, marked);
        Fixture f;
        QStringList observed;
        f.link.addObserver(
            [&observed](const QCanBusFrame &seen, Direction) { observed += text(seen); });
        f.bus.onWritten = [&f, marked](const QCanBusFrame &sent) {
            QCanBusFrame echo = sent;
            echo.setLocalEcho(marked);
            f.bus.deliver(echo);
        };
        f.send(2, pattern(600));
        f.peer.setSerialNumber(u"SN1234567890"_s);
        QCOMPARE(f.bus.receiver.file(2), pattern(600));
        QCOMPARE(observed.count(u"0F1A02C3#3637383930"_s), 1);
    }

    void echo_ofAnAdapterThatDoesNotEchoIsAForeignFrame()
    {
        // The first answer came without an echo: a later frame that looks like one is another tool's.
        Fixture f;
        f.peer.startConfiguration();
        f.bus.onWritten = [&f](const QCanBusFrame &sent) { f.bus.deliver(sent); };
        QCOMPARE(failureOf([&] { f.peer.setSerialNumber(u"SN1234567890"_s); }).exit,
                 Exit::ForeignTool);
    }

    void interruption_endsAWait()
    {
        Fixture fixture;
        fixture.clock.at(300, [&fixture] { fixture.link.interrupt(); });
        QCOMPARE(failureOf([&] { fixture.link.receive(1000); }).exit, Exit::Interrupted);
        QCOMPARE(fixture.clock.now(), 300);
    }

    void observers_seeBothDirectionsWithTimeStamps()
    {
        Fixture fixture;
        QStringList seen;
        fixture.link.addObserver([&seen](const QCanBusFrame &frame, Direction direction) {
            QVERIFY(frame.timeStamp().seconds() > 0);
            seen += (direction == Direction::Sent ? u"> "_s : u"< "_s) + text(frame);
        });
        fixture.peer.startConfiguration();
        QCOMPARE(seen, (QStringList{u"> 0F1A02C0#A55A"_s, u"< 0F584000#5AA5"_s}));
    }

    void fault_changesWhatGoesOut_data()
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

    void fault_changesWhatGoesOut()
    {
        QFETCH(QString, fault);
        QFETCH(QStringList, sent);
        Fixture fixture;
        fixture.inject({fault});
        fixture.link.send(0x1B1AF000, QByteArray::fromHex("aa01"));
        fixture.link.send(0x1B1AF010, QByteArray::fromHex("bb02"));
        fixture.link.send(0x1B1AF020, QByteArray::fromHex("cc03"));
        QCOMPARE(fixture.bus.sent, sent);
    }

    void fault_delayHoldsBackTheFrame()
    {
        Fixture fixture;
        fixture.inject({u"delay=700@record-start"_s});
        fixture.link.send(0x1B1A2000, {});
        QCOMPARE(fixture.clock.now(), 700);
        QCOMPARE(fixture.bus.sent, QStringList{u"1B1A2000#"_s});
    }

    void fault_countsTheFramesOfItsKind()
    {
        Fixture fixture;
        fixture.inject({u"drop@record-end:2"_s, u"drop@command:1"_s});
        fixture.link.send(0x1B1A2000, {});
        fixture.link.send(0x1B1A3000, {});
        fixture.link.send(0x0F1A02C0, {});
        fixture.link.send(0x1B1A3000, {});
        QCOMPARE(fixture.bus.sent, (QStringList{u"1B1A2000#"_s, u"1B1A3000#"_s}));
    }

    void fault_killClosesTheInterface()
    {
        Fixture fixture;
        fixture.inject({u"kill@any:2"_s});
        fixture.link.send(0x1B1A2000, {});
        fixture.link.send(0x1B1A2000, {});
        QVERIFY(fixture.bus.state() == QCanBusDevice::UnconnectedState);
        QCOMPARE(failureOf([&] { fixture.link.send(0x1B1A2000, {}); }).exit, Exit::Interface);
    }

    void fault_badTextIsRefused_data()
    {
        QTest::addColumn<QString>("text");
        for (const char *text :
             {"", "drop", "drop@", "lose@data", "drop@frames", "drop@data:0", "drop@data:5-4",
              "drop@data:x", "delay@data", "drop=5@data", "drop@data:99999999999"}) {
            QTest::newRow(text) << QString::fromLatin1(text);
        }
    }

    void fault_badTextIsRefused()
    {
        QFETCH(QString, text);
        FaultPlan faults;
        const Failure failure = failureOf([&] { faults.add(text); });
        QCOMPARE(failure.exit, Exit::Usage);
        QVERIFY(failure.message.startsWith(u'"' + text + u"\" is not a fault: "_s));
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
