#include "deviations.h"
#include "fixture.h"

#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace Shipwright;

namespace {

using Action = std::function<void(Peer &)>;

void setTime(Peer &peer)
{
    peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone::utc()));
}

void setLongSerial(Peer &peer)
{
    peer.setSerialNumber(u"SN1234567890"_s);
}

QCanBusFrame busError(QCanBusFrame::FrameError error)
{
    QCanBusFrame frame(QCanBusFrame::ErrorFrame);
    frame.setError(error);
    return frame;
}

} // namespace

class CommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void command_goesOut_data()
    {
        QTest::addColumn<Action>("action");
        QTest::addColumn<QString>("sent");
        QTest::newRow("connect") << Action(&Peer::startConfiguration) << u"0F1A02C0#A55A"_s;
        QTest::newRow("time in UTC") << Action([](Peer &peer) {
            peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(16, 7, 9), QTimeZone(7200)));
        }) << u"0F1A02C1#1803050E0709"_s;
        QTest::newRow("info, which leaves a transfer alone")
            << Action(&Peer::receiverParameters) << u"1B1A0000#"_s;
    }

    void command_goesOut()
    {
        QFETCH(Action, action);
        QFETCH(QString, sent);
        Fixture fixture;
        action(fixture.peer);
        QCOMPARE(fixture.bus.sent, QStringList{sent});
    }

    void connect_usesSlotAndDestination()
    {
        Fixture fixture({.slot = 3, .destination = 14, .timeout = {}});
        fixture.peer.startConfiguration();
        QCOMPARE(fixture.bus.sent, QStringList{u"0F0E1AC0#A55A"_s});
    }

    void answer_thatIsNotDueIsAFailure_data()
    {
        QTest::addColumn<Action>("action");
        QTest::addColumn<quint32>("to");
        QTest::addColumn<QCanBusFrame>("answer");
        QTest::addColumn<Exit>("exit");
        QTest::addColumn<QString>("message");
        QTest::newRow("connect refused")
            << Action(&Peer::startConfiguration) << 0u << frame(0x0F5840BA, "") << Exit::Refused
            << u"The receiver refused start of configuration with code 186."_s;
        QTest::newRow("connect with a wrong handshake")
            << Action(&Peer::startConfiguration) << 0u << frame(0x0F584000, "a55a")
            << Exit::BadAnswer
            << u"The answer to start of configuration carries A55A where 5AA5 was expected."_s;
        QTest::newRow("time refused")
            << Action(setTime) << 0u << frame(0x0F5840BA, "1803050E0709") << Exit::Refused
            << u"The receiver refused set date and time with code 186."_s;
        QTest::newRow("time echoed wrong")
            << Action(setTime) << 0u << frame(0x0F584000, "1803050E0708") << Exit::BadAnswer
            << u"The answer to set date and time carries 1803050e0708, not the 1803050e0709 that was "
               "sent."_s;
        QTest::newRow("second part of a serial number refused")
            << Action(setLongSerial) << 0x0F1A02C3u << frame(0x0F5840BA, "") << Exit::Refused
            << u"The receiver refused set serial number, second frame with code 186."_s;
        QTest::newRow("short parameters")
            << Action(&Peer::receiverParameters) << 0u << frame(0x1B58001D, "0a3f")
            << Exit::BadAnswer
            << u"The answer to Transfer Info has 2 bytes (0a3f) where 8 were expected."_s;
    }

    void answer_thatIsNotDueIsAFailure()
    {
        QFETCH(Action, action);
        QFETCH(quint32, to);
        QFETCH(QCanBusFrame, answer);
        QFETCH(Exit, exit);
        QFETCH(QString, message);
        Fixture fixture;
        fixture.answer(to, {answer});
        const Failure failure = failureOf([&] { action(fixture.peer); });
        QCOMPARE(failure.exit, exit);
        QCOMPARE(failure.message, message);
    }

    void silence_namesWhatWasSentAwaitedAndForHowLong()
    {
        Fixture fixture;
        fixture.answer(0, {});
        const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
        QCOMPARE(failure.exit, Exit::NoAnswer);
        QCOMPARE(
            failure.message,
            u"No answer to start of configuration: sent 0F1A02C0#A55A, waited 1000 ms for identifier "
            "0F584000, received nothing."_s);
        QVERIFY(!failure.hint.isEmpty());
        QCOMPARE(fixture.clock.now(), 1000);
    }

    void silence_lastsAsLongAsAskedFor()
    {
        Fixture fixture({.timeout = 250});
        fixture.answer(0, {});
        QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
        QCOMPARE(fixture.clock.now(), 250);
    }

    void silence_namesWhatCameInstead()
    {
        Fixture fixture;
        fixture.answer(0,
                       {frame(0x0F594000, "5aa5"), frame(0x0F584800, ""), frame(0x123456, "01"),
                        frame(0x123457, "02")});
        const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
        QVERIFY2(failure.message.endsWith(
                     u"received instead: 0F594000#5AA5, 0F584800#, 00123456#01 and 1 more."_s),
                 qPrintable(failure.message));
    }

    void silence_tellsTheConditionOfTheBus()
    {
        Fixture fixture;
        fixture.bus.status = QCanBusDevice::CanBusStatus::Error;
        fixture.answer(0, {busError(QCanBusFrame::MissingAcknowledgmentError)});
        const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
        QVERIFY2(
            failure.message.endsWith(u"received nothing; the controller is error passive, last "
                                     "bus error: Received no ACK on transmission."_s),
            qPrintable(failure.message));
    }

    void silence_withoutAcknowledgementIsNoTimeOut_data()
    {
        using Status = QCanBusDevice::CanBusStatus;
        QTest::addColumn<QList<QCanBusFrame>>("errors");
        QTest::addColumn<Status>("status");
        QTest::newRow("no acknowledgement")
            << QList{busError(QCanBusFrame::MissingAcknowledgmentError)} << Status::Good;
        QTest::newRow("bus off, reported by a frame")
            << QList{busError(QCanBusFrame::BusOffError)} << Status::Good;
        QTest::newRow("bus off, reported by the controller")
            << QList<QCanBusFrame>{} << Status::BusOff;
    }

    void silence_withoutAcknowledgementIsNoTimeOut()
    {
        QFETCH(QList<QCanBusFrame>, errors);
        QFETCH(QCanBusDevice::CanBusStatus, status);
        Fixture f;
        f.bus.status = status;
        f.answer(0, errors);
        const Failure failure = failureOf([&] { f.peer.startConfiguration(); });
        QCOMPARE(failure.exit, Exit::SendBlocked);
        QVERIFY2(failure.hint.startsWith(u"No node acknowledges the frames"_s),
                 qPrintable(failure.hint));
    }

    void silence_onABusWithErrorsAdvisesToCheckIt()
    {
        Fixture f;
        f.bus.status = QCanBusDevice::CanBusStatus::Error;
        f.answer(0, {});
        const Failure failure = failureOf([&] { f.peer.startConfiguration(); });
        QCOMPARE(failure.exit, Exit::NoAnswer);
        QVERIFY2(
            failure.hint.endsWith(u"the bus has errors: check the wiring and the termination."_s),
            qPrintable(failure.hint));
    }

    void silence_isNotExplainedByErrorsOfBefore()
    {
        Fixture f;
        f.bus.deliver(busError(QCanBusFrame::MissingAcknowledgmentError));
        f.peer.startConfiguration();
        f.answer(0, {});
        const Failure failure = failureOf([&] { f.peer.endConfiguration(); });
        QCOMPARE(failure.exit, Exit::NoAnswer);
        QVERIFY2(failure.message.endsWith(u"received nothing."_s), qPrintable(failure.message));
    }

    void answer_justInTimeCounts()
    {
        Fixture fixture;
        fixture.bus.answerDelay = 1000;
        fixture.peer.startConfiguration();
        fixture.bus.answerDelay = 1001;
        QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
    }

    void answer_inAnotherSlotDoesNotCount()
    {
        Fixture fixture({.slot = 1, .timeout = {}});
        fixture.bus.receiver.deviation = plantedDeviation(u"answers in slot 0"_s);
        QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
    }

    void answer_leftOverFromBeforeDoesNotCount()
    {
        Fixture fixture;
        fixture.bus.deliver(frame(0x0F5840BA, ""));
        fixture.peer.startConfiguration();
    }

    void answer_toAnotherNodeDoesNotCount()
    {
        Fixture fixture;
        fixture.answer(0, {frame(0x0F574000, "5aa5")});
        QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
    }

    void time_outsideTheWireIsRefused_data()
    {
        QTest::addColumn<QDateTime>("time");
        QTest::newRow("before 2000")
            << QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59), QTimeZone::utc());
        QTest::newRow("after 2255") << QDateTime(QDate(2256, 1, 1), QTime(0, 0), QTimeZone::utc());
        QTest::newRow("none") << QDateTime();
    }

    void time_outsideTheWireIsRefused()
    {
        QFETCH(QDateTime, time);
        Fixture fixture;
        QCOMPARE(failureOf([&] { fixture.peer.setDateTime(time); }).exit, Exit::Usage);
        QVERIFY(fixture.bus.sent.isEmpty());
    }

    void serial_splitsAfterSevenBytes_data()
    {
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QStringList>("sent");
        QTest::newRow("one byte") << u"A"_s << QStringList{u"0F1A02C2#0141"_s};
        QTest::newRow("seven bytes") << u"ABCDEFG"_s << QStringList{u"0F1A02C2#0741424344454647"_s};
        QTest::newRow("eight bytes")
            << u"ABCDEFGH"_s << QStringList{u"0F1A02C2#0841424344454647"_s, u"0F1A02C3#48"_s};
        QTest::newRow("fifteen bytes")
            << u"ABCDEFGHIJKLMNO"_s
            << QStringList{u"0F1A02C2#0F41424344454647"_s, u"0F1A02C3#48494A4B4C4D4E4F"_s};
        QTest::newRow("a character ends at the split")
            << u"ABCDEÄF"_s << QStringList{u"0F1A02C2#084142434445C384"_s, u"0F1A02C3#46"_s};
    }

    void serial_splitsAfterSevenBytes()
    {
        QFETCH(QString, serial);
        QFETCH(QStringList, sent);
        Fixture fixture;
        fixture.peer.setSerialNumber(serial);
        QCOMPARE(fixture.bus.sent, sent);
        QCOMPARE(fixture.bus.receiver.serialNumber, serial);
    }

    void serial_thatTheWireCannotCarryIsRefused_data()
    {
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QString() << u"it is empty"_s;
        QTest::newRow("sixteen bytes")
            << u"ABCDEFGHIJKLMNOP"_s << u"it has 16 bytes in UTF-8, the maximum is 15"_s;
        QTest::newRow("fifteen characters, sixteen bytes")
            << u"ABCDEFGHIJKLMNÄ"_s << u"it has 16 bytes in UTF-8, the maximum is 15"_s;
        QTest::newRow("a character across the split")
            << u"ABCDEFÄ"_s
            << u"a character has bytes in both frames (the first carries 7 bytes), and the receiver "
               "decodes each frame by itself"_s;
        QTest::newRow("line feed") << u"AB\nC"_s << u"it contains a control character"_s;
    }

    void serial_thatTheWireCannotCarryIsRefused()
    {
        QFETCH(QString, serial);
        QFETCH(QString, reason);
        Fixture fixture;
        const Failure failure = failureOf([&] { fixture.peer.setSerialNumber(serial); });
        QCOMPARE(failure.exit, Exit::Usage);
        QCOMPARE(failure.message,
                 u"The serial number \""_s + serial + u"\" cannot be sent: "_s + reason + u'.');
        QVERIFY(fixture.bus.sent.isEmpty());
    }

    void interruption_tellsWhatIsKnown_data()
    {
        QTest::addColumn<Action>("action");
        QTest::addColumn<quint32>("interruptedAt");
        QTest::addColumn<QString>("state");
        const QString unknown =
            u"It is not known whether the receiver stored the serial number; set it again."_s;
        QTest::newRow("in the only frame of a serial number")
            << Action([](Peer &peer) { peer.setSerialNumber(u"SN42"_s); }) << 0x0F1A02C2u
            << unknown;
        QTest::newRow("in the first of two")
            << Action(setLongSerial) << 0x0F1A02C2u
            << u"The receiver has the first 7 bytes of the serial number and has stored nothing yet; "
               "set the whole number again."_s;
        QTest::newRow("in the second") << Action(setLongSerial) << 0x0F1A02C3u << unknown;
        QTest::newRow("behind it") << Action(setLongSerial) << 0x1B1A0000u << QString();
        QTest::newRow("in the time")
            << Action(setTime) << 0x0F1A02C1u
            << u"It is not known whether the receiver set its clock; set it again."_s;
    }

    void interruption_tellsWhatIsKnown()
    {
        QFETCH(Action, action);
        QFETCH(quint32, interruptedAt);
        QFETCH(QString, state);
        Fixture f;
        f.whenSent(interruptedAt, [&f] { f.link.interrupt(); });
        const Failure failure = failureOf([&] {
            action(f.peer);
            f.peer.receiverParameters();
        });
        QCOMPARE(failure.exit, Exit::Interrupted);
        QCOMPARE(f.peer.receiverState(), state);
    }

    void end_sendsTheCommand()
    {
        Fixture fixture;
        fixture.peer.startConfiguration();
        QVERIFY(!fixture.peer.receiverState().isEmpty());
        fixture.peer.endConfiguration();
        QCOMPARE(fixture.bus.sent.last(), u"0F1A02C4#"_s);
        QVERIFY(fixture.peer.receiverState().isEmpty());
    }

    void info_readsEveryParameter()
    {
        Fixture fixture;
        fixture.answer(0, {frame(0x1B58001D, "0b02010002000300")});
        const ReceiverParameters parameters = fixture.peer.receiverParameters();
        QCOMPARE(parameters.version, 2u);
        QCOMPARE(parameters.flag, true);
        QCOMPARE(parameters.frameLimit, 258u);
        QCOMPARE(parameters.negotiationTimeout, 1u);
        QCOMPARE(parameters.recordTimeout, 2u);
        QCOMPARE(parameters.completeTimeout, 3u);
    }

    void info_framesOfARecordAreAsManyAsTheWireNumbers_data()
    {
        QTest::addColumn<quint32>("limit");
        QTest::addColumn<quint32>("frames");
        QTest::newRow("one") << 0u << 1u;
        QTest::newRow("as specified") << 63u << 64u;
        QTest::newRow("more than there are numbers") << 511u << 64u;
    }

    void info_framesOfARecordAreAsManyAsTheWireNumbers()
    {
        QFETCH(quint32, limit);
        QFETCH(quint32, frames);
        ReceiverParameters parameters;
        parameters.frameLimit = limit;
        QCOMPARE(parameters.recordFrames(), frames);
    }
};

QTEST_GUILESS_MAIN(CommandsTest)
#include "tst_commands.moc"
