#include "fixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class TransferTest : public QObject
{
    Q_OBJECT

private slots:
    void smallFile_frameByFrame()
    {
        Fixture fixture;
        fixture.send(2, QByteArrayLiteral("123456789"));
        const QStringList expected{
            u"1B1A0000#020809000000"_s, u"1B1A1000#0208000001000000"_s,
            u"1B1A2000#0200000000"_s,   u"1B1AF000#3132333435363738"_s,
            u"1B1AF010#39"_s,           u"1B1A3000#2639F4CB"_s,
            u"1B1A4000#2639F4CB"_s,
        };
        QCOMPARE(fixture.bus.sent, expected);
    }

    void file_arrivesWhateverItsSize_data()
    {
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<quint32>("records");
        const auto row = [](qsizetype size, quint32 records) {
            QTest::addRow("%lld bytes", static_cast<long long>(size)) << size << records;
        };
        for (const qsizetype size : {1, 7, 8, 9, 511, 512})
            row(size, 1);
        row(513, 2);
        row(1024, 2);
        row(1025, 3);
        row(100'000, 196);
    }

    void file_arrivesWhateverItsSize()
    {
        QFETCH(qsizetype, size);
        QFETCH(quint32, records);
        Fixture fixture;
        const TransferProgress last = fixture.send(3, pattern(size));
        QCOMPARE(fixture.bus.receiver.file(3), pattern(size));
        QCOMPARE(last.records, records);
        QCOMPARE(last.bytes, quint64(size));
    }

    void file_onlyTheLastFrameIsShort()
    {
        Fixture fixture;
        fixture.send(2, pattern(1027));
        qsizetype shortFrames = 0;
        for (const QString &sent : std::as_const(fixture.bus.sent)) {
            if (sent.startsWith(u"1B1AF"_s) && sent.size() < 25)
                ++shortFrames;
        }
        QCOMPARE(shortFrames, 1);
        QVERIFY(fixture.bus.sent.contains(u"1B1AF000#141516"_s));
    }

    void emptyFile_hasNoRecords()
    {
        Fixture fixture;
        const TransferProgress last = fixture.send(2, {});
        const QStringList expected{
            u"1B1A0000#020800000000"_s,
            u"1B1A1000#0208000000000000"_s,
            u"1B1A4000#00000000"_s,
        };
        QCOMPARE(fixture.bus.sent, expected);
        QVERIFY(last.phase == TransferProgress::Phase::Confirmed);
    }

    void frameLimit_boundsTheRecords()
    {
        Fixture fixture;
        fixture.answer(0x1B1A0000, {frame(0x1B580000, "0a03e803e80360ea")});
        const TransferProgress last = fixture.send(2, pattern(65));
        QCOMPARE(last.records, 3u);
        QVERIFY(fixture.bus.sent.contains(u"1B1A2000#0400000000"_s));
        QVERIFY(fixture.bus.sent.contains(u"1B1A2000#0102000000"_s));
    }

    void frameLimit_neverExceedsWhatTheWireNumbers()
    {
        Fixture fixture;
        fixture.answer(0x1B1A0000, {frame(0x1B580000, "0bffe803e80360ea")});
        fixture.send(2, pattern(513));
        QVERIFY(fixture.bus.sent.contains(u"1B1A2000#4000000000"_s));
        QCOMPARE(fixture.bus.receiver.file(2), pattern(513));
    }

    void record_refusedIsSentAgain()
    {
        Fixture fixture;
        fixture.inject({u"corrupt@data:65"_s});
        const TransferProgress last = fixture.send(2, pattern(600));
        QCOMPARE(last.repeated, 1u);
        QCOMPARE(fixture.bus.receiver.file(2), pattern(600));
        QCOMPARE(fixture.bus.sent.count(u"1B1A2000#0B01000000"_s), 2);
    }

    void record_refusedTooOftenFails()
    {
        Fixture fixture({.timeout = {}, .retries = 2});
        fixture.inject({u"drop@data:1-"_s});
        const Failure failure = failureOf([&] { fixture.send(2, QByteArrayLiteral("123456789")); });
        QCOMPARE(failure.exit, Exit::RecordCrc);
        QCOMPARE(
            failure.message,
            u"The receiver refused record 1 of 1 with code 186 in each of 3 attempts: the CRC-32 that "
            "it computed is not 0xcbf43926, the one sent."_s);
        QCOMPARE(fixture.bus.sent.count(u"1B1A2000#0200000000"_s), 3);
    }

    void record_noRetriesFailsAtOnce()
    {
        Fixture fixture({.timeout = {}, .retries = 0});
        fixture.inject({u"drop@data:1"_s});
        QCOMPARE(failureOf([&] { fixture.send(2, pattern(8)); }).exit, Exit::RecordCrc);
        QCOMPARE(fixture.bus.sent.count(u"1B1A2000#0100000000"_s), 1);
    }

    void answer_thatIsNotDueIsAFailure_data()
    {
        QTest::addColumn<quint32>("to");
        QTest::addColumn<QCanBusFrame>("answer");
        QTest::addColumn<Exit>("exit");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("state");
        const QString incomplete =
            u"The receiver holds an incomplete configuration file (0 of 1 records) and waits without "
            "a time limit; sending the file again replaces it."_s;
        QTest::newRow("Initiate Transfer refused")
            << 0x1B1A1000u << frame(0x1B58101E, "0000000000000000") << Exit::Refused
            << u"The receiver refused Initiate Transfer with code 30."_s << QString();
        QTest::newRow("Record End with a code that is no refusal")
            << 0x1B1A3000u << frame(0x1B583007, "01") << Exit::Refused
            << u"The receiver refused Record End of record 1 of 1 with code 7."_s << incomplete;
        QTest::newRow("Record End that contradicts itself")
            << 0x1B1A3000u << frame(0x1B583000, "01") << Exit::BadAnswer
            << u"The receiver answered Record End of record 1 of 1 with code 0 but the verdict 1."_s
            << incomplete;
        QTest::newRow("success with another CRC-32")
            << 0x1B1A4000u << frame(0x1B584000, "01020304") << Exit::BadAnswer
            << u"The receiver answered Transfer Complete with code 0, but its CRC-32 of the file is "
               "0x04030201 and the one sent was 0xcbf43926."_s
            << u"The receiver says that it accepted the configuration file, but reports another "
               "CRC-32. It is not known what it stored or installed. Sending the file again replaces "
               "it."_s;
        QTest::newRow("failure with the CRC-32 that was sent")
            << 0x1B1A4000u << frame(0x1B5840BA, "2639f4cb") << Exit::BadAnswer
            << u"The receiver answered Transfer Complete with code 186, but its CRC-32 of the file is "
               "0xcbf43926 and the one sent was 0xcbf43926."_s
            << u"The receiver refused the configuration file although it computed the CRC-32 that was "
               "sent, so it did not install it; sending the file again replaces it."_s;
    }

    void answer_thatIsNotDueIsAFailure()
    {
        QFETCH(quint32, to);
        QFETCH(QCanBusFrame, answer);
        QFETCH(Exit, exit);
        QFETCH(QString, message);
        QFETCH(QString, state);
        Fixture f;
        f.answer(to, {answer});
        const Failure failure = failureOf([&] { f.send(0, QByteArrayLiteral("123456789")); });
        QCOMPARE(failure.exit, exit);
        QCOMPARE(failure.message, message);
        QCOMPARE(f.peer.receiverState(), state);
    }

    void record_answerAwaitedAsLongAsTheReceiverSays()
    {
        Fixture fixture;
        fixture.bus.tamper = [&fixture](const QCanBusFrame &sent,
                                        const QList<QCanBusFrame> &answers) {
            if (sent.frameId() == 0x1B1A0000)
                return QList{frame(0x1B580000, "0a3fe803881360ea")};
            fixture.bus.answerDelay = sent.frameId() == 0x1B1A3000 ? 5000 : 1;
            return answers;
        };
        fixture.send(2, pattern(8));
        QVERIFY(fixture.clock.now() >= 5000);
    }

    void record_unansweredIsNotSentAgain()
    {
        // The receiver may have appended the record: sending it again could append it twice.
        Fixture fixture;
        fixture.answer(0x1B1A3000, {});
        const Failure failure = failureOf([&] { fixture.send(2, QByteArrayLiteral("123456789")); });
        QCOMPARE(failure.exit, Exit::NoAnswer);
        QCOMPARE(
            failure.message,
            u"No answer to Record End of record 1 of 1: sent 1B1A3000#2639F4CB, waited 1000 ms for "
            "identifier 1B583000, received nothing."_s);
        QCOMPARE(fixture.bus.sent.count(u"1B1A3000#2639F4CB"_s), 1);
    }

    void info_refusedNamesTheVersions()
    {
        Fixture fixture;
        fixture.answer(0, {frame(0x1B58001D, "0e3fe803e80360ea")});
        const Failure failure = failureOf([&] { fixture.send(2, pattern(8)); });
        QCOMPARE(failure.exit, Exit::Refused);
        QCOMPARE(failure.message, u"The receiver refused Transfer Info with code 29."_s);
        QCOMPARE(failure.hint, u"The receiver speaks protocol version 3, this tool version 2."_s);
        QCOMPARE(fixture.bus.sent.size(), 1);
    }

    void complete_awaitedForTheLongLimit()
    {
        Fixture fixture;
        fixture.bus.tamper = [&fixture](const QCanBusFrame &sent,
                                        const QList<QCanBusFrame> &answers) {
            fixture.bus.answerDelay = sent.frameId() == 0x1B1A4000 ? 59'000 : 1;
            return answers;
        };
        fixture.send(0, pattern(8));
        QVERIFY(fixture.clock.now() >= 59'000);
        QCOMPARE(fixture.bus.receiver.installations, 1);
    }

    void complete_shorterLimitWhenAskedFor()
    {
        Fixture fixture({.timeout = 500});
        fixture.answer(0x1B1A4000, {});
        QCOMPARE(failureOf([&] { fixture.send(0, pattern(8)); }).exit, Exit::NoAnswer);
        QVERIFY(fixture.clock.now() < 600);
    }

    void complete_crcDiffersShowsBothValues()
    {
        Fixture fixture;
        fixture.inject({u"repeat@record-end:1"_s});
        const Failure failure = failureOf(
            [&] { fixture.send(2, QByteArray(512, 'a') + QByteArray(8, 'b')); });
        QCOMPARE(failure.exit, Exit::FileCrc);
        QCOMPARE(failure.message,
                 u"The CRC-32 of the file differs: 0x94124c85 sent, 0x48964a4b at the receiver."_s);
    }

    void parametersOfZero_fallBackToTheDefault()
    {
        Fixture fixture;
        fixture.bus.answerDelay = 900;
        fixture.answer(0x1B1A0000, {frame(0x1B580000, "0a3f000000000000")});
        fixture.send(2, pattern(600));
        QCOMPARE(fixture.bus.receiver.file(2), pattern(600));
    }

    void progress_neverShowsAllBeforeTheReceiverConfirmed()
    {
        Fixture fixture;
        fixture.send(2, pattern(1500));
        quint64 bytes = 0;
        for (const TransferProgress &p : std::as_const(fixture.progress)) {
            QVERIFY(p.bytes >= bytes);
            bytes = p.bytes;
            if (p.phase == TransferProgress::Phase::Confirmed)
                QCOMPARE(p.bytes, 1500u);
        }
        QVERIFY(fixture.progress.last().phase == TransferProgress::Phase::Confirmed);
        QVERIFY(fixture.progress.at(fixture.progress.size() - 2).phase
                == TransferProgress::Phase::Confirming);
    }

    void progress_countsRepeatedRecords()
    {
        Fixture fixture;
        fixture.inject({u"drop@data:3"_s, u"corrupt@data:70"_s});
        const TransferProgress last = fixture.send(2, pattern(600));
        QCOMPARE(last.repeated, 2u);
        QCOMPARE(last.bytes, 600u);
    }

    void state_tellsWhatTheReceiverIsLeftWith()
    {
        Fixture fixture;
        fixture.inject({u"abandon@data:100"_s});
        const Failure failure = failureOf([&] { fixture.send(3, pattern(1500)); });
        QCOMPARE(failure.exit, Exit::Abandoned);
        QCOMPARE(
            fixture.peer.receiverState(),
            u"The receiver holds an incomplete package file (1 of 3 records) and waits without a "
            "time limit; sending the file again replaces it."_s);
        fixture.send(3, pattern(1500));
        QCOMPARE(fixture.bus.receiver.file(3), pattern(1500));
        QVERIFY(fixture.peer.receiverState().isEmpty());
    }

    void interruption_endsTheTransfer_data()
    {
        QTest::addColumn<quint32>("at");
        QTest::addColumn<QString>("state");
        QTest::newRow("before Initiate Transfer") << 0x1B1A0000u << QString();
        QTest::newRow("at Initiate Transfer")
            << 0x1B1A1000u
            << u"The receiver may have emptied its menu file already; sending the file again "
               "replaces it."_s;
        QTest::newRow("in a record")
            << 0x1B1AF050u
            << u"The receiver holds an incomplete menu file (0 of 3 records) and waits without a time "
               "limit; sending the file again replaces it."_s;
    }

    void interruption_endsTheTransfer()
    {
        QFETCH(quint32, at);
        QFETCH(QString, state);
        Fixture f;
        f.whenSent(at, [&f] { f.link.interrupt(); });
        QCOMPARE(failureOf([&] { f.send(1, pattern(1500)); }).exit, Exit::Interrupted);
        QVERIFY(f.bus.sent.last().startsWith(text(frame(at, ""))));
        QCOMPARE(f.peer.receiverState(), state);
    }

    void interface_goesAwayInTheMiddle()
    {
        Fixture fixture;
        fixture.whenSent(0x1B1AF050, [&] { fixture.bus.goAway(); });
        const Failure failure = failureOf([&] { fixture.send(2, pattern(1500)); });
        QCOMPARE(failure.exit, Exit::Interface);
        QCOMPARE(failure.message, u"The CAN interface went away: Network is down."_s);
    }

    void foreignTraffic_isIgnored()
    {
        Fixture fixture;
        fixture.bus.tamper = [](const QCanBusFrame &, QList<QCanBusFrame> answers) {
            QCanBusFrame baseFormat(0x123, QByteArrayLiteral("x"));
            answers.prepend(frame(0x1B593000, "01"));
            answers.prepend(frame(0x0C000000, "0102030405060708"));
            answers.prepend(baseFormat);
            return answers;
        };
        fixture.send(2, pattern(1500));
        QCOMPARE(fixture.bus.receiver.file(2), pattern(1500));
    }
};

QTEST_GUILESS_MAIN(TransferTest)
#include "tst_transfer.moc"
