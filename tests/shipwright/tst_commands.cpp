#include "deviations.h"
#include "fixture.h"

#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class CommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void connect_sendsTheHandshake();
    void connect_usesSlotAndDestination();
    void connect_refusedNamesTheCode();
    void connect_wrongHandshakeIsABadAnswer();
    void silence_namesWhatWasSentAwaitedAndForHowLong();
    void silence_lastsAsLongAsAskedFor();
    void silence_namesWhatCameInstead();
    void silence_tellsTheConditionOfTheBus();
    void silence_withoutAcknowledgementIsNoTimeOut_data();
    void silence_withoutAcknowledgementIsNoTimeOut();
    void silence_onABusWithErrorsAdvisesToCheckIt();
    void silence_isNotExplainedByErrorsOfBefore();
    void answer_justInTimeCounts();
    void answer_inAnotherSlotDoesNotCount();
    void answer_leftOverFromBeforeDoesNotCount();
    void answer_toAnotherNodeDoesNotCount();
    void time_goesOutInUtc();
    void time_outsideTheWireIsRefused_data();
    void time_outsideTheWireIsRefused();
    void time_refusedByTheReceiver();
    void time_echoedWrongIsABadAnswer();
    void serial_splitsAfterSevenBytes_data();
    void serial_splitsAfterSevenBytes();
    void serial_thatTheWireCannotCarryIsRefused_data();
    void serial_thatTheWireCannotCarryIsRefused();
    void serial_storageFailureInTheSecondFrame();
    void serial_interruptedTellsWhatIsKnown_data();
    void serial_interruptedTellsWhatIsKnown();
    void serial_storedLeavesNothingToTell();
    void time_interruptedTellsThatItIsNotKnown();
    void end_sendsTheCommand();
    void info_leavesATransferAlone();
    void info_readsEveryParameter();
    void info_framesOfARecordAreAsManyAsTheWireNumbers_data();
    void info_framesOfARecordAreAsManyAsTheWireNumbers();
    void info_shortAnswerIsABadAnswer();
};

void CommandsTest::connect_sendsTheHandshake()
{
    Fixture fixture;
    fixture.peer.startConfiguration();
    QCOMPARE(fixture.bus.sent, QStringList{u"0F1A02C0#A55A"_s});
}

void CommandsTest::connect_usesSlotAndDestination()
{
    PeerSettings settings;
    settings.slot = 3;
    settings.destination = 14;
    Fixture fixture(settings);
    fixture.peer.startConfiguration();
    QCOMPARE(fixture.bus.sent, QStringList{u"0F0E1AC0#A55A"_s});
}

void CommandsTest::connect_refusedNamesTheCode()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) { return QList{frame(0x0F5840BA, "")}; };
    const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message, u"The receiver refused start of configuration with code 186."_s);
}

void CommandsTest::connect_wrongHandshakeIsABadAnswer()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F584000, "a55a")};
    };
    const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::BadAnswer);
    QCOMPARE(failure.message,
             u"The answer to start of configuration carries A55A where 5AA5 was expected."_s);
}

void CommandsTest::silence_namesWhatWasSentAwaitedAndForHowLong()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::NoAnswer);
    QCOMPARE(
        failure.message,
        u"No answer to start of configuration: sent 0F1A02C0#A55A, waited 1000 ms for identifier "
        "0F584000, received nothing."_s);
    QVERIFY(!failure.hint.isEmpty());
    QCOMPARE(fixture.clock.now(), 1000);
}

void CommandsTest::silence_lastsAsLongAsAskedFor()
{
    PeerSettings settings;
    settings.timeout = 250;
    Fixture fixture(settings);
    fixture.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
    QCOMPARE(fixture.clock.now(), 250);
}

void CommandsTest::silence_namesWhatCameInstead()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F594000, "5aa5"), frame(0x0F584800, ""), frame(0x123456, "01"),
                     frame(0x123457, "02")};
    };
    const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
    QVERIFY2(failure.message.endsWith(
                 u"received instead: 0F594000#5AA5, 0F584800#, 00123456#01 and 1 more."_s),
             qPrintable(failure.message));
}

