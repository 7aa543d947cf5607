#include "bench.h"

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
    void end_sendsTheCommand();
    void info_leavesATransferAlone();
    void info_readsEveryParameter();
    void info_shortAnswerIsABadAnswer();
};

void CommandsTest::connect_sendsTheHandshake()
{
    Bench bench;
    bench.peer.startConfiguration();
    QCOMPARE(bench.bus.sent, QStringList{u"0F1A02C0#A55A"_s});
}

void CommandsTest::connect_usesSlotAndDestination()
{
    PeerSettings settings;
    settings.slot = 3;
    settings.destination = 14;
    Bench bench(settings);
    bench.peer.startConfiguration();
    QCOMPARE(bench.bus.sent, QStringList{u"0F0E1AC0#A55A"_s});
}

void CommandsTest::connect_refusedNamesTheCode()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) { return QList{frame(0x0F5840BA, "")}; };
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message, u"The receiver refused start of configuration with code 186."_s);
}

void CommandsTest::connect_wrongHandshakeIsABadAnswer()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) { return QList{frame(0x0F584000, "a55a")}; };
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::BadAnswer);
    QCOMPARE(failure.message,
             u"The answer to start of configuration carries A55A where 5AA5 was expected."_s);
}

void CommandsTest::silence_namesWhatWasSentAwaitedAndForHowLong()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QCOMPARE(failure.exit, Exit::NoAnswer);
    QCOMPARE(
        failure.message,
        u"No answer to start of configuration: sent 0F1A02C0#A55A, awaited identifier 0F584000 "
        "for 1000 ms; nothing came instead."_s);
    QVERIFY(!failure.hint.isEmpty());
    QCOMPARE(bench.clock.now(), 1000);
}

void CommandsTest::silence_lastsAsLongAsAskedFor()
{
    PeerSettings settings;
    settings.timeout = 250;
    Bench bench(settings);
    bench.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    QCOMPARE(failureOf([&] { bench.peer.startConfiguration(); }).exit, Exit::NoAnswer);
    QCOMPARE(bench.clock.now(), 250);
}

void CommandsTest::silence_namesWhatCameInstead()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F594000, "5aa5"), frame(0x0F584800, ""), frame(0x123456, "01"),
                     frame(0x123457, "02")};
    };
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QVERIFY2(failure.message.endsWith(
                 u"what came instead: 0F594000#5AA5, 0F584800#, 00123456#01 and 1 more."_s),
             qPrintable(failure.message));
}

void CommandsTest::silence_tellsTheConditionOfTheBus()
{
    Bench bench;
    bench.bus.status = QCanBusDevice::CanBusStatus::Error;
    QCanBusFrame noAcknowledgement(QCanBusFrame::ErrorFrame);
    noAcknowledgement.setError(QCanBusFrame::MissingAcknowledgmentError);
    bench.bus.tamper = [&](const auto &, const auto &) { return QList{noAcknowledgement}; };
    const Failure failure = failureOf([&] { bench.peer.startConfiguration(); });
    QVERIFY2(
        failure.message.endsWith(u"nothing came instead; the controller is error passive, last "
                                 "bus error: Received no ACK on transmission."_s),
        qPrintable(failure.message));
}

void CommandsTest::answer_justInTimeCounts()
{
    Bench bench;
    bench.bus.answerDelay = 1000;
    bench.peer.startConfiguration();
    bench.bus.answerDelay = 1001;
    QCOMPARE(failureOf([&] { bench.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::answer_inAnotherSlotDoesNotCount()
{
    PeerSettings settings;
    settings.slot = 1;
    Bench bench(settings);
    bench.bus.receiver.setDefect(ReceiverModel::Defect::IgnoresSlot);
    QCOMPARE(failureOf([&] { bench.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::answer_leftOverFromBeforeDoesNotCount()
{
    Bench bench;
    bench.bus.deliver(frame(0x0F5840BA, ""));
    bench.peer.startConfiguration();
}

void CommandsTest::answer_toAnotherNodeDoesNotCount()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) { return QList{frame(0x0F574000, "5aa5")}; };
    QCOMPARE(failureOf([&] { bench.peer.startConfiguration(); }).exit, Exit::NoAnswer);
}

void CommandsTest::time_goesOutInUtc()
{
    Bench bench;
    bench.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(16, 7, 9), Qt::OffsetFromUTC, 7200));
    QCOMPARE(bench.bus.sent, QStringList{u"0F1A02C1#1803050E0709"_s});
}

void CommandsTest::time_outsideTheWireIsRefused_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("before 2000") << QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59), Qt::UTC);
    QTest::newRow("after 2255") << QDateTime(QDate(2256, 1, 1), QTime(0, 0), Qt::UTC);
    QTest::newRow("none") << QDateTime();
}

void CommandsTest::time_outsideTheWireIsRefused()
{
    QFETCH(QDateTime, time);
    Bench bench;
    QCOMPARE(failureOf([&] { bench.peer.setDateTime(time); }).exit, Exit::Usage);
    QVERIFY(bench.bus.sent.isEmpty());
}

void CommandsTest::time_refusedByTheReceiver()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F5840BA, "1803050E0709")};
    };
    const Failure failure = failureOf(
        [&] { bench.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), Qt::UTC)); });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message, u"The receiver refused set date and time with code 186."_s);
}

