#include "deviations.h"
#include "fixture.h"

#include "conformance.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;
using Outcome = ConformanceResult::Outcome;

static ConformanceSettings everything()
{
    ConformanceSettings settings;
    settings.destructive = true;
    return settings;
}

/// Runs the checks and compares that each is reported once.
static QList<ConformanceResult> resultsOf(Fixture &fixture, const ConformanceSettings &settings)
{
    Conformance conformance(fixture.link, settings);
    qsizetype reported = 0;
    if (!conformance.findReceiver())
        return {};
    conformance.run([&reported](const ConformanceResult &) { ++reported; });
    [&] {
        QCOMPARE(reported + conformance.count(Outcome::NotRun), conformance.results().size());
    }();
    return conformance.results();
}

static QStringList namesOf(const QList<ConformanceResult> &results, Outcome outcome)
{
    QStringList names;
    for (const ConformanceResult &result : results) {
        if (result.outcome == outcome)
            names += result.name;
    }
    return names;
}

class ConformanceTest : public QObject
{
    Q_OBJECT

private slots:
    void rightReceiver_passes()
    {
        Fixture fixture;
        const QList<ConformanceResult> results = resultsOf(fixture, everything());
        QCOMPARE(namesOf(results, Outcome::Failed), QStringList());
        QCOMPARE(namesOf(results, Outcome::Passed).size(), results.size());
        QCOMPARE(results.size(), conformanceChecks({}).size());
        QCOMPARE(fixture.bus.receiver.serialNumber, u"TEST12345678"_s);
        QCOMPARE(fixture.bus.receiver.file(0), QByteArrayLiteral("{}\n"));
    }

    void withoutConsent_onlyTheGenericFileChanges()
    {
        Fixture fixture;
        Conformance conformance(fixture.link, {});
        QVERIFY(conformance.findReceiver());
        conformance.run([](const ConformanceResult &) {});
        QCOMPARE(namesOf(conformance.results(), Outcome::Failed), QStringList());
        QVERIFY(conformance.count(Outcome::Skipped) > 10);
        QCOMPARE(conformance.changes(), QStringList{u"generic file"_s});
        QCOMPARE(fixture.bus.receiver.serialNumber, u"NotReceived"_s);
        QCOMPARE(fixture.bus.receiver.clock, QByteArray());
        QCOMPARE(fixture.bus.receiver.installations, 0);
        QCOMPARE(fixture.bus.receiver.files.keys(), QList<int>{2});
    }

    void only_runsTheChecksThatAreNamed()
    {
        Fixture fixture;
        ConformanceSettings settings;
        settings.only = u"RECORD: repeated"_s;
        QCOMPARE(namesOf(resultsOf(fixture, settings), Outcome::Passed),
                 (QStringList{u"record: repeated frames dropped"_s,
                              u"record: repeated Record End appends again"_s}));
    }

    void deviatingReceiver_isFound_data()
    {
        QTest::addColumn<QString>("check");
        for (const PlantedDeviation &planted : plantedDeviations())
            QTest::newRow(planted.behaviour) << QString::fromLatin1(planted.check);
    }

    void deviatingReceiver_isFound()
    {
        QFETCH(QString, check);
        Fixture fixture;
        fixture.bus.receiver.deviation = plantedDeviation(
            QString::fromLatin1(QTest::currentDataTag()));
        const QList<ConformanceResult> results = resultsOf(fixture, everything());
        const QStringList failed = namesOf(results, Outcome::Failed);
        QVERIFY2(failed.contains(check), qPrintable(failed.join(u'\n')));
        QCOMPARE(results.size(), conformanceChecks({}).size());
        QCOMPARE(namesOf(results, Outcome::NotRun), QStringList());
    }

    void everyCheck_findsADeviation()
    {
        QSet<QString> found;
        for (const PlantedDeviation &planted : plantedDeviations())
            found += QString::fromLatin1(planted.check);
        QStringList idle;
        for (const ConformanceCheck &check : conformanceChecks({})) {
            if (!found.contains(check.name))
                idle += check.name;
        }
        QCOMPARE(idle, QStringList());
    }

    void deviation_hasItsFrame()
    {
        Fixture fixture;
        fixture.bus.receiver.deviation = plantedDeviation(u"answers in slot 0"_s);
        const ConformanceResult result = resultsOf(fixture, {}).constFirst();
        QCOMPARE(result.outcome, Outcome::Failed);
        QCOMPARE(result.due, u"0F584800#5AA5"_s);
        QCOMPARE(result.came, u"0F584000#5AA5"_s);
        QCOMPARE(text(result.frames.at(result.cause).frame), u"0F1A0AC0#A55A"_s);
        QCOMPARE(text(result.frames.last().frame), u"0F584000#5AA5"_s);
    }

    void deadReceiver_endsTheChecks()
    {
        Fixture fixture;
        int left = 2000;
        fixture.bus.tamper = [&left](const auto &, const QList<QCanBusFrame> &answers) {
            return left-- > 0 ? answers : QList<QCanBusFrame>{};
        };
        Conformance conformance(fixture.link, everything());
        QVERIFY(conformance.findReceiver());
        while (left > 100)
            conformance.run([](const ConformanceResult &) {});
        const qint64 start = fixture.clock.now();
        conformance.run([](const ConformanceResult &) {});
        QVERIFY(fixture.clock.now() - start < 30'000);
        QCOMPARE(conformance.count(Outcome::Failed), 1);
        QCOMPARE(conformance.results().size(), conformanceChecks({}).size());
        QVERIFY(conformance.count(Outcome::NotRun) > 10);
    }

    void nobodyThere_isNoReceiver()
    {
        Fixture fixture;
        fixture.bus.tamper = [](const auto &, const auto &) { return QList<QCanBusFrame>{}; };
        Conformance conformance(fixture.link, {});
        QVERIFY(!conformance.findReceiver());
        QCOMPARE(conformance.changes(), QStringList());
    }

    void interruption_leavesAResultForEveryCheck()
    {
        Fixture fixture;
        Conformance conformance(fixture.link, {});
        QVERIFY(conformance.findReceiver());
        int reported = 0;
        const Failure failure = failureOf([&] {
            conformance.run([&](const ConformanceResult &) {
                if (++reported == 40)
                    fixture.link.interrupt();
            });
        });
        QCOMPARE(failure.exit, Exit::Interrupted);
        QCOMPARE(conformance.count(Outcome::Passed), 40);
        QCOMPARE(conformance.results().size(), conformanceChecks({}).size());
        QCOMPARE(conformance.changes(), QStringList{u"generic file"_s});
    }
};

QTEST_GUILESS_MAIN(ConformanceTest)
#include "tst_conformance.moc"