void CommandsTest::silence_tellsTheConditionOfTheBus()
{
    Fixture fixture;
    fixture.bus.status = QCanBusDevice::CanBusStatus::Error;
    QCanBusFrame noAcknowledgement(QCanBusFrame::ErrorFrame);
    noAcknowledgement.setError(QCanBusFrame::MissingAcknowledgmentError);
    fixture.bus.tamper = [&](const auto &, const auto &) { return QList{noAcknowledgement}; };
    const Failure failure = failureOf([&] { fixture.peer.startConfiguration(); });
    QVERIFY2(failure.message.endsWith(u"received nothing; the controller is error passive, last "
                                      "bus error: Received no ACK on transmission."_s),
             qPrintable(failure.message));
}

void CommandsTest::silence_withoutAcknowledgementIsNoTimeOut_data()
{
    QTest::addColumn<QCanBusFrame::FrameError>("error");
    QTest::addColumn<QCanBusDevice::CanBusStatus>("status");
    QTest::newRow("no acknowledgement")
        << QCanBusFrame::MissingAcknowledgmentError << QCanBusDevice::CanBusStatus::Good;
    QTest::newRow("bus off, reported by a frame")
        << QCanBusFrame::BusOffError << QCanBusDevice::CanBusStatus::Good;
    QTest::newRow("bus off, reported by the controller")
        << QCanBusFrame::NoError << QCanBusDevice::CanBusStatus::BusOff;
}

void CommandsTest::silence_withoutAcknowledgementIsNoTimeOut()
{
    QFETCH(QCanBusFrame::FrameError, error);
    QFETCH(QCanBusDevice::CanBusStatus, status);
    Fixture f;
    f.bus.status = status;
    QCanBusFrame errorFrame(QCanBusFrame::ErrorFrame);
    errorFrame.setError(error);
    f.bus.tamper = [&](const auto &, const auto &) {
        return error == QCanBusFrame::NoError ? QList<QCanBusFrame>{} : QList{errorFrame};
    };
    const Failure failure = failureOf([&] { f.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::SendBlocked);
    QVERIFY2(failure.hint.startsWith(u"No node acknowledges the frames"_s),
             qPrintable(failure.hint));
}

void CommandsTest::silence_onABusWithErrorsAdvisesToCheckIt()
{
    Fixture f;
    f.bus.status = QCanBusDevice::CanBusStatus::Error;
    f.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    const Failure failure = failureOf([&] { f.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::NoAnswer);
    QVERIFY2(failure.hint.endsWith(u"the bus has errors: check the wiring and the termination."_s),
             qPrintable(failure.hint));
}

void CommandsTest::silence_isNotExplainedByErrorsOfBefore()
{
    Fixture f;
    QCanBusFrame errorFrame(QCanBusFrame::ErrorFrame);
    errorFrame.setError(QCanBusFrame::MissingAcknowledgmentError);
    f.bus.deliver(errorFrame);
    f.peer.startConfiguration();
    f.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    const Failure failure = failureOf([&] { f.peer.endConfiguration(); });
    QCOMPARE(failure.exit, Exit::NoAnswer);
    QVERIFY2(failure.message.endsWith(u"received nothing."_s), qPrintable(failure.message));
}

void CommandsTest::answer_justInTimeCounts()
{
    Fixture fixture;
    fixture.bus.answerDelay = 1000;
    fixture.peer.startConfiguration();
    fixture.bus.answerDelay = 1001;
    QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::answer_inAnotherSlotDoesNotCount()
{
    PeerSettings settings;
    settings.slot = 1;
    Fixture fixture(settings);
    fixture.bus.receiver.deviation = plantedDeviation(u"answers in slot 0"_s);
    QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::answer_leftOverFromBeforeDoesNotCount()
{
    Fixture fixture;
    fixture.bus.deliver(frame(0x0F5840BA, ""));
    fixture.peer.startConfiguration();
}

void CommandsTest::answer_toAnotherNodeDoesNotCount()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F574000, "5aa5")};
    };
    QCOMPARE(failureOf([&] { fixture.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::time_goesOutInUtc()
{
    Fixture fixture;
    fixture.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(16, 7, 9), QTimeZone(7200)));
    QCOMPARE(fixture.bus.sent, QStringList{u"0F1A02C1#1803050E0709"_s});
}

void CommandsTest::time_outsideTheWireIsRefused_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("before 2000") << QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59),
                                              QTimeZone::utc());
    QTest::newRow("after 2255") << QDateTime(QDate(2256, 1, 1), QTime(0, 0), QTimeZone::utc());
    QTest::newRow("none") << QDateTime();
}

