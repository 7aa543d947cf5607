#include "fixture.h"

#include "conformance.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class ConformanceTest : public QObject
{
    Q_OBJECT

private slots:
    void rightReceiver_passes();
    void withoutConsent_nothingIsChangedThatLasts();
    void brokenReceiver_fails_data();
    void brokenReceiver_fails();
    void deviation_namesWhatWasDueAndWhatCame();
    void silentReceiver_failsEveryCheck();
};

static QStringList failedChecks(Fixture &fixture, bool destructive = true)
{
    QStringList failed;
    ConformanceSettings settings;
    settings.destructive = destructive;
    checkConformance(fixture.link, settings, [&failed](const ConformanceResult &result) {
        if (result.outcome == ConformanceResult::Outcome::Failed)
            failed += result.name;
    });
    return failed;
}

void ConformanceTest::rightReceiver_passes()
{
    Fixture fixture;
    QCOMPARE(failedChecks(fixture), QStringList());
    QCOMPARE(fixture.bus.receiver.serialNumber(), u"TEST12345678"_s);
    QCOMPARE(fixture.bus.receiver.file(0), QByteArrayLiteral("{}\n"));
}

void ConformanceTest::withoutConsent_nothingIsChangedThatLasts()
{
    Fixture fixture;
    QCOMPARE(failedChecks(fixture, false), QStringList());
    QCOMPARE(fixture.bus.receiver.serialNumber(), u"NotReceived"_s);
    QCOMPARE(fixture.bus.receiver.clock(), QByteArray());
    QCOMPARE(fixture.bus.receiver.installations(), 0);
    QCOMPARE(fixture.bus.receiver.file(0), QByteArray());
    QCOMPARE(fixture.bus.receiver.file(1), QByteArray());
    QCOMPARE(fixture.bus.receiver.file(3), QByteArray());
    QVERIFY(!fixture.bus.receiver.file(2).isEmpty());
}

void ConformanceTest::brokenReceiver_fails_data()
{
    QTest::addColumn<QString>("check");
    const auto row = [](const char *defect, const QString &check) {
        QTest::newRow(defect) << check;
    };
    row("accepts-any-version",
        u"Transfer Info: versions 0, 1, 3 and 34 refused with the parameters"_s);
    row("accepts-frames-out-of-order", u"record: frames out of order refused, then repeated"_s);
    row("accepts-initiate-of-seven-bytes", u"Initiate Transfer: 0 to 7 bytes refused"_s);
    row("accepts-other-destinations", u"silence: command to node 25"_s);
    row("accepts-other-interfaces", u"silence: command on another interface"_s);
    row("accepts-other-sources", u"silence: command from node 23"_s);
    row("answers-complete-twice", u"file: empty"_s);
    row("answers-from-destination", u"start of configuration: answered at destination 14"_s);
    row("answers-record-start", u"record: Record Start and Data Frames unanswered"_s);
    row("answers-unknown-operations", u"silence: operations 5 to 63"_s);
    row("answers-unknown-types", u"silence: message types 5 to 14"_s);
    row("appends-refused-records", u"record: wrong CRC-32 refused, then repeated"_s);
    row("drops-parameters-on-refusal",
        u"Transfer Info: 0 to 5 bytes refused with the parameters"_s);
    row("echoes-file-crc", u"completion: wrong CRC-32 answered with the computed one"_s);
    row("ignores-record-crc", u"record: wrong CRC-32 refused, then repeated"_s);
    row("ignores-slot", u"start of configuration: answered 5A A5 in every slot"_s);
    row("ignores-second-destination", u"start of configuration: answered at destination 14"_s);
    row("keeps-frame-number", u"record: frames out of order refused, then repeated"_s);
    row("keeps-old-content", u"completion: a shorter file replaces a longer one"_s);
    row("pads-short-frames", u"file: 1 to 1500 bytes in up to 3 records"_s);
    row("refuses-long-handshake", u"start of configuration: more bytes behind the handshake"_s);
    row("refuses-short-record-end", u"record: of zero length"_s);
    row("swaps-crc-bytes", u"file: 1 to 1500 bytes in up to 3 records"_s);
}

void ConformanceTest::brokenReceiver_fails()
{
    QFETCH(QString, check);
    Fixture fixture;
    const auto defect = ReceiverModel::defectFromName(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(defect);
    fixture.bus.receiver.setDefect(*defect);
    const QStringList failed = failedChecks(fixture);
    QVERIFY2(failed.contains(check), qPrintable(failed.join(u'\n')));
}

void ConformanceTest::deviation_namesWhatWasDueAndWhatCame()
{
    Fixture fixture;
    fixture.bus.receiver.setDefect(ReceiverModel::Defect::IgnoresSlot);
    QStringList deviations;
    checkConformance(fixture.link, {}, [&deviations](const ConformanceResult &result) {
        deviations += result.deviation;
    });
    QCOMPARE(deviations.first(), u"due: 0F584800#5AA5; came: 0F584000#5AA5"_s);
}

void ConformanceTest::silentReceiver_failsEveryCheck()
{
    Fixture fixture;
    fixture.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
    int checks = 0;
    const int failed = checkConformance(
        fixture.link, {}, [&checks](const ConformanceResult &result) {
            checks += result.outcome != ConformanceResult::Outcome::Skipped;
        });
    QVERIFY(checks > 40);
    QCOMPARE(failed, checks);
}

QTEST_GUILESS_MAIN(ConformanceTest)
#include "tst_conformance.moc"
