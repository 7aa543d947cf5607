// The state of a production line.

#include "ledger.h"

#include "fixture.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class LedgerTest : public QObject
{
    Q_OBJECT

private slots:
    void isOnTheDiskAndGoesOnFromThere()
    {
        {
            Ledger ledger(m_path);
            ledger.set(u"A"_s, u"started"_s, u"can0"_s);
            ledger.set(u"B"_s, u"started"_s, u"can1"_s);
            ledger.set(u"A"_s, u"done"_s, u"can0"_s);
            QFile file(m_path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(
                file.readAll(),
                "{\"interface\":\"can0\",\"message\":\"\",\"serial\":\"A\",\"state\":\"done\"}\n"
                "{\"interface\":\"can1\",\"message\":\"\",\"serial\":\"B\",\"state\":\"started\"}\n"_ba);
        }
        const Ledger ledger(m_path);
        QCOMPARE(ledger.units().keys(), (QStringList{u"A"_s, u"B"_s}));
        QCOMPARE(ledger.units().value(u"A"_s).value(u"state"_s).toString(), u"done"_s);
        // The process has ended, and nobody knows how far that unit is.
        QCOMPARE(ledger.units().value(u"B"_s).value(u"state"_s).toString(), u"failed"_s);
    }

    void isOneProcesssOwn()
    {
        const Ledger first(m_path);
        const Failure failure = failureOf([this] { const Ledger second(m_path); });
        QCOMPARE(failure.exit, Exit::InUse);
    }

    void aFullDiskIsToldAndTheOldStateStays()
    {
        const QString path = m_directory.filePath(u"full"_s);
        Ledger ledger(path);
        ledger.set(u"A"_s, u"done"_s, u"can0"_s);
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit small = {100, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        const Failure failure = failureOf([&] { ledger.set(u"B"_s, u"started"_s, u"can0"_s); });
        setrlimit(RLIMIT_FSIZE, &limit);
        QCOMPARE(failure.exit, Exit::LocalFile);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(),
                 "{\"interface\":\"can0\",\"message\":\"\",\"serial\":\"A\",\"state\":\"done\"}\n");
    }

    void linesThatAreNoUnitAreNamed()
    {
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\"serial\":\"A\"}\n\n{\"serial\":\n");
        file.close();
        const Failure failure = failureOf([this] { const Ledger ledger(m_path); });
        QCOMPARE(failure.message, u"%1, line 3: this is not a unit's state."_s.arg(m_path));
    }

private:
    const QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath(u"state"_s);
};

QTEST_GUILESS_MAIN(LedgerTest)
#include "tst_ledger.moc"