void CommandsTest::time_outsideTheWireIsRefused()
{
    QFETCH(QDateTime, time);
    Fixture fixture;
    QCOMPARE(failureOf([&] { fixture.peer.setDateTime(time); }).exit, Exit::Usage);
    QVERIFY(fixture.bus.sent.isEmpty());
}

void CommandsTest::time_refusedByTheReceiver()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F5840BA, "1803050E0709")};
    };
    const Failure failure = failureOf([&] {
        fixture.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone::utc()));
    });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message, u"The receiver refused set date and time with code 186."_s);
}

void CommandsTest::time_echoedWrongIsABadAnswer()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F584000, "1803050E0708")};
    };
    const Failure failure = failureOf([&] {
        fixture.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone::utc()));
    });
    QCOMPARE(failure.exit, Exit::BadAnswer);
}

void CommandsTest::serial_splitsAfterSevenBytes_data()
{
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QStringList>("sent");
    QTest::newRow("one byte") << u"A"_s << QStringList{u"0F1A02C2#0141"_s};
    QTest::newRow("seven bytes") << u"ABCDEFG"_s << QStringList{u"0F1A02C2#0741424344454647"_s};
    QTest::newRow("eight bytes") << u"ABCDEFGH"_s
                                 << QStringList{u"0F1A02C2#0841424344454647"_s, u"0F1A02C3#48"_s};
    QTest::newRow("fifteen bytes")
        << u"ABCDEFGHIJKLMNO"_s
        << QStringList{u"0F1A02C2#0F41424344454647"_s, u"0F1A02C3#48494A4B4C4D4E4F"_s};
    QTest::newRow("a character ends at the split")
        << u"ABCDEÄF"_s << QStringList{u"0F1A02C2#084142434445C384"_s, u"0F1A02C3#46"_s};
}

void CommandsTest::serial_splitsAfterSevenBytes()
{
    QFETCH(QString, serial);
    QFETCH(QStringList, sent);
    Fixture fixture;
    fixture.peer.setSerialNumber(serial);
    QCOMPARE(fixture.bus.sent, sent);
    QCOMPARE(fixture.bus.receiver.serialNumber, serial);
}

void CommandsTest::serial_thatTheWireCannotCarryIsRefused_data()
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

void CommandsTest::serial_thatTheWireCannotCarryIsRefused()
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

void CommandsTest::serial_storageFailureInTheSecondFrame()
{
    Fixture fixture;
    fixture.bus.tamper = [](const QCanBusFrame &sent, const QList<QCanBusFrame> &answers) {
        return sent.frameId() == 0x0F1A02C3 ? QList{frame(0x0F5840BA, "")} : answers;
    };
    const Failure failure = failureOf([&] { fixture.peer.setSerialNumber(u"ABCDEFGH"_s); });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message,
             u"The receiver refused set serial number, second frame with code 186."_s);
}

