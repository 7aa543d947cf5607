// Every command of shipwright from end to end on the virtual bus, against the receiver itself.

#include "fixture.h"

#include "candump.h"
#include "faults.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int patience = 20'000;
const QString serviceTree = u"/media/service/korvane/"_s;
const QString serialNumberFile = serviceTree + u"serialNumber"_s;
const QString configurationFile = serviceTree + u"application/main/systemConfig.json"_s;
const QString menuFile = serviceTree + u"application/factory/menu/menu.tar"_s;
const QString genericFile = serviceTree + u"pendingUpdates/file.log"_s;
const QString packageFile = serviceTree + u"pendingUpdates/package.tar"_s;

struct Outcome
{
    int status = -1;
    QString out;
    QString err;

    QStringList lines() const { return out.split(u'\n', Qt::SkipEmptyParts); }
    QList<QJsonObject> events() const
    {
        QList<QJsonObject> events;
        for (const QString &line : lines())
            events += QJsonDocument::fromJson(line.toUtf8()).object();
        return events;
    }
};

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("no such file");
}

/// \a command as a shell would take it; the receiver's own limits are for a board, not for a busy
/// computer.
QStringList argumentsOf(const QString &command)
{
    QStringList arguments = QProcess::splitCommand(command);
    const bool takesTimeout = !command.contains(u"decode"_s) && !command.contains(u"watch"_s)
        && !qEnvironmentVariableIsSet("SHIPWRIGHT_TIMEOUT");
    if (takesTimeout && !arguments.contains(u"--timeout"_s))
        arguments << u"--timeout"_s << u"20000"_s;
    return arguments;
}

void startShipwright(QProcess &process, const QString &command)
{
    process.start(QStringLiteral(SHIPWRIGHT), argumentsOf(command));
    QVERIFY(process.waitForStarted());
}

/// All that --json has printed, for the schema.
QByteArray printedEvents;

