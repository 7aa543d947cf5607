// "shipwright line" from end to end: receivers of their own on two virtual buses.

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

/// Long enough for a computer with other work to do; three probes of it tell that a unit is off.
const QString timeout = u"--timeout=3000"_s;
constexpr int patience = 60'000;

/// A receiver with a service tree of its own, on the bus that the tool knows as \a interfaceName.
class Receiver
{
public:
    explicit Receiver(const QString &interfaceName)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QDir buses = QFileInfo(qEnvironmentVariable("VIRTUALBUS_SOCKET")).dir();
        environment.insert(u"VIRTUALBUS_SOCKET"_s, buses.filePath(interfaceName));
        environment.insert(u"QT_QUICK_BACKEND"_s, u"software"_s);
        m_process.setProcessEnvironment(environment);
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.setStandardErrorFile(QProcess::nullDevice());
        m_process.start(QStringLiteral(SANDBOX),
                        {u"--media"_s, m_media.path(), u"--"_s, QStringLiteral(DOCKHAND)});
    }
    ~Receiver() { kill(); }

    void kill()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }
    QByteArray serialNumber() const { return read(u"serialNumber"_s); }
    QByteArray file() const { return read(u"pendingUpdates/file.log"_s); }

private:
    QByteArray read(const QString &name) const
    {
        QFile file(m_media.filePath(u"service/korvane/"_s + name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("no such file");
    }

    QTemporaryDir m_media;
    QProcess m_process;
};

} // namespace

class LineTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        write(u"big"_s, QByteArray(200'000, 'b'));
        write(u"small"_s, QByteArrayLiteral("123456789"));
    }

    void cleanup()
    {
        m_line.terminate();
        m_line.waitForFinished(patience);
    }

    void unitKilledInTheMiddle_stopsNoOther()
    {
        // A big file waits after 99 of its records, so that there is a middle.
        write(u"units.csv"_s, "serial,generic\nA1,small\nA2,big\nA3,small\n"_ba);
        startLine({u"--interface"_s, u"can0"_s, u"--interface"_s, u"can1"_s, u"--fault"_s,
                   u"delay=15000@record-start:100"_s});
        const Receiver first(u"can0"_s);
        QVERIFY(waitFor(u"can0: A1 done.\n"_s));
        Receiver second(u"can1"_s);
        QVERIFY(waitFor(u"can1: A2 [#"_s));
        second.kill();
        QVERIFY(waitFor(u"can1: A2 failed: No answer to Record End of record "_s));
        QVERIFY(waitFor(u"can1: Waiting for a unit.\n"_s));
        // All the time A1 is on can0, and gets no other row.
        QVERIFY(m_out.contains(u"can0: Take the unit off. A1 done.\n"_s));
        const Receiver third(u"can1"_s);
        QVERIFY(waitFor(u"can1: A3 done.\n"_s));
        QCOMPARE(finish(), 15);
        QVERIFY2(m_out.endsWith(u"2 done, 1 failed, 0 left.\n"_s), qPrintable(m_out));
        QCOMPARE(
            QString::fromUtf8(m_line.readAllStandardError()),
            u"shipwright: Not provisioned: A2.\nTry: %1 says why. To give a unit away again, remove "
            "its line there.\n"_s.arg(path(u"units.csv.state"_s)));
        QCOMPARE(first.serialNumber(), "A1\n"_ba);
        QCOMPARE(first.file(), "123456789"_ba);
        QCOMPARE(second.serialNumber(), "A2\n"_ba);
        QCOMPARE(third.serialNumber(), "A3\n"_ba);

        const QByteArrayList state = contentOf(u"units.csv.state"_s).split('\n');
        QCOMPARE(
            state.value(0),
            "{\"interface\":\"can0\",\"message\":\"\",\"serial\":\"A1\",\"state\":\"done\"}"_ba);
        QVERIFY(state.value(1).startsWith(
            "{\"interface\":\"can1\",\"message\":\"No answer to Record "));
        QVERIFY(state.value(1).endsWith("\"serial\":\"A2\",\"state\":\"failed\"}"));
        QStringList reports;
        for (const QByteArray &line : contentOf(u"units.csv.report"_s).trimmed().split('\n')) {
            const QJsonObject unit = QJsonDocument::fromJson(line).object();
            reports += u"%1 %2 %3 %4 %5"_s
                           .arg(unit.value(u"serial"_s).toString(),
                                unit.value(u"interface"_s).toString(),
                                unit.value(u"result"_s).toString())
                           .arg(unit.value(u"status"_s).toInt())
                           .arg(unit.value(u"files"_s)[0][u"file"_s].toString());
        }
        QCOMPARE(reports,
                 (QStringList{u"A1 can0 done 0 small"_s, u"A2 can1 failed 6 big"_s,
                              u"A3 can1 done 0 small"_s}));
        // What is done or has failed is not given away again.
        startLine({});
        QCOMPARE(finish(), 15);
        QCOMPARE(m_out, u"2 done, 1 failed, 0 left.\n"_s);
    }

    void stoppedLine_goesOnWhereItWas()
    {
        write(u"units.csv"_s, "serial,generic\nB1,big\nB2,small\n"_ba);
        auto unit = std::make_unique<Receiver>(u"can0"_s);
        startLine({u"--fault"_s, u"delay=20000@record-start:100"_s});
        QVERIFY(waitFor(u"can0: B1 [#"_s));
        kill(pid_t(m_line.processId()), SIGINT);
        QCOMPARE(finish(), 130);
        QVERIFY2(
            m_out.contains(QRegularExpression(
                u"can0: B1 failed: Interrupted\\. The receiver holds an incomplete generic file "
                "\\(\\d+ of 391 records\\)"_s)),
            qPrintable(m_out));
        QVERIFY2(m_out.endsWith(u"0 done, 1 failed, 1 left.\n"_s), qPrintable(m_out));

        // The unit that failed is still there and gets no other row.
        startLine({});
        QVERIFY(waitFor(u"can0: Take the unit off. "_s));
        unit.reset();
        QVERIFY(waitFor(u"can0: Waiting for a unit.\n"_s));
        unit = std::make_unique<Receiver>(u"can0"_s);
        QCOMPARE(finish(), 15);
        QVERIFY2(m_out.endsWith(u"can0: B2 done.\n1 done, 1 failed, 0 left.\n"_s),
                 qPrintable(m_out));
        QCOMPARE(unit->serialNumber(), "B2\n"_ba);
    }

    void everythingIsRefusedBeforeTheFirstFrame_data()
    {
        QTest::addColumn<QByteArray>("table");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing file")
            << "serial,generic\nA,small\nB,none\n"_ba
            << u", line 3: %1/none cannot be read: No such file or directory."_s;
        QTest::newRow("pipe") << "serial,menu\nA,/dev/stdin\n"_ba
                              << u", line 2: /dev/stdin is not a regular file."_s;
        QTest::newRow("serial number twice")
            << "serial\nA\nB\nA\n"_ba
            << u", line 4: The serial number \"A\" is that of line 2 too."_s;
        QTest::newRow("serial number too long")
            << "serial\n1234567890123456\n"_ba
            << u", line 2: The serial number \"1234567890123456\" cannot be sent: it has 16 bytes in "
               "UTF-8, the maximum is 15."_s;
        QTest::newRow("no serial number")
            << "serial,generic\n,small\n"_ba
            << u", line 2: The serial number \"\" cannot be sent: it is empty."_s;
        QTest::newRow("date") << "serial,time\nA,now\nB,noon\n"_ba
                              << u", line 3: \"noon\" is not a date and time."_s;
        QTest::newRow("unknown column")
            << "serial;generic\nA;small\n"_ba
            << u": the column \"serial;generic\" is unknown, or there twice."_s;
        QTest::newRow("no column of serial numbers")
            << "generic\nsmall\n"_ba << u": the column \"serial\" is missing."_s;
        QTest::newRow("state is sent")
            << "serial,generic\nA,units.csv.state\n"_ba
            << u"The state %1/units.csv.state is also an input: it would be overwritten."_s;
    }

    void everythingIsRefusedBeforeTheFirstFrame()
    {
        QFETCH(QByteArray, table);
        QFETCH(QString, message);
        write(u"units.csv"_s, table);
        const bool readsState = table.contains(".state");
        if (readsState)
            write(u"units.csv.state"_s, "x"_ba);
        startLine({});
        QCOMPARE(finish(),
                 message.contains(u" cannot be read"_s) || message.contains(u"regular") ? 3 : 2);
        const QString start = u"shipwright: "_s + (readsState ? QString() : path(u"units.csv"_s));
        if (message.contains(u"%1"_s))
            message = message.arg(m_directory->path());
        const QString error = QString::fromUtf8(m_line.readAllStandardError());
        QVERIFY2(error.startsWith(start + message), qPrintable(error));
        QCOMPARE(m_out, QString());
        QCOMPARE(contentOf(u"units.csv.state"_s), readsState ? "x"_ba : "no such file"_ba);
    }

private:
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QByteArray contentOf(const QString &name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("no such file");
    }

    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write the test's own file");
    }

    void startLine(const QStringList &options)
    {
        m_out.clear();
        m_awaited = 0;
        m_line.start(QStringLiteral(SHIPWRIGHT),
                     QStringList{u"line"_s, path(u"units.csv"_s), timeout} + options);
        QVERIFY(m_line.waitForStarted());
    }

    /// Until the line has printed \a text behind what was waited for before.
    bool waitFor(const QString &text)
    {
        QElapsedTimer timer;
        timer.start();
        qsizetype found = -1;
        while ((found = m_out.indexOf(text, m_awaited)) < 0 && !timer.hasExpired(patience)) {
            m_line.waitForReadyRead(100);
            m_out += QString::fromUtf8(m_line.readAllStandardOutput());
        }
        m_awaited = found + text.size();
        return found >= 0;
    }

    int finish()
    {
        if (m_line.state() != QProcess::NotRunning && !m_line.waitForFinished(patience))
            return -1;
        m_out += QString::fromUtf8(m_line.readAllStandardOutput());
        return m_line.exitCode();
    }

    std::unique_ptr<QTemporaryDir> m_directory;
    QProcess m_line;
    QString m_out;           ///< of m_line
    qsizetype m_awaited = 0; ///< characters of it that were waited for
};

QTEST_GUILESS_MAIN(LineTest)
#include "tst_line.moc"