void CommandsTest::serial_interruptedTellsWhatIsKnown_data()
{
    QTest::addColumn<QString>("serial");
    QTest::addColumn<quint32>("interruptedAt");
    QTest::addColumn<QString>("state");
    const QString unknown =
        u"It is not known whether the receiver stored the serial number; set it again."_s;
    QTest::newRow("in the only frame") << u"SN42"_s << 0x0F1A02C2u << unknown;
    QTest::newRow("in the first of two")
        << u"SN1234567890"_s << 0x0F1A02C2u
        << u"The receiver has the first 7 bytes of the serial number and has stored nothing yet; "
           "set the whole number again."_s;
    QTest::newRow("in the second") << u"SN1234567890"_s << 0x0F1A02C3u << unknown;
}

void CommandsTest::serial_interruptedTellsWhatIsKnown()
{
    QFETCH(QString, serial);
    QFETCH(quint32, interruptedAt);
    QFETCH(QString, state);
    Fixture f;
    f.bus.onWritten = [&f, interruptedAt](const QCanBusFrame &sent) {
        if (sent.frameId() == interruptedAt)
            f.link.interrupt();
    };
    QCOMPARE(failureOf([&] { f.peer.setSerialNumber(serial); }).exit, Exit::Interrupted);
    QCOMPARE(f.peer.receiverState(), state);
}

void CommandsTest::serial_storedLeavesNothingToTell()
{
    Fixture f;
    f.peer.setSerialNumber(u"SN1234567890"_s);
    QCOMPARE(f.peer.receiverState(), QString());
}

void CommandsTest::time_interruptedTellsThatItIsNotKnown()
{
    Fixture f;
    f.bus.onWritten = [&f](const QCanBusFrame &) { f.link.interrupt(); };
    QCOMPARE(failureOf([&] {
                 f.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(1, 2), QTimeZone::utc()));
             }).exit,
             Exit::Interrupted);
    QCOMPARE(f.peer.receiverState(),
             u"It is not known whether the receiver set its clock; set it again."_s);
}

void CommandsTest::end_sendsTheCommand()
{
    Fixture fixture;
    fixture.peer.startConfiguration();
    QVERIFY(!fixture.peer.receiverState().isEmpty());
    fixture.peer.endConfiguration();
    QCOMPARE(fixture.bus.sent.last(), u"0F1A02C4#"_s);
    QVERIFY(fixture.peer.receiverState().isEmpty());
}

void CommandsTest::info_leavesATransferAlone()
{
    Fixture fixture;
    fixture.peer.receiverParameters();
    QCOMPARE(fixture.bus.sent, QStringList{u"1B1A0000#"_s});
}

void CommandsTest::info_readsEveryParameter()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x1B58001D, "0b02010002000300")};
    };
    const ReceiverParameters parameters = fixture.peer.receiverParameters();
    QCOMPARE(parameters.version, 2u);
    QCOMPARE(parameters.flag, true);
    QCOMPARE(parameters.frameLimit, 258u);
    QCOMPARE(parameters.negotiationTimeout, 1u);
    QCOMPARE(parameters.recordTimeout, 2u);
    QCOMPARE(parameters.completeTimeout, 3u);
}

void CommandsTest::info_framesOfARecordAreAsManyAsTheWireNumbers_data()
{
    QTest::addColumn<quint32>("limit");
    QTest::addColumn<quint32>("frames");
    QTest::newRow("one") << 0u << 1u;
    QTest::newRow("as specified") << 63u << 64u;
    QTest::newRow("more than there are numbers") << 511u << 64u;
}

void CommandsTest::info_framesOfARecordAreAsManyAsTheWireNumbers()
{
    QFETCH(quint32, limit);
    QFETCH(quint32, frames);
    ReceiverParameters parameters;
    parameters.frameLimit = limit;
    QCOMPARE(parameters.recordFrames(), frames);
}

void CommandsTest::info_shortAnswerIsABadAnswer()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x1B58001D, "0a3f")};
    };
    const Failure failure = failureOf([&] { fixture.peer.receiverParameters(); });
    QCOMPARE(failure.exit, Exit::BadAnswer);
    QCOMPARE(failure.message,
             u"The answer to Transfer Info has 2 bytes (0a3f) where 8 were expected."_s);
}

QTEST_GUILESS_MAIN(CommandsTest)
#include "tst_commands.moc"