Outcome outcomeOf(QProcess &process)
{
    const bool isRunning = process.state() != QProcess::NotRunning;
    if ((isRunning && !process.waitForFinished(60'000))
        || process.exitStatus() != QProcess::NormalExit)
        return {};
    const QByteArray out = process.readAllStandardOutput();
    if (process.arguments().contains(u"--json"_s))
        printedEvents += out;
    return {process.exitCode(), QString::fromUtf8(out),
            QString::fromUtf8(process.readAllStandardError())};
}

Outcome shipwright(const QString &command, const QByteArray &input = {})
{
    QProcess process;
    startShipwright(process, command);
    process.write(input);
    process.closeWriteChannel();
    return outcomeOf(process);
}

void signalTo(const QProcess &process, int signal)
{
    ::kill(pid_t(process.processId()), signal);
}

/// A terminal as standard output of a process.
class Terminal
{
public:
    explicit Terminal(QProcess &process)
    {
        if (grantpt(m_end) != 0 || unlockpt(m_end) != 0)
            qFatal("no terminal for the test");
        process.setStandardOutputFile(QString::fromLocal8Bit(ptsname(m_end)));
    }
    ~Terminal() { ::close(m_end); }
    Q_DISABLE_COPY_MOVE(Terminal)

    void setColumns(int columns) const
    {
        const winsize size{24, static_cast<ushort>(columns), 0, 0};
        ::ioctl(m_end, TIOCSWINSZ, &size);
    }
    /// The bars of the first transfer so far.
    QStringList bars()
    {
        char bytes[4096];
        for (ssize_t size = 0; (size = ::read(m_end, bytes, sizeof(bytes))) > 0;)
            m_shown += QString::fromUtf8(bytes, size);
        return m_shown.section(u'\n', 0, 0).split(u"\r\x1b[K"_s, Qt::SkipEmptyParts);
    }

private:
    const int m_end = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    QString m_shown;
};

std::unique_ptr<QCanBusDevice> openDevice()
{
    std::unique_ptr<QCanBusDevice> device(
        QCanBus::instance()->createDevice(u"socketcan"_s, u"can0"_s));
    return device && device->connectDevice() ? std::move(device) : nullptr;
}

/// A receiver that answers as \a behaviour says; empty: rightly.
class StandIn
{
public:
    explicit StandIn(const QString &behaviour)
    {
        m_process.start(QStringLiteral(STANDIN),
                        behaviour.isEmpty() ? QStringList() : QStringList{behaviour});
        m_process.waitForReadyRead();
    }
    ~StandIn() { kill(); }

    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
};

} // namespace

class ShipwrightTest : public QObject
{
    Q_OBJECT

private slots:
    /// One receiver serves all tests but those that stop it.
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        QVERIFY(m_directory->isValid());
        if (m_receiver.state() == QProcess::Running)
            return;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QUICK_BACKEND"_s, u"software"_s);
        environment.insert(u"DOCKHAND_STAND_IN_LOG"_s, m_clockLog);
        m_receiver.setProcessEnvironment(environment);
        m_receiver.setStandardOutputFile(QProcess::nullDevice());
        // A pipe that nobody reads would fill with its log and block it.
        m_receiver.setStandardErrorFile(QProcess::nullDevice());
        m_receiver.start(QStringLiteral(DOCKHAND), {});
        QVERIFY(m_receiver.waitForStarted());
        int status = -1;
        for (int attempt = 0; attempt < 100 && status != 0; ++attempt)
            status = shipwright(u"info --timeout 100"_s).status;
        QCOMPARE(status, 0);
    }

    /// What was printed is what the schema promises; after all tests, it has promised nothing else.
    void cleanupTestCase()
    {
        stopReceiver();
        QStringList arguments{QStringLiteral(CHECK_EVENTS), QStringLiteral(SCHEMA)};
        if (QCoreApplication::arguments().size() == 1)
            arguments += u"--all"_s;
        QProcess process;
        process.start(u"/usr/bin/python3"_s, arguments);
        process.write(printedEvents);
        process.closeWriteChannel();
        const Outcome outcome = outcomeOf(process);
        QVERIFY2(outcome.status == 0, qPrintable(outcome.out + outcome.err));
    }

    void command_saysWhatItDid_data()
    {
        QTest::addColumn<QString>("text");
        const auto row = [](const char *command, const QString &text) {
            QTest::newRow(command) << text;
        };
        row("connect", u"Connected.\n"_s);
        row("connect --destination 14 --slot 3", u"Connected.\n"_s);
        row("info",
            u"Protocol version:             2\n"
            "Data frames in a record:      64\n"
            "Flag:                         1\n"
            "Limit for a negotiation:      1000 ms\n"
            "Limit for a record:           1000 ms\n"
            "Limit for the whole file:     60000 ms\n"_s);
        row("set-time 2024-03-05T14:07:09Z", u"Clock set to 2024-03-05 14:07:09 UTC.\n"_s);
        row("set-time \"2024-03-05 14:07:09 UTC\"", u"Clock set to 2024-03-05 14:07:09 UTC.\n"_s);
        row("end", u"Configuration ended.\n"_s);
        row("selftest --only \"RECORD: WITHOUT\"",
            u"pass  record: without frames\n1 passed, 0 failed, 0 skipped.\n"
            "Overwritten on the receiver: generic file.\n"_s);
    }

    void command_saysWhatItDid()
    {
        QFETCH(QString, text);
        const Outcome outcome = shipwright(QString::fromUtf8(QTest::currentDataTag()));
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, text);
        QCOMPARE(outcome.status, 0);
    }

    void setTime_setsTheClock()
    {
        QCOMPARE(shipwright(u"set-time 2025-03-05T14:07:09Z"_s).status, 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            contentOf(m_clockLog).contains("timedatectl\tset-time\t2025-03-05 14:07:09 UTC\n"),
            patience);
        QCOMPARE(shipwright(u"set-time"_s).status, 0);
    }

    void setSerial_storesTheNumber()
    {
        QCOMPARE(shipwright(u"set-serial SN1234567890"_s).status, 0);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("SN1234567890\n"));
        QCOMPARE(shipwright(u"set-serial Ä1"_s).status, 0);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("\xC3\x84\x31\n"));
    }

    void send_putsTheFileInItsPlace_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("place");
        QTest::newRow("configuration") << "{\"a\": \"" + QByteArray(5000, 'b') + "\"}\n"
                                       << configurationFile;
        QTest::newRow("menu") << pattern(513) << menuFile;
        QTest::newRow("generic") << pattern(100'000) << genericFile;
        QTest::newRow("package") << pattern(512) << packageFile;
        QTest::newRow("generic ") << QByteArray() << genericFile;
    }

    void send_putsTheFileInItsPlace()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, place);
        const QString type = QString::fromUtf8(QTest::currentDataTag());
        const Outcome outcome = shipwright(u"send %1 %2"_s.arg(type, file(u"sent"_s, content)));
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.status, 0);
        QCOMPARE(contentOf(place), content);
    }

    void send_readsStandardInput_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("as a dash") << u"-"_s;
        QTest::newRow("as a device") << u"/dev/stdin"_s;
    }

    void send_readsStandardInput()
    {
        QFETCH(QString, name);
        const Outcome outcome = shipwright(u"send generic "_s + name, pattern(3000));
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.status, 0);
        QCOMPARE(contentOf(genericFile), pattern(3000));
    }

    void send_readsANamedPipeOnce()
    {
        const QString path = pipe();
        QProcess process;
        startShipwright(process, u"send generic "_s + path);
        QProcess writer;
        writer.start(u"dd"_s, {u"of="_s + path, u"status=none"_s});
        writer.write(pattern(3000));
        writer.closeWriteChannel();
        QCOMPARE(outcomeOf(writer).status, 0);
        const Outcome outcome = outcomeOf(process);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.status, 0);
        QCOMPARE(contentOf(genericFile), pattern(3000));
    }

    void send_waitingForAPipeIsInterrupted_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("termination") << SIGTERM;
    }

    void send_waitingForAPipeIsInterrupted()
    {
        QFETCH(int, signal);
        const QString path = pipe();
        QProcess process;
        startShipwright(process, u"send generic "_s + path);
        // Opened for writing once the tool has it open for reading; nothing is written.
        int writer = -1;
        QTRY_VERIFY_WITH_TIMEOUT(
            (writer = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK)) >= 0,
            patience);
        signalTo(process, signal);
        const Outcome outcome = outcomeOf(process);
        ::close(writer);
        QCOMPARE(outcome.status, 130);
        QCOMPARE(outcome.err, u"shipwright: Interrupted.\n"_s);
    }

    void send_whatChangesMeanwhileArrivesAsItWas()
    {
        // The receiver is held up until the file has changed.
        signalTo(m_receiver, SIGSTOP);
        const auto goOn = qScopeGuard([this] { signalTo(m_receiver, SIGCONT); });
        QProcess process;
        startShipwright(
            process,
            u"send generic %1 --log %2"_s.arg(file(u"sent"_s, pattern(2000)), path(u"log"_s)));
        QTRY_COMPARE_WITH_TIMEOUT(loggedFrames(), 1, patience);
        file(u"sent"_s, QByteArray(500, 'x'));
        signalTo(m_receiver, SIGCONT);
        QCOMPARE(outcomeOf(process).status, 0);
        QCOMPARE(contentOf(genericFile), pattern(2000));
    }

    void send_recoversFromACorruptedFrame()
    {
        const Outcome outcome = shipwright(
            u"send generic %1 --fault corrupt@data:70"_s.arg(file(u"sent"_s, pattern(3000))));
        QCOMPARE(outcome.status, 0);
        QVERIFY2(outcome.out.endsWith(u"; 1 record sent again.\n"_s), qPrintable(outcome.out));
        QCOMPARE(contentOf(genericFile), pattern(3000));
    }

    void configuration_emptyIsRefusedUnlessForced()
    {
        QCOMPARE(shipwright(u"send configuration "_s + file(u"good"_s, "{}\n")).status, 0);
        const QString path = file(u"empty"_s, {});
        for (const QString &command :
             {u"send configuration "_s, u"provision --serial NEVER --configuration "_s}) {
            const Outcome outcome = shipwright(command + path);
            QCOMPARE(outcome.status, 3);
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.err,
                     u"shipwright: The configuration %1 is empty; it would replace the "
                     "receiver's configuration.\nTry: --force sends it anyway.\n"_s.arg(path));
            QCOMPARE(contentOf(configurationFile), QByteArrayLiteral("{}\n"));
        }
        QCOMPARE(shipwright(u"send configuration --force "_s + path).status, 0);
        QCOMPARE(contentOf(configurationFile), QByteArray());
    }

    void configuration_thatIsNotJsonIsSentWithAWarning()
    {
        const QString path = file(u"odd"_s, "{\"a\": }\n");
        const Outcome outcome = shipwright(u"send configuration "_s + path);
        // The text between the brackets comes from Qt.
        QVERIFY2(outcome.err.startsWith(
                     u"shipwright: Warning: The configuration %1 is not JSON ("_s.arg(path)),
                 qPrintable(outcome.err));
        QVERIFY2(outcome.err.endsWith(u" at byte 7); it is sent as it is.\n"_s),
                 qPrintable(outcome.err));
        QCOMPARE(outcome.status, 0);
        QCOMPARE(contentOf(configurationFile), QByteArrayLiteral("{\"a\": }\n"));
    }

    void output_isNeverWhatIsRead()
    {
        const QString path = file(u"frames.log"_s, "(1.000000) can0 0F1A02C4#\n");
        QProcess process;
        process.setStandardOutputFile(path, QIODevice::Append);
        startShipwright(process, u"decode "_s + path);
        QCOMPARE(outcomeOf(process).status, 2);
        QCOMPARE(contentOf(path), QByteArrayLiteral("(1.000000) can0 0F1A02C4#\n"));
    }

    void output_onAFullDiskIsAFailure_data()
    {
        QTest::addColumn<QString>("command");
        for (const char *command : {"decode", "info", "watch", "send generic $FILE"})
            QTest::newRow(command) << QString::fromLatin1(command);
    }

    void output_onAFullDiskIsAFailure()
    {
        QFETCH(QString, command);
        command.replace(u"$FILE"_s, file(u"sent"_s, pattern(600)));
        QProcess process;
        process.setStandardOutputFile(u"/dev/full"_s);
        startShipwright(process, command);
        process.write("(1.000000) can0 0F1A02C4#\n");
        process.closeWriteChannel();
        // Send something to watch, until it watches.
        while (command == u"watch" && !process.waitForFinished(200))
            QCOMPARE(shipwright(u"end"_s).status, 0);
        const Outcome outcome = outcomeOf(process);
        QCOMPARE(outcome.status, 3);
        QCOMPARE(outcome.err,
                 u"shipwright: Standard output cannot be written: No space left on device.\n"_s);
        if (command.startsWith(u"send"))
            QCOMPARE(contentOf(genericFile), pattern(600));
    }

    void secondTool_onTheInterfaceIsRefused()
    {
        signalTo(m_receiver, SIGSTOP);
        const auto goOn = qScopeGuard([this] { signalTo(m_receiver, SIGCONT); });
        QProcess first;
        startShipwright(first, u"set-serial AAAA111122223 --log "_s + path(u"log"_s));
        QTRY_COMPARE_WITH_TIMEOUT(loggedFrames(), 1, patience);
        const Outcome second = shipwright(u"set-serial BBBB444455556"_s);
        QCOMPARE(second.status, 13);
        QCOMPARE(
            second.err,
            u"shipwright: Another shipwright (process %1) uses the interface \"can0\"; nothing was "
            "sent.\nTry: Wait until it ends: two tools at once would mix their frames.\n"_s.arg(
                first.processId()));
        signalTo(m_receiver, SIGCONT);
        QCOMPARE(outcomeOf(first).status, 0);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("AAAA111122223\n"));
        QCOMPARE(shipwright(u"set-serial BBBB444455556"_s).status, 0);
    }

    void foreignTool_endsTheSession()
    {
        const auto other = openDevice();
        QVERIFY(other);
        QProcess process;
        startShipwright(process,
                        u"set-serial AAAA111122223 --fault delay=1500@command:2 --log "_s
                            + path(u"log"_s));
        QTRY_COMPARE_WITH_TIMEOUT(loggedFrames(), 2, patience);
        QVERIFY(other->writeFrame(QCanBusFrame(0x0F1A02C2, QByteArray::fromHex("0442424242"))));
        QTRY_COMPARE_WITH_TIMEOUT(other->framesToWrite(), 0, patience);
        const Outcome outcome = outcomeOf(process);
        QCOMPARE(outcome.status, 14);
        QCOMPARE(
            outcome.err,
            u"shipwright: Another service tool uses this bus: node 24 sent 0F1A02C2#0442424242, "
            "which this tool did not send. The session ended there.\n"
            "The receiver has the first 7 bytes of the serial number and has stored nothing yet; set "
            "the whole number again.\n"
            "Try: Stop the other tool, then start this session again.\n"_s);
        QVERIFY(!contentOf(path(u"log"_s)).contains("0F1A02C3#"));
    }

    void options_thatACommandDoesNotTakeAreRefused_data()
    {
        QTest::addColumn<QString>("command");
        for (const char *command :
             {"decode --interface can9", "decode --fault drop@any", "decode --log x",
              "watch --fault drop@any", "watch --timeout 5", "watch --slot 1", "info --slot 1",
              "info --retries 1", "send --slot 1", "connect --retries 1", "connect --serial 1",
              "selftest --destination 14", "selftest --slot 1"})
            QTest::newRow(command) << QString::fromLatin1(command);
    }

    void options_thatACommandDoesNotTakeAreRefused()
    {
        QFETCH(QString, command);
        const Outcome outcome = shipwright(command);
        QCOMPARE(outcome.status, 2);
        QCOMPARE(outcome.err,
                 u"shipwright: Unknown option '%1'.\nTry: shipwright %2 --help\n"_s.arg(
                     command.section(u' ', 1, 1).mid(2), command.section(u' ', 0, 0)));
    }

    void options_haveDefaultsInTheEnvironment_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        const auto row = [](const char *variable, const QString &command, int status,
                            const QString &message) {
            QTest::addRow("%s", variable) << command << status << message;
        };
        row("PLUGIN=semaphore", u"connect"_s, 4,
            u"The CAN plugin \"semaphore\" has no interface \"can0\""_s);
        row("INTERFACE=can7", u"connect --plugin semaphore"_s, 4,
            u"The CAN plugin \"semaphore\" has no interface \"can7\""_s);
        row("BITRATE=1", u"info"_s, 2,
            u"SHIPWRIGHT_BITRATE takes a number from 10000 to 1000000, not \"1\"."_s);
        row("DESTINATION=1", u"info"_s, 2, u"SHIPWRIGHT_DESTINATION takes 26 or 14, not \"1\"."_s);
        row("SLOT=4", u"connect"_s, 2, u"SHIPWRIGHT_SLOT takes a number from 0 to 3, not \"4\"."_s);
        row("RETRIES=x", u"provision"_s, 2,
            u"SHIPWRIGHT_RETRIES takes a number from 0 to 1000, not \"x\"."_s);
        row("TIMEOUT=0", u"info"_s, 2,
            u"SHIPWRIGHT_TIMEOUT takes a number from 1 to 2147483647, not \"0\"."_s);
        row("SLOT=4", u"connect --slot 3"_s, 0, {});
        row("SLOT=", u"connect"_s, 0, {});
        row("SLOT=4", u"info"_s, 0, {});
    }

    void options_haveDefaultsInTheEnvironment()
    {
        QFETCH(QString, command);
        QFETCH(int, status);
        QFETCH(QString, message);
        const QByteArrayList setting = QByteArray(QTest::currentDataTag()).split('=');
        const QByteArray variable = "SHIPWRIGHT_" + setting.at(0);
        qputenv(variable, setting.at(1));
        const Outcome outcome = shipwright(command);
        qunsetenv(variable);
        QVERIFY2(
            outcome.err.startsWith(message.isEmpty() ? QString() : u"shipwright: "_s + message),
            qPrintable(outcome.err));
        QCOMPARE(outcome.status, status);
    }

    void completion_offersWhatFits_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<QString>("offered");
        QTest::newRow("commands") << u"se"_s << u"set-time set-serial send selftest"_s;
        QTest::newRow("commands behind an option") << u"--interface can1 dec"_s << u"decode"_s;
        QTest::newRow("options of a command")
            << u"selftest --"_s
            << u"--help --version --json --destructive --only --list --report --plugin --interface "
               "--bitrate --log --timeout --fault"_s;
        QTest::newRow("an option") << u"set-time --sl"_s << u"--slot"_s;
        QTest::newRow("words of an argument") << u"send m"_s << u"menu"_s;
        QTest::newRow("an argument that may be left out") << u"set-time ''"_s << u"now"_s;
        QTest::newRow("nothing") << u"connect ''"_s << u""_s;
        QTest::newRow("file names") << u"send menu ''"_s << u""_s;
        QTest::newRow("an option's value") << u"connect --log ''"_s << u""_s;
    }

    void completion_offersWhatFits()
    {
        QFETCH(QString, words);
        QFETCH(QString, offered);
        // As bash does for the Tab key.
        const QString script =
            u"PATH=$(dirname '%1'):$PATH; . '%2'; COMP_WORDS=(shipwright %3); "
            "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
            "$(complete -p shipwright | sed 's/.* -F \\([^ ]*\\).*/\\1/') shipwright; "
            "echo \"${COMPREPLY[*]}\""_s.arg(QStringLiteral(SHIPWRIGHT), QStringLiteral(COMPLETION),
                                             words);
        QProcess process;
        process.start(u"bash"_s, {u"-c"_s, script});
        const Outcome outcome = outcomeOf(process);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, offered + u'\n');
    }

    void help_namesEveryFault()
    {
        const QString help = shipwright(u"connect --help"_s).out.simplified();
        QVERIFY2(help.contains(u"Actions: %1. Frames: %2."_s.arg(
                     Shipwright::FaultPlan::actionNames().join(u", "_s),
                     Shipwright::FaultPlan::frameNames().join(u", "_s))),
                 qPrintable(help));
    }

    void bitRate_tooLowIsRemarkedOn()
    {
        const Outcome outcome = shipwright(
            u"send generic %1 --bitrate 10000"_s.arg(file(u"sent"_s, pattern(3000))));
        QCOMPARE(outcome.status, 0);
        QVERIFY2(outcome.out.endsWith(
                     u" (more than a bus of 10000 bit/s can carry: check --bitrate).\n"_s),
                 qPrintable(outcome.out));
        QVERIFY(!outcome.out.contains(u"of the bus"_s));
    }

    void progress_isABarOnATerminal()
    {
        QProcess process;
        Terminal terminal(process);
        terminal.setColumns(100);
        // So long that a real bus could carry it.
        startShipwright(
            process,
            u"send generic %1 --bitrate 1000000 --fault delay=700@transfer-complete"_s.arg(
                file(u"sent"_s, pattern(20'000))));
        QCOMPARE(outcomeOf(process).status, 0);
        const QStringList bars = terminal.bars();
        QVERIFY(bars.size() >= 3);
        QVERIFY2(bars.first().startsWith(u"[------------------------]   0 %"_s),
                 qPrintable(bars.first()));
        for (const QString &bar : bars.mid(0, bars.size() - 1)) {
            QVERIFY2(!bar.contains(u"100 %"_s), qPrintable(bar));
            QVERIFY2(bar.size() < 100, qPrintable(bar));
        }
        QVERIFY2(bars.at(bars.size() - 2)
                     .startsWith(u"[#######################-]  99 % 20.0 kB of 20.0 kB"_s),
                 qPrintable(bars.at(bars.size() - 2)));
        QVERIFY2(bars.last().startsWith(u"[########################] 100 % 20.0 kB of 20.0 kB"_s),
                 qPrintable(bars.last()));
        QVERIFY2(bars.last().contains(u" % of the bus"_s), qPrintable(bars.last()));
    }

    void progress_fitsTheTerminalAsItIs_data()
    {
        QTest::addColumn<int>("columns");
        QTest::newRow("narrow") << 30;
        QTest::newRow("narrower than the bar") << 12;
        QTest::newRow("wide") << 200;
    }

    void progress_fitsTheTerminalAsItIs()
    {
        QFETCH(int, columns);
        QProcess process;
        Terminal terminal(process);
        terminal.setColumns(100);
        startShipwright(process,
                        u"send generic %1 --fault delay=1500@record-start:3"_s.arg(
                            file(u"sent"_s, pattern(100'000))));
        // It changes while the transfer waits.
        QTRY_VERIFY_WITH_TIMEOUT(!terminal.bars().isEmpty(), patience);
        terminal.setColumns(columns);
        QCOMPARE(outcomeOf(process).status, 0);
        const QStringList bars = terminal.bars();
        QVERIFY(bars.size() >= 3);
        for (const QString &bar : bars.last(2))
            QVERIFY2(bar.trimmed().size() < columns, qPrintable(bar));
        QVERIFY2(bars.last().contains(u"100 %"_s), qPrintable(bars.last()));
    }

    void provision_doesAWholeSession()
    {
        const Outcome outcome = shipwright(
            u"provision --time 2026-01-02T03:04:05Z --serial SN42 --configuration %1 --menu %2 "
            "--generic %3 --package %4 --json"_s.arg(
                file(u"configuration"_s, "{\"a\": 1}\n"), file(u"menu"_s, pattern(600)),
                file(u"generic"_s, pattern(10)), file(u"package"_s, pattern(1200))));
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.status, 0);
        QStringList events;
        for (const QJsonObject &event : outcome.events())
            events += event.value(u"event"_s).toString();
        events.removeAll(u"progress"_s);
        QCOMPARE(events.join(u' '), u"start connected clock serial sent sent sent sent ended"_s);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("SN42\n"));
        QCOMPARE(contentOf(configurationFile), QByteArrayLiteral("{\"a\": 1}\n"));
        QCOMPARE(contentOf(menuFile), pattern(600));
        QCOMPARE(contentOf(genericFile), pattern(10));
        QCOMPARE(contentOf(packageFile), pattern(1200));
    }

    void provision_refusesBeforeTheFirstFrame_data()
    {
        QTest::addColumn<QString>("options");
        QTest::addColumn<int>("status");
        const auto row = [](const char *name, const QString &options, int status) {
            QTest::newRow(name) << options << status;
        };
        row("missing file", u"--menu /nonexistent"_s, 3);
        row("file over 4 GiB", u"--package $SPARSE"_s, 3);
        row("device", u"--generic /dev/zero"_s, 3);
        row("file that cannot be read", u"--menu /proc/self/mem"_s, 3);
        row("standard input twice", u"--menu - --package /dev/stdin"_s, 2);
        row("year that the wire cannot carry", u"--time 1999-12-31T00:00:00Z"_s, 2);
        row("log that cannot be written", u"--log /nonexistent/log"_s, 3);
        row("log that is sent", u"--generic $FILE --log $FILE"_s, 2);
        row("report that cannot be written", u"--report /nonexistent/report"_s, 3);
        row("report that is sent", u"--generic $FILE --report $FILE"_s, 2);
        row("report that is the log", u"--report $FILE.x --log $FILE.x"_s, 2);
        row("report on a full disk", u"--report full/report"_s, 3);
    }

    void provision_refusesBeforeTheFirstFrame()
    {
        QFETCH(QString, options);
        QFETCH(int, status);
        QFile sparse(path(u"sparse"_s));
        QVERIFY(sparse.open(QIODevice::WriteOnly) && sparse.resize(4'294'967'296));
        options.replace(u"$SPARSE"_s, sparse.fileName());
        options.replace(u"$FILE"_s, file(u"sent"_s, "x"));
        // The test has its mounts to itself.
        QVERIFY(QDir().mkpath(u"full"_s));
        QCOMPARE(
            QProcess::execute(u"mount"_s,
                              {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=4k"_s, u"tmpfs"_s, u"full"_s}),
            0);
        const auto unmount = qScopeGuard([] { QProcess::execute(u"umount"_s, {u"full"_s}); });
        const QByteArray before = contentOf(serialNumberFile);
        const Outcome outcome = shipwright(u"provision --serial NEVER "_s + options);
        QCOMPARE(outcome.status, status);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(contentOf(serialNumberFile), before);
        QCOMPARE(contentOf(path(u"sent"_s)), QByteArrayLiteral("x"));
    }

    void provision_reportsEachUnit()
    {
        const QString path = file(u"sent"_s, "123456789");
        const QString report = this->path(u"report"_s);
        const QString command =
            u"provision --serial SN42 --generic %1 --menu %1 --report %2 "_s.arg(path, report);
        QCOMPARE(shipwright(command + u"--fault corrupt@data:1"_s).status, 0);
        QCOMPARE(shipwright(command + u"--fault abandon@data:3"_s).status, 12);
        QCOMPARE(shipwright(command + u"--slot 4"_s).status, 2);
        QByteArrayList lines = contentOf(report).split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        QCOMPARE(lines.size(), 2);

        QJsonObject done = QJsonDocument::fromJson(lines.first()).object();
        QVERIFY(
            QDateTime::fromString(done.take(u"time"_s).toString(), Qt::ISODateWithMs).isValid());
        QVERIFY(done.take(u"milliseconds"_s).toInt() > 0);
        QVERIFY(!done.take(u"tool"_s).toString().isEmpty());
        QJsonObject sent{
            {u"type"_s, u"menu"_s},
            {u"file"_s, path},
            {u"bytes"_s, 9},
            {u"crc"_s, u"cbf43926"_s},
            {u"sha256"_s, u"15e2b0d3c33891ebb0f1ef609ec419420c20e320ce94c65fbc8c3312448eb225"_s},
            {u"sent"_s, true}};
        QJsonObject next = sent;
        next.insert(u"type"_s, u"generic"_s);
        QCOMPARE(done,
                 (QJsonObject{{u"interface"_s, u"can0"_s},
                              {u"serial"_s, u"SN42"_s},
                              {u"files"_s, QJsonArray{sent, next}},
                              {u"repeated"_s, 1},
                              {u"result"_s, u"done"_s},
                              {u"status"_s, 0},
                              {u"message"_s, QString()},
                              {u"receiver"_s, QString()}}));
        const QJsonObject failed = QJsonDocument::fromJson(lines.last()).object();
        next.insert(u"sent"_s, false);
        QCOMPARE(failed.value(u"files"_s).toArray(), (QJsonArray{sent, next}));
        QCOMPARE(failed.value(u"result"_s).toString(), u"failed"_s);
        QCOMPARE(failed.value(u"status"_s).toInt(), 12);
        QVERIFY(
            failed.value(u"message"_s).toString().startsWith(u"Abandoned before sending 1B1AF0"_s));
        QVERIFY(
            failed.value(u"receiver"_s)
                .toString()
                .startsWith(u"The receiver holds an incomplete generic file (0 of 1 records)"_s));
    }

    void provision_reportThatCannotBeWritten()
    {
        const QString command = u"provision --serial SN43 --report /dev/full"_s;
        const QString reason =
            u"The report /dev/full cannot be written: No space left on device.\n"_s;
        const Outcome done = shipwright(command);
        QCOMPARE(done.status, 3);
        QCOMPARE(done.err, u"shipwright: The receiver is provisioned. "_s + reason);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("SN43\n"));
        const Outcome failed = shipwright(command + u" --fault abandon@command:2"_s);
        QCOMPARE(failed.status, 12);
        QVERIFY(failed.err.startsWith(u"shipwright: Warning: "_s + reason));
    }

    void watch_printsTheTrafficUntilInterrupted()
    {
        QProcess watch;
        startShipwright(watch, u"watch --interface can0 --interface can1"_s);
        QString seen;
        const auto hears = [&](const QString &pattern) {
            watch.waitForReadyRead(100);
            seen += QString::fromUtf8(watch.readAllStandardOutput());
            return seen.contains(QRegularExpression(u"(^|\n)"_s + pattern));
        };
        // Nobody answers on the other bus, and nothing tells when it is listened to.
        const QString unanswered = u"end --interface can1 --timeout 100"_s;
        for (int attempt = 0; attempt < 50 && !hears(u"can1 +[0-9.]+  0F1A02C4"_s); ++attempt)
            QCOMPARE(shipwright(unanswered).status, 6);
        QCOMPARE(shipwright(u"connect"_s).status, 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            hears(u"can0 +[0-9.]+  0F1A02C0  A5 5A                    Shipwright > Dockhand  P3 "
                  "Start Configuration: slot 0\n"
                  "can0 +[0-9.]+  0F584000  5A A5                    Dockhand > Shipwright  P3 "
                  "response: slot 0, code 0 \\(success\\), handshake 5A A5\n"_s),
            patience);
        signalTo(watch, SIGINT);
        const Outcome outcome = outcomeOf(watch);
        QCOMPARE(outcome.status, 0);
        QCOMPARE(outcome.err, QString());
        QVERIFY2(outcome.out.contains(QRegularExpression(
                     u"^can0  2 frames in [^\n]* s: 1 session, 0 files of 0 bytes at 0 B/s, 0 "
                     "records sent again, 0 refusals.\ncan1  \\d+ frame"_s)),
                 qPrintable(outcome.out));
    }

    void decode_readsWhatLogWrites()
    {
        const QString log = path(u"log"_s);
        QCOMPARE(
            shipwright(u"send generic %1 --log %2"_s.arg(file(u"sent"_s, "123456789"), log)).status,
            0);
        const Outcome fromFile = shipwright(u"decode "_s + log);
        QCOMPARE(fromFile.status, 0);
        QStringList lines = fromFile.lines();
        QVERIFY2(lines.takeLast().contains(u": 0 sessions, 1 file of 9 bytes at "_s),
                 qPrintable(fromFile.out));
        QStringList identifiers;
        for (const QString &line : lines)
            identifiers += line.mid(12, 8);
        QCOMPARE(identifiers.join(u' '),
                 u"1B1A0000 1B580000 1B1A1000 1B581000 1B1A2000 1B1AF000 1B1AF010 1B1A3000 "
                 "1B583000 1B1A4000 1B584000"_s);
        QVERIFY2(
            lines.first().endsWith(
                u"  1B1A0000  02 08 09 00 00 00        Shipwright > Dockhand  P6 Transfer Info: "
                "file type 2 (generic), 9 bytes, version 2"_s),
            qPrintable(lines.first()));
        QCOMPARE(shipwright(u"decode"_s, contentOf(log)).out, fromFile.out);
        QCOMPARE(shipwright(u"decode -"_s, contentOf(log)).out, fromFile.out);

        QProcess converter; // of can-utils
        converter.start(u"log2asc"_s, {u"-I"_s, log, u"can0"_s});
        const QStringList converted = outcomeOf(converter).lines();
        QVERIFY2(converted.filter(u"Tx"_s).size() + converted.filter(u"Rx"_s).size() >= 11
                     && converted.last().contains(u"1B584000x"_s, Qt::CaseInsensitive)
                     && converted.last().contains(u"26 39 F4 CB"_s),
                 qPrintable(converted.join(u'\n')));
    }

    void decode_followsAPipe()
    {
        QProcess process;
        startShipwright(process, u"decode"_s);
        process.write("(1.000000) can0 0F1A02C4#\n(2.000000) can0 0F58");
        QVERIFY(process.waitForReadyRead(patience));
        QCOMPARE(process.readAllStandardOutput().count('\n'), 1);
        process.write("4000#\n");
        QVERIFY(process.waitForReadyRead(patience));
        QVERIFY(
            process.readAllStandardOutput().endsWith("P3 response: slot 0, code 0 (success)\n"));
        process.closeWriteChannel();
        QCOMPARE(outcomeOf(process).status, 0);
    }

    void decode_namesLinesThatAreNoFrames()
    {
        const Outcome outcome = shipwright(
            u"decode"_s, "hello\n(1.000000) can0 0F1A02C4#\n\n(2.000000) can0 1##11\n");
        QCOMPARE(outcome.status, 3);
        QCOMPARE(outcome.lines().size(), 2);
        QVERIFY2(outcome.err.startsWith(u"shipwright: 2 of the lines hold no classic CAN frame in "
                                        "candump's format: 1, 4.\n"_s),
                 qPrintable(outcome.err));
    }

    void decode_namesTheInterfaceWhenThereAreSeveral()
    {
        const QByteArray log = "(1.000000) can0 0F1A02C4#\n"
                               "(2.000000) can1 0F5840BA#\n"
                               "(3.000000) can0 0F584000#\n";
        QCOMPARE(shipwright(u"decode"_s, log).out,
                 u"  0.000000  0F1A02C4                           Shipwright > Dockhand  P3 End "
                 "Configuration: slot 0\n"
                 "can1    1.000000  0F5840BA                           Dockhand > Shipwright  P3 "
                 "response: slot 0, code 186 (failure)\n"
                 "can0    2.000000  0F584000                           Dockhand > Shipwright  P3 "
                 "response: slot 0, code 0 (success)\n"
                 "can0  2 frames in 2.0 s: 0 sessions, 0 files of 0 bytes at 0 B/s, 0 records sent "
                 "again, 0 refusals.\n"
                 "can1  1 frame in 0.0 s: 0 sessions, 0 files of 0 bytes at 0 B/s, 0 records sent "
                 "again, 1 refusal.\n"_s);
        QStringList interfaces;
        for (const QJsonObject &event : shipwright(u"decode --json"_s, log).events())
            interfaces += event.value(u"interface"_s).toString();
        QCOMPARE(interfaces.join(u' '), u" can0 can1 can0 can0 can1"_s);
    }

    void decode_printsDatesOnRequest()
    {
        const QStringList lines = shipwright(
                                      u"decode --absolute"_s,
                                      "(1795235282.903797) can0 0F1A02C4#\n(-0.5) can0 0F584000#\n")
                                      .lines();
        QVERIFY2(lines.at(0).startsWith(u"2026-11-21T04:28:02.903797Z  0F1A02C4"_s),
                 qPrintable(lines.at(0)));
        QVERIFY2(lines.at(1).startsWith(u"1969-12-31T23:59:59.500000Z  0F584000"_s),
                 qPrintable(lines.at(1)));
    }

    void decode_printsOnlyWhatIsAskedFor()
    {
        QCOMPARE(shipwright(u"decode " SESSIONS "/record-refused.log --only message=record-end "
                            "--only result=failure"_s)
                     .out,
                 u"  0.000611  1B5830BA  01                       Dockhand > Shipwright  P6 Record "
                 "End answer: code 186 (failure), CRC-32 differs\n"
                 "19 frames in 0.0 s: 0 sessions, 1 file of 27 bytes at 28.0 kB/s, 1 record sent "
                 "again, 1 refusal.\n"_s);
    }

    void recordedSessions_areWhatTheReceiverDoes_data()
    {
        QTest::addColumn<QString>("log");
        for (const QFileInfo &log : QDir(QStringLiteral(SESSIONS)).entryInfoList({u"*.log"_s}))
            QTest::newRow(qPrintable(log.baseName())) << log.filePath();
    }

    void recordedSessions_areWhatTheReceiverDoes()
    {
        QFETCH(QString, log);
        const auto device = openDevice();
        QVERIFY(device);
        QStringList recorded;
        QStringList answers;
        for (const QByteArray &line : contentOf(log).split('\n')) {
            const auto entry = Shipwright::Candump::parse(line);
            if (!entry)
                continue;
            if ((entry->frame.frameId() >> 21 & 0x1F) == 24) {
                QVERIFY(device->writeFrame(entry->frame));
                continue;
            }
            recorded += entry->frame.toString();
            QTRY_VERIFY_WITH_TIMEOUT(device->framesAvailable() > 0, patience);
            answers += device->readFrame().toString();
        }
        QVERIFY(!recorded.isEmpty());
        QCOMPARE(answers, recorded);
    }

    void json_isOneObjectPerLine()
    {
        const QString command = u"send generic --json "_s + file(u"sent"_s, pattern(20'000));
        const QList<QJsonObject> events = shipwright(command).events();
        QVERIFY(events.size() > 5);
        QCOMPARE(events.first().value(u"event"_s).toString(), u"start"_s);
        QCOMPARE(events.first().value(u"version"_s).toInt(), 1);
        QCOMPARE(events.first().value(u"command"_s).toString(), u"send"_s);
        int percent = -1;
        for (const QJsonObject &event : events) {
            QCOMPARE(event.value(u"interface"_s).toString(), u"can0"_s);
            const auto time = QDateTime::fromString(event.value(u"time"_s).toString(), Qt::ISODate);
            QVERIFY(qAbs(time.msecsTo(QDateTime::currentDateTimeUtc())) < 60'000);
            if (event.value(u"event"_s) == u"progress"_s) {
                QVERIFY(event.value(u"percent"_s).toInt() >= percent);
                percent = event.value(u"percent"_s).toInt();
            }
        }
        QCOMPARE(percent, 100);
        QCOMPARE(events.last().value(u"event"_s).toString(), u"sent"_s);
        QCOMPARE(events.last().value(u"bytes"_s).toInt(), 20'000);
        QCOMPARE(events.last().value(u"records"_s).toInt(), 40);

        const Outcome failed = shipwright(command + u" --fault corrupt@data --retries 0"_s);
        QCOMPARE(failed.status, 8);
        const QJsonObject failure = failed.events().constLast();
        QCOMPARE(failure.value(u"event"_s).toString(), u"failure"_s);
        QCOMPARE(failure.value(u"status"_s).toInt(), 8);
    }

    void json_everyCommandHasIt_data()
    {
        QTest::addColumn<QString>("event");
        const auto row = [](const QByteArray &command, const QString &event) {
            QTest::newRow(command.constData()) << event;
        };
        row("connect", u"connected"_s);
        row("info", u"info"_s);
        row("set-time", u"clock"_s);
        row("set-serial SN1", u"serial"_s);
        row("end", u"ended"_s);
        row("send configuration -", u"warning"_s);
        row("selftest --list", u"listed"_s);
        row("selftest --only unknown", u"selftest"_s);
        row("line $UNITS", u"units"_s);
        row("info coffee", u"failure"_s);
        for (const QString &log : QDir(QStringLiteral(SESSIONS)).entryList({u"*.log"_s}))
            row("decode " SESSIONS "/" + log.toUtf8(), u"summary"_s);
        row("decode " ODD_FRAMES, u"frame"_s);
    }

    void json_everyCommandHasIt()
    {
        QFETCH(QString, event);
        QString command = QString::fromUtf8(QTest::currentDataTag());
        command.replace(u"$UNITS"_s, file(u"units.csv"_s, "serial\nSN1\n"));
        const Outcome outcome = shipwright(command + u" --json"_s, "no JSON");
        QVERIFY2(outcome.out.contains(u"\"event\":\"%1\""_s.arg(event)), qPrintable(outcome.out));
    }

    void selftest_passesOnTheReceiver()
    {
        const Outcome outcome = shipwright(u"selftest --destructive"_s);
        QVERIFY2(
            outcome.out.endsWith(u" passed, 0 failed, 0 skipped.\n"
                                 "Overwritten on the receiver: generic file, menu file, package "
                                 "file, configuration, file of unknown type, serial number, "
                                 "clock.\n"_s),
            qPrintable(outcome.out));
        QCOMPARE(outcome.status, 0);
        QCOMPARE(contentOf(serialNumberFile), QByteArrayLiteral("TEST12345678\n"));
        QCOMPARE(contentOf(configurationFile), QByteArrayLiteral("{}\n"));
    }

    void selftest_listNeedsNoBus()
    {
        const Outcome outcome = shipwright(
            u"selftest --list --only \"file: \" --plugin semaphore"_s);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.lines().constFirst(), u"file: 1 to 1500 bytes in up to 3 records"_s);
        QCOMPARE(outcome.lines().constLast(), u"file: configuration, installed (--destructive)"_s);
        QCOMPARE(outcome.status, 0);
    }

    void selftest_namesTheFrameBehindADeviation()
    {
        stopReceiver();
        const StandIn standIn(u"answers an empty Transfer Info with 7 bytes"_s);
        const QString command = u"selftest --only \"Transfer Info: 0 to 5\""_s;
        const Outcome outcome = shipwright(command);
        const QString report = path(u"report.xml"_s);
        const Outcome json = shipwright(command + u" --json --report "_s + report);
        QCOMPARE(outcome.out,
                 u"FAIL  Transfer Info: 0 to 5 bytes refused with the parameters\n"
                 "      sent  1B1A0000#  P6 Transfer Info\n"
                 "      due   1B58001D# and 8 bytes of parameters for version 2\n"
                 "      came  1B58001D#0A3FE803E80360  P6 Transfer Info answer: code 29 (Transfer "
                 "Info rejected)\n"
                 "0 passed, 1 failed, 0 skipped.\nOverwritten on the receiver: nothing.\n"_s);
        QCOMPARE(outcome.status, 11);
        const QJsonObject check = json.events().at(1);
        QCOMPARE(check.value(u"outcome"_s).toString(), u"fail"_s);
        QCOMPARE(check.value(u"frames"_s).toArray().size(), 2);
        QString xml = QString::fromUtf8(contentOf(report));
        xml.replace(QRegularExpression(u"time(stamp)?=\"[-0-9:.T]+\""_s), u"time\\1=\"\""_s);
        xml.replace(QRegularExpression(u"\n  +\\d\\.\\d{6}  "_s), u"\n(time)  "_s);
        const QString expected = uR"xml(<?xml version="1.0" encoding="UTF-8"?>
<testsuites>
    <testsuite name="shipwright selftest on can0" timestamp="" time="" tests="1" failures="1" errors="0" skipped="0">
        <testcase classname="shipwright.selftest" name="Transfer Info: 0 to 5 bytes refused with the parameters" time="">
            <failure message="due 1B58001D# and 8 bytes of parameters for version 2, came 1B58001D#0A3FE803E80360  P6 Transfer Info answer: code 29 (Transfer Info rejected)">sent  1B1A0000#  P6 Transfer Info
due   1B58001D# and 8 bytes of parameters for version 2
came  1B58001D#0A3FE803E80360  P6 Transfer Info answer: code 29 (Transfer Info rejected)
All frames:
(time)  1B1A0000                           Shipwright &gt; Dockhand  P6 Transfer Info  ! 0 bytes, at least 6 expected
(time)  1B58001D  0A 3F E8 03 E8 03 60     Dockhand &gt; Shipwright  P6 Transfer Info answer: code 29 (Transfer Info rejected)  ! 7 bytes, 8 expected</failure>
        </testcase>
    </testsuite>
</testsuites>
)xml"_s;
        QCOMPARE(xml, expected);
    }

    void selftest_reportsWhatEndedTheSession()
    {
        QCOMPARE(shipwright(u"selftest --report /dev/full --only \"Transfer Info: 0\""_s).status,
                 3);
        stopReceiver();
        const QString report = path(u"report.xml"_s);
        QCOMPARE(shipwright(u"selftest --timeout 100 --report "_s + report).status, 6);
        const QByteArray xml = contentOf(report);
        QVERIFY2(xml.contains(R"( tests="1" failures="0" errors="1" skipped="0">)"),
                 xml.constData());
        QVERIFY2(xml.contains("<error message=\"No answer to "), xml.constData());
    }

    void selftest_endsSoonWhenTheReceiverDies()
    {
        stopReceiver();
        StandIn standIn({});
        QProcess process;
        startShipwright(process, u"selftest --timeout 500"_s);
        QVERIFY(process.waitForReadyRead());
        standIn.kill();
        QElapsedTimer timer;
        timer.start();
        const Outcome outcome = outcomeOf(process);
        QVERIFY2(timer.elapsed() < patience, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(outcome.out.contains(QRegularExpression(
                     u" passed, [12] failed, \\d+ skipped \\(--destructive runs them\\), \\d+ not "
                     "run: the receiver stopped answering\\.\n"_s)),
                 qPrintable(outcome.out));
        QCOMPARE(outcome.status, 11);
    }

    void failure_hasItsExitStatus_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        const auto row = [](const char *command, int status, const QString &message) {
            QTest::newRow(command) << status << message;
        };
        row("", 2, u"No command given."_s);
        row("fly", 2, u"\"fly\" is not a command."_s);
        row("info --loud", 2, u"Unknown option 'loud'.\nTry: shipwright info --help\n"_s);
        row("send song $FILE", 2, u"\"song\" is not a file type."_s);
        row("send generic", 2, u"Usage: shipwright send configuration|menu|generic|package FILE"_s);
        row("send generic $FILE --log $FILE", 2,
            u"The log $FILE is also an input: it would be overwritten.\n"_s);
        row("provision", 2, u"There is nothing to do.\n"_s);
        row("connect --slot 4", 2, u"--slot takes a number from 0 to 3, not \"4\"."_s);
        row("info --destination 25", 2, u"--destination takes 26 or 14, not \"25\"."_s);
        row("set-time noon", 2, u"\"noon\" is not a date and time."_s);
        row("selftest --only coffee", 2,
            u"No check's name contains \"coffee\".\n"
            "Try: \"shipwright selftest --list\" prints all names.\n"_s);
        row("selftest --report $FILE.x --log $FILE.x", 2, u"The "_s);
        row("decode $FILE --only coffee", 2,
            u"--only cannot choose \"coffee\".\nTry: Write message=TEXT, node=NUMBER, "
            "result=success, result=failure or result=CODE.\n"_s);
        row("send menu /nonexistent", 3,
            u"/nonexistent cannot be read: No such file or directory."_s);
        row("send menu /", 3, u"/ is a directory."_s);
        row("connect --log /nonexistent/log", 3,
            u"The log /nonexistent/log cannot be written: No such file or directory."_s);
        row("connect --log /dev/full", 3,
            u"The log /dev/full cannot be written: No space left on device."_s);
        row("connect --plugin semaphore", 4,
            u"The CAN plugin \"semaphore\" has no interface \"can0\": "_s);
        row("connect --timeout 50 --fault drop@any", 6,
            u"No answer to start of configuration: sent 0F1A02C0#A55A, waited 50 ms for identifier "
            "0F584000, received nothing."_s);
        row("connect --fault corrupt@any", 7,
            u"The receiver refused start of configuration with code 186."_s);
        row("send generic $FILE --fault drop@data:1- --retries 1", 8,
            u"The receiver refused record 1 of 2 with code 186 in each of 2 attempts: the CRC-32 "
            "that it computed is not 0x"_s);
        row("send generic $FILE --fault repeat@record-end:1", 9,
            u"The CRC-32 of the file differs: 0x"_s);
        row("send generic $FILE --fault abandon@data:70", 12,
            u"Abandoned before sending 1B1AF050#"_s);
        row("send generic $FILE --fault kill@record-start:2", 4, u"The CAN interface went away."_s);
    }

    void failure_hasItsExitStatus()
    {
        QFETCH(int, status);
        QFETCH(QString, message);
        QString command = QString::fromUtf8(QTest::currentDataTag());
        const QString path = file(u"sent"_s, pattern(600));
        const Outcome outcome = shipwright(command.replace(u"$FILE"_s, path));
        QVERIFY2(outcome.err.startsWith(u"shipwright: "_s + message.replace(u"$FILE"_s, path)),
                 qPrintable(outcome.err));
        QCOMPARE(outcome.status, status);
        QCOMPARE(contentOf(path), pattern(600));
    }

    void failure_ofTheInterface_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        QTest::newRow("connect") << u"connect --interface can7"_s << 4
                                 << u"The CAN interface cannot be opened: Bus fault: connect\\.\n"
                                    "Try: .*\\(ip link set can7 up type can bitrate 1000000\\)"_s;
        QTest::newRow("write")
            << u"connect --timeout 100"_s << 5
            << u"0F1A02C0#A55A could not be sent for 10\\d ms: Bus fault: write\\.\nTry: "_s;
    }

    void failure_ofTheInterface()
    {
        QFETCH(QString, command);
        QFETCH(int, status);
        QFETCH(QString, message);
        const QByteArray fault = QTest::currentDataTag();
        qputenv("VIRTUALBUS_FAULTS", file(u"faults"_s, fault + '\n').toLocal8Bit());
        const Outcome outcome = shipwright(command);
        qunsetenv("VIRTUALBUS_FAULTS");
        QCOMPARE(outcome.status, status);
        QVERIFY2(outcome.err.contains(QRegularExpression(u"^shipwright: "_s + message)),
                 qPrintable(outcome.err));
    }

    void interruption_tellsTheReceiversState()
    {
        QProcess process;
        startShipwright(process,
                        u"send generic %1 --fault delay=20000@data:70 --log %2"_s.arg(
                            file(u"sent"_s, pattern(600)), path(u"log"_s)));
        // 74 frames are sent and three answers received when the delay begins.
        QTRY_COMPARE_WITH_TIMEOUT(loggedFrames(), 77, patience);
        signalTo(process, SIGINT);
        const Outcome outcome = outcomeOf(process);
        QCOMPARE(outcome.status, 130);
        QCOMPARE(
            outcome.err,
            u"shipwright: Interrupted.\nThe receiver holds an incomplete generic file (1 of 2 "
            "records) and waits without a time limit; sending the file again replaces it.\n"_s);
    }

private:
    void stopReceiver()
    {
        m_receiver.kill();
        m_receiver.waitForFinished();
    }

    QString path(const QString &name) const { return m_directory->filePath(name); }

    QString file(const QString &name, const QByteArray &content) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write the test's own file");
        return file.fileName();
    }

    QString pipe() const
    {
        QString name = path(u"pipe"_s);
        if (mkfifo(QFile::encodeName(name).constData(), 0600) != 0)
            qFatal("cannot make the test's own pipe");
        return name;
    }

    qsizetype loggedFrames() const { return contentOf(path(u"log"_s)).count('\n'); }

    std::unique_ptr<QTemporaryDir> m_directory; ///< of the running test
    const QTemporaryDir m_board;
    const QString m_clockLog = m_board.filePath(u"clock.log"_s);
    QProcess m_receiver;
};

QTEST_GUILESS_MAIN(ShipwrightTest)
#include "tst_shipwright.moc"