void CommandsTest::time_echoedWrongIsABadAnswer()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x0F584000, "1803050E0708")};
    };
    const Failure failure = failureOf(
        [&] { bench.peer.setDateTime(QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), Qt::UTC)); });
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
    Bench bench;
    bench.peer.setSerialNumber(serial);
    QCOMPARE(bench.bus.sent, sent);
    QCOMPARE(bench.bus.receiver.serialNumber(), serial);
}

void CommandsTest::serial_thatTheWireCannotCarryIsRefused_data()
{
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QString() << u"it is empty"_s;
    QTest::newRow("sixteen bytes")
        << u"ABCDEFGHIJKLMNOP"_s << u"it has 16 bytes in UTF-8, and two frames carry 15"_s;
    QTest::newRow("fifteen characters, sixteen bytes")
        << u"ABCDEFGHIJKLMNÄ"_s << u"it has 16 bytes in UTF-8, and two frames carry 15"_s;
    QTest::newRow("a character across the split")
        << u"ABCDEFÄ"_s
        << u"one of its characters would be cut in two between the first frame, which carries 7 bytes, "
           "and the second, and the receiver decodes each by itself"_s;
    QTest::newRow("line feed") << u"AB\nC"_s << u"it contains a control character"_s;
}

void CommandsTest::serial_thatTheWireCannotCarryIsRefused()
{
    QFETCH(QString, serial);
    QFETCH(QString, reason);
    Bench bench;
    const Failure failure = failureOf([&] { bench.peer.setSerialNumber(serial); });
    QCOMPARE(failure.exit, Exit::Usage);
    QCOMPARE(failure.message,
             u"The serial number \""_s + serial + u"\" cannot be sent: "_s + reason + u'.');
    QVERIFY(bench.bus.sent.isEmpty());
}

void CommandsTest::serial_storageFailureInTheSecondFrame()
{
    Bench bench;
    bench.bus.tamper = [](const QCanBusFrame &sent, const QList<QCanBusFrame> &answers) {
        return sent.frameId() == 0x0F1A02C3 ? QList{frame(0x0F5840BA, "")} : answers;
    };
    const Failure failure = failureOf([&] { bench.peer.setSerialNumber(u"ABCDEFGH"_s); });
    QCOMPARE(failure.exit, Exit::Refused);
    QCOMPARE(failure.message,
             u"The receiver refused set serial number, second frame with code 186."_s);
}

void CommandsTest::end_sendsTheCommand()
{
    Bench bench;
    bench.peer.startConfiguration();
    QVERIFY(!bench.peer.receiverState().isEmpty());
    bench.peer.endConfiguration();
    QCOMPARE(bench.bus.sent.last(), u"0F1A02C4#"_s);
    QVERIFY(bench.peer.receiverState().isEmpty());
}

void CommandsTest::info_leavesATransferAlone()
{
    Bench bench;
    bench.peer.receiverParameters();
    QCOMPARE(bench.bus.sent, QStringList{u"1B1A0000#"_s});
}

void CommandsTest::info_readsEveryParameter()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) {
        return QList{frame(0x1B58001D, "0b02010002000300")};
    };
    const ReceiverParameters parameters = bench.peer.receiverParameters();
    QCOMPARE(parameters.version, 2u);
    QCOMPARE(parameters.flag, true);
    QCOMPARE(parameters.frameLimit, 258u);
    QCOMPARE(parameters.negotiationTimeout, 1u);
    QCOMPARE(parameters.recordTimeout, 2u);
    QCOMPARE(parameters.completeTimeout, 3u);
}

void CommandsTest::info_shortAnswerIsABadAnswer()
{
    Bench bench;
    bench.bus.tamper = [](const auto &, const auto &) { return QList{frame(0x1B58001D, "0a3f")}; };
    const Failure failure = failureOf([&] { bench.peer.receiverParameters(); });
    QCOMPARE(failure.exit, Exit::BadAnswer);
    QCOMPARE(failure.message,
             u"The answer to Transfer Info has 2 bytes (0a3f) where 8 were expected."_s);
}

QTEST_GUILESS_MAIN(CommandsTest)
#include "tst_commands.moc"
