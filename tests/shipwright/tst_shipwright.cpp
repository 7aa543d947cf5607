// Every command of shipwright from end to end on the virtual bus, against the receiver itself.

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
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString serviceTree = u"/media/service/korvane/"_s;

struct Outcome
{
    int status = -1;
    QString out;
    QString err;
};

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("no such file");
}

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(i % 251);
    return bytes;
}

void startShipwright(QProcess &process, const QStringList &arguments)
{
    process.start(QStringLiteral(SHIPWRIGHT), arguments);
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

Outcome shipwright(QStringList arguments, const QByteArray &input = {})
{
    // The receiver's own limits are for a board, not for a busy computer.
    const bool takesTimeout = !arguments.contains(u"decode"_s) && !arguments.contains(u"watch"_s)
        && !qEnvironmentVariableIsSet("SHIPWRIGHT_TIMEOUT");
    if (takesTimeout && !arguments.contains(u"--timeout"_s))
        arguments << u"--timeout"_s << u"20000"_s;
    QProcess process;
    startShipwright(process, arguments);
    process.write(input);
    process.closeWriteChannel();
    return outcomeOf(process);
}

} // namespace

class ShipwrightTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void connect_saysThatItIsConnected();
    void info_printsTheParameters();
    void setTime_setsTheClock();
    void setSerial_storesTheNumber();
    void send_putsTheFileInItsPlace_data();
    void send_putsTheFileInItsPlace();
    void send_readsStandardInput_data();
    void send_readsStandardInput();
    void send_readsANamedPipeOnce();
    void send_waitingForAPipeIsInterrupted_data();
    void send_waitingForAPipeIsInterrupted();
    void send_whatChangesMeanwhileArrivesAsItWas();
    void configuration_emptyIsRefusedUnlessForced();
    void configuration_thatIsNotJsonIsSentWithAWarning();
    void log_isNeverWhatIsSent_data();
    void log_isNeverWhatIsSent();
    void output_isNeverWhatIsRead();
    void output_onAFullDiskIsAFailure_data();
    void output_onAFullDiskIsAFailure();
    void secondTool_onTheInterfaceIsRefused();
    void foreignTool_endsTheSession();
    void options_thatACommandDoesNotTakeAreRefused_data();
    void options_thatACommandDoesNotTakeAreRefused();
    void options_haveDefaultsInTheEnvironment_data();
    void options_haveDefaultsInTheEnvironment();
    void completion_offersWhatFits_data();
    void completion_offersWhatFits();
    void help_namesEveryFault();
    void bitRate_tooLowIsRemarkedOn();
    void progress_fitsTheTerminalAsItIs_data();
    void progress_fitsTheTerminalAsItIs();
    void send_recoversFromACorruptedFrame();
    void send_progressOnATerminal();
    void end_saysThatItEnded();
    void provision_doesAWholeSession();
    void provision_refusesBeforeTheFirstFrame_data();
    void provision_refusesBeforeTheFirstFrame();
    void provision_ofNothingIsRefused();
    void provision_reportsEachUnit();
    void provision_reportThatCannotBeWritten();
    void watch_printsTheTrafficUntilInterrupted();
    void watch_tellsInterfacesApart();
    void decode_readsWhatLogWrites();
    void decode_followsAPipe();
    void decode_namesLinesThatAreNoFrames();
    void decode_namesTheInterfaceWhenThereAreSeveral();
    void decode_printsDatesOnRequest();
    void decode_printsOnlyWhatIsAskedFor();
    void recordedSessions_areWhatTheReceiverDoes_data();
    void recordedSessions_areWhatTheReceiverDoes();
    void log_isReadByCanUtils();
    void json_isOneObjectPerLine();
    void json_everyCommandHasIt_data();
    void json_everyCommandHasIt();
    void selftest_passesOnTheReceiver();
    void selftest_onlyRunsTheChecksAskedFor();
    void selftest_listNeedsNoBus();
    void selftest_namesTheFrameBehindADeviation();
    void selftest_reportsWhatEndedTheSession();
    void selftest_endsSoonWhenTheReceiverDies();
    void failure_hasItsExitStatus_data();
    void failure_hasItsExitStatus();
    void failure_noReceiver();
    void failure_interfaceCannotBeOpened();
    void failure_sendBufferStaysFull();
    void interruption_tellsTheReceiversState();

private:
    QString file(const QString &name, const QByteArray &content) const;
    QString pipe() const;
    void startReceiver();
    void stopReceiver();

    std::unique_ptr<QTemporaryDir> m_directory;
    QProcess m_receiver;
};

void ShipwrightTest::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    const QByteArray test = QTest::currentTestFunction();
    const bool hasStandIn = test == "selftest_namesTheFrameBehindADeviation"
        || test == "selftest_endsSoonWhenTheReceiverDies";
    if (!hasStandIn)
        startReceiver();
}

void ShipwrightTest::startReceiver()
{
    m_receiver.setProgram(QStringLiteral(DOCKHAND));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"QT_QUICK_BACKEND"_s, u"software"_s);
    environment.insert(u"DOCKHAND_STAND_IN_LOG"_s, m_directory->filePath(u"clock.log"_s));
    m_receiver.setProcessEnvironment(environment);
    m_receiver.setStandardOutputFile(QProcess::nullDevice());
    // A pipe that nobody reads would fill with its log and block it.
    m_receiver.setStandardErrorFile(QProcess::nullDevice());
    m_receiver.start();
    QVERIFY(m_receiver.waitForStarted());
    Outcome outcome;
    for (int attempt = 0; attempt < 100 && outcome.status != 0; ++attempt)
        outcome = shipwright({u"info"_s, u"--timeout"_s, u"100"_s});
    QCOMPARE(outcome.status, 0);
}

void ShipwrightTest::stopReceiver()
{
    if (m_receiver.state() == QProcess::NotRunning)
        return;
    m_receiver.kill();
    m_receiver.waitForFinished();
}

void ShipwrightTest::cleanup()
{
    stopReceiver();
}

/// What was printed is what the schema promises; after all tests, it has promised nothing else.
void ShipwrightTest::cleanupTestCase()
{
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

QString ShipwrightTest::file(const QString &name, const QByteArray &content) const
{
    QFile file(m_directory->filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write the test's own file");
    return file.fileName();
}

void ShipwrightTest::connect_saysThatItIsConnected()
{
    const Outcome outcome = shipwright({u"connect"_s});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, u"Connected.\n"_s);
    QCOMPARE(outcome.status, 0);
    QCOMPARE(shipwright({u"connect"_s, u"--destination"_s, u"14"_s, u"--slot"_s, u"3"_s}).status,
             0);
}

void ShipwrightTest::info_printsTheParameters()
{
    const Outcome outcome = shipwright({u"info"_s});
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.out,
             u"Protocol version:             2\n"
             "Data frames in a record:      64\n"
             "Flag:                         1\n"
             "Limit for a negotiation:      1000 ms\n"
             "Limit for a record:           1000 ms\n"
             "Limit for the whole file:     60000 ms\n"_s);
}

void ShipwrightTest::setTime_setsTheClock()
{
    const Outcome outcome = shipwright({u"set-time"_s, u"2024-03-05T14:07:09Z"_s});
    QCOMPARE(outcome.out, u"Clock set to 2024-03-05 14:07:09 UTC.\n"_s);
    QCOMPARE(outcome.status, 0);
    QTRY_VERIFY_WITH_TIMEOUT(contentOf(m_directory->filePath(u"clock.log"_s))
                                 .contains("timedatectl\tset-time\t2024-03-05 14:07:09 UTC\n"),
                             20'000);
    QCOMPARE(shipwright({u"set-time"_s}).status, 0);
    // As it is printed.
    QCOMPARE(shipwright({u"set-time"_s, u"2024-03-05 14:07:09 UTC"_s}).out, outcome.out);
}

void ShipwrightTest::setSerial_storesTheNumber()
{
    QCOMPARE(shipwright({u"set-serial"_s, u"SN1234567890"_s}).status, 0);
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("SN1234567890\n"));
    QCOMPARE(shipwright({u"set-serial"_s, u"Ä1"_s}).status, 0);
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("\xC3\x84\x31\n"));
}

void ShipwrightTest::send_putsTheFileInItsPlace_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<QString>("place");
    QTest::newRow("configuration")
        << u"configuration"_s << qsizetype(5000) << u"application/main/systemConfig.json"_s;
    QTest::newRow("menu") << u"menu"_s << qsizetype(513) << u"application/factory/menu/menu.tar"_s;
    QTest::newRow("generic") << u"generic"_s << qsizetype(100'000) << u"pendingUpdates/file.log"_s;
    QTest::newRow("package") << u"package"_s << qsizetype(512) << u"pendingUpdates/package.tar"_s;
    QTest::newRow("empty") << u"generic"_s << qsizetype(0) << u"pendingUpdates/file.log"_s;
}

void ShipwrightTest::send_putsTheFileInItsPlace()
{
    QFETCH(QString, type);
    QFETCH(qsizetype, size);
    QFETCH(QString, place);
    QByteArray content = pattern(size);
    if (type == u"configuration")
        content = "{\"a\": \"" + QByteArray(size, 'b') + "\"}\n";
    const QString path = file(u"sent"_s, content);
    const Outcome outcome = shipwright({u"send"_s, type, path});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.status, 0);
    QCOMPARE(contentOf(serviceTree + place), content);
}

void ShipwrightTest::send_readsStandardInput_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("as a dash") << u"-"_s;
    QTest::newRow("as a device") << u"/dev/stdin"_s;
}

void ShipwrightTest::send_readsStandardInput()
{
    QFETCH(QString, name);
    const Outcome outcome = shipwright({u"send"_s, u"generic"_s, name}, pattern(3000));
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.status, 0);
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(3000));
}

QString ShipwrightTest::pipe() const
{
    const QString path = m_directory->filePath(u"pipe"_s);
    if (mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
        qFatal("cannot make the test's own pipe");
    return path;
}

void ShipwrightTest::send_readsANamedPipeOnce()
{
    const QString path = pipe();
    QProcess process;
    startShipwright(process, {u"send"_s, u"generic"_s, path, u"--timeout"_s, u"20000"_s});
    QProcess writer;
    writer.start(u"dd"_s, {u"of="_s + path, u"status=none"_s});
    writer.write(pattern(3000));
    writer.closeWriteChannel();
    QCOMPARE(outcomeOf(writer).status, 0);
    const Outcome outcome = outcomeOf(process);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.status, 0);
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(3000));
}

void ShipwrightTest::send_waitingForAPipeIsInterrupted_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("Ctrl-C") << SIGINT;
    QTest::newRow("termination") << SIGTERM;
}

void ShipwrightTest::send_waitingForAPipeIsInterrupted()
{
    QFETCH(int, signal);
    const QString path = pipe();
    QProcess process;
    startShipwright(process, {u"send"_s, u"generic"_s, path});
    // Opened for writing once the tool has it open for reading; nothing is written.
    int writer = -1;
    QTRY_VERIFY_WITH_TIMEOUT(
        (writer = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK)) >= 0, 20'000);
    ::kill(pid_t(process.processId()), signal);
    const Outcome outcome = outcomeOf(process);
    ::close(writer);
    QCOMPARE(outcome.status, 130);
    QCOMPARE(outcome.err, u"shipwright: Interrupted.\n"_s);
}

void ShipwrightTest::send_whatChangesMeanwhileArrivesAsItWas()
{
    const QString path = file(u"sent"_s, pattern(2000));
    const QString log = m_directory->filePath(u"frames.log"_s);
    QProcess process;
    startShipwright(process,
                    {u"send"_s, u"generic"_s, path, u"--timeout"_s, u"20000"_s, u"--log"_s, log,
                     u"--fault"_s, u"delay=3000@data:100"_s});
    QTRY_VERIFY_WITH_TIMEOUT(contentOf(log).count('\n') > 70, 20'000);
    file(u"sent"_s, QByteArray(500, 'x'));
    QCOMPARE(outcomeOf(process).status, 0);
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(2000));
}

void ShipwrightTest::configuration_emptyIsRefusedUnlessForced()
{
    const QString live = serviceTree + u"application/main/systemConfig.json"_s;
    QCOMPARE(shipwright({u"send"_s, u"configuration"_s, file(u"good"_s, QByteArrayLiteral("{}\n"))})
                 .status,
             0);
    const QString path = file(u"empty"_s, {});
    const QStringList commands[] = {
        {u"send"_s, u"configuration"_s, path},
        {u"provision"_s, u"--serial"_s, u"NEVER"_s, u"--configuration"_s, path}};
    for (const QStringList &command : commands) {
        const Outcome outcome = shipwright(command);
        QCOMPARE(outcome.status, 3);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.err,
                 u"shipwright: The configuration %1 is empty; it would replace the "
                 "receiver's configuration.\nTry: --force sends it anyway.\n"_s.arg(path));
        QCOMPARE(contentOf(live), QByteArrayLiteral("{}\n"));
    }
    QCOMPARE(shipwright(commands[0] + QStringList{u"--force"_s}).status, 0);
    QCOMPARE(contentOf(live), QByteArray());
}

void ShipwrightTest::configuration_thatIsNotJsonIsSentWithAWarning()
{
    const QString path = file(u"odd"_s, QByteArrayLiteral("{\"a\": }\n"));
    const Outcome outcome = shipwright({u"send"_s, u"configuration"_s, path});
    // The text between the brackets comes from Qt.
    QVERIFY2(outcome.err.startsWith(
                 u"shipwright: Warning: The configuration %1 is not JSON ("_s.arg(path)),
             qPrintable(outcome.err));
    QVERIFY2(outcome.err.endsWith(u" at byte 7); it is sent as it is.\n"_s),
             qPrintable(outcome.err));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(contentOf(serviceTree + u"application/main/systemConfig.json"_s),
             QByteArrayLiteral("{\"a\": }\n"));
}

void ShipwrightTest::log_isNeverWhatIsSent_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::newRow("send") << QStringList{u"send"_s, u"configuration"_s, u"$FILE"_s};
    QTest::newRow("provision") << QStringList{u"provision"_s, u"--generic"_s, u"$FILE"_s};
}

void ShipwrightTest::log_isNeverWhatIsSent()
{
    QFETCH(QStringList, command);
    const QString path = file(u"source"_s, QByteArrayLiteral("{}\n"));
    const QString link = m_directory->filePath(u"link"_s);
    QVERIFY(QFile::link(path, link));
    command.replaceInStrings(u"$FILE"_s, path);
    const Outcome outcome = shipwright(command + QStringList{u"--log"_s, link});
    QCOMPARE(outcome.status, 2);
    QCOMPARE(outcome.err,
             u"shipwright: The log %1 is also an input: it would be overwritten.\n"_s.arg(link));
    QCOMPARE(contentOf(path), QByteArrayLiteral("{}\n"));
}

void ShipwrightTest::output_isNeverWhatIsRead()
{
    const QString path = file(u"frames.log"_s, QByteArrayLiteral("(1.000000) can0 0F1A02C4#\n"));
    QProcess process;
    process.setStandardOutputFile(path, QIODevice::Append);
    startShipwright(process, {u"decode"_s, path});
    QCOMPARE(outcomeOf(process).status, 2);
    QCOMPARE(contentOf(path), QByteArrayLiteral("(1.000000) can0 0F1A02C4#\n"));
}

void ShipwrightTest::output_onAFullDiskIsAFailure_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::newRow("decode") << QStringList{u"decode"_s};
    QTest::newRow("info") << QStringList{u"info"_s};
    QTest::newRow("watch") << QStringList{u"watch"_s};
    QTest::newRow("send") << QStringList{u"send"_s, u"generic"_s, u"$FILE"_s};
}

void ShipwrightTest::output_onAFullDiskIsAFailure()
{
    QFETCH(QStringList, command);
    command.replaceInStrings(u"$FILE"_s, file(u"sent"_s, pattern(600)));
    QProcess process;
    process.setStandardOutputFile(u"/dev/full"_s);
    startShipwright(process, command);
    process.write("(1.000000) can0 0F1A02C4#\n");
    process.closeWriteChannel();
    // Send something to watch, until it watches.
    while (command.first() == u"watch" && !process.waitForFinished(200))
        QCOMPARE(shipwright({u"end"_s}).status, 0);
    const Outcome outcome = outcomeOf(process);
    QCOMPARE(outcome.status, 3);
    QCOMPARE(outcome.err,
             u"shipwright: Standard output cannot be written: No space left on device.\n"_s);
    if (command.first() == u"send")
        QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(600));
}

void ShipwrightTest::secondTool_onTheInterfaceIsRefused()
{
    const QString log = m_directory->filePath(u"frames.log"_s);
    QProcess first;
    startShipwright(first,
                    {u"set-serial"_s, u"AAAA111122223"_s, u"--log"_s, log, u"--timeout"_s,
                     u"20000"_s, u"--fault"_s, u"delay=3000@command:2"_s});
    QTRY_VERIFY_WITH_TIMEOUT(contentOf(log).count('\n') == 2, 20'000);
    const Outcome second = shipwright({u"set-serial"_s, u"BBBB444455556"_s});
    QCOMPARE(second.status, 13);
    QCOMPARE(
        second.err,
        u"shipwright: Another shipwright (process %1) uses the interface \"can0\"; nothing was "
        "sent.\nTry: Wait until it ends: two tools at once would mix their frames.\n"_s.arg(
            first.processId()));
    QCOMPARE(outcomeOf(first).status, 0);
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("AAAA111122223\n"));
    QCOMPARE(shipwright({u"set-serial"_s, u"BBBB444455556"_s}).status, 0);
}

void ShipwrightTest::foreignTool_endsTheSession()
{
    const std::unique_ptr<QCanBusDevice> other(
        QCanBus::instance()->createDevice(u"socketcan"_s, u"can0"_s));
    QVERIFY(other && other->connectDevice());
    const QString log = m_directory->filePath(u"frames.log"_s);
    QProcess process;
    startShipwright(process,
                    {u"set-serial"_s, u"AAAA111122223"_s, u"--log"_s, log, u"--timeout"_s,
                     u"20000"_s, u"--fault"_s, u"delay=3000@command:2"_s});
    QTRY_VERIFY_WITH_TIMEOUT(contentOf(log).count('\n') == 2, 20'000);
    QVERIFY(other->writeFrame(QCanBusFrame(0x0F1A02C2, QByteArray::fromHex("0442424242"))));
    QTRY_COMPARE_WITH_TIMEOUT(other->framesToWrite(), 0, 20'000);
    const Outcome outcome = outcomeOf(process);
    QCOMPARE(outcome.status, 14);
    QCOMPARE(
        outcome.err,
        u"shipwright: Another service tool uses this bus: node 24 sent 0F1A02C2#0442424242, "
        "which this tool did not send. The session ended there.\n"
        "The receiver has the first 7 bytes of the serial number and has stored nothing yet; set the "
        "whole number again.\n"
        "Try: Stop the other tool, then start this session again.\n"_s);
    QVERIFY(!contentOf(log).contains("0F1A02C3#"));
}

void ShipwrightTest::options_thatACommandDoesNotTakeAreRefused_data()
{
    QTest::addColumn<QStringList>("command");
    for (const char *command :
         {"decode --interface can9", "decode --fault drop@any", "decode --log x",
          "watch --fault drop@any", "watch --timeout 5", "watch --slot 1", "info --slot 1",
          "info --retries 1", "send --slot 1", "connect --retries 1", "connect --serial 1",
          "selftest --destination 14", "selftest --slot 1"}) {
        QTest::newRow(command) << QString::fromLatin1(command).split(u' ');
    }
}

void ShipwrightTest::options_thatACommandDoesNotTakeAreRefused()
{
    QFETCH(QStringList, command);
    const Outcome outcome = shipwright(command);
    QCOMPARE(outcome.status, 2);
    QCOMPARE(outcome.err,
             u"shipwright: Unknown option '%1'.\nTry: shipwright %2 --help\n"_s.arg(
                 command.at(1).mid(2), command.first()));
}

void ShipwrightTest::options_haveDefaultsInTheEnvironment_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *variable, const char *value, const QStringList &arguments,
                        int status, const QString &message) {
        QTest::addRow("%s %s", variable, qPrintable(arguments.join(u' ')))
            << QByteArray(variable) << QByteArray(value) << arguments << status << message;
    };
    row("SHIPWRIGHT_PLUGIN", "semaphore", {u"connect"_s}, 4,
        u"The CAN plugin \"semaphore\" has no interface \"can0\""_s);
    row("SHIPWRIGHT_INTERFACE", "can7", {u"connect"_s, u"--plugin"_s, u"semaphore"_s}, 4,
        u"The CAN plugin \"semaphore\" has no interface \"can7\""_s);
    row("SHIPWRIGHT_BITRATE", "1", {u"info"_s}, 2,
        u"SHIPWRIGHT_BITRATE takes a number from 10000 to 1000000, not \"1\"."_s);
    row("SHIPWRIGHT_DESTINATION", "1", {u"info"_s}, 2,
        u"SHIPWRIGHT_DESTINATION takes 26 or 14, not \"1\"."_s);
    row("SHIPWRIGHT_SLOT", "4", {u"connect"_s}, 2,
        u"SHIPWRIGHT_SLOT takes a number from 0 to 3, not \"4\"."_s);
    row("SHIPWRIGHT_RETRIES", "x", {u"provision"_s}, 2,
        u"SHIPWRIGHT_RETRIES takes a number from 0 to 1000, not \"x\"."_s);
    row("SHIPWRIGHT_TIMEOUT", "0", {u"info"_s}, 2,
        u"SHIPWRIGHT_TIMEOUT takes a number from 1 to 2147483647, not \"0\"."_s);
    row("SHIPWRIGHT_SLOT", "4", {u"connect"_s, u"--slot"_s, u"3"_s}, 0, {});
    row("SHIPWRIGHT_SLOT", "", {u"connect"_s}, 0, {});
    row("SHIPWRIGHT_SLOT", "4", {u"info"_s}, 0, {});
}

void ShipwrightTest::options_haveDefaultsInTheEnvironment()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, value);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, message);
    qputenv(variable, value);
    const Outcome outcome = shipwright(arguments);
    qunsetenv(variable);
    QVERIFY2(outcome.err.startsWith(message.isEmpty() ? QString() : u"shipwright: "_s + message),
             qPrintable(outcome.err));
    QCOMPARE(outcome.status, status);
}

void ShipwrightTest::completion_offersWhatFits_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("offered");
    QTest::newRow("commands") << u"se"_s << u"set-time set-serial send selftest"_s;
    QTest::newRow("commands behind an option") << u"--interface can1 dec"_s << u"decode"_s;
    QTest::newRow("options of a command")
        << u"selftest --"_s
        << u"--help --version --json --destructive --only --list --report --plugin --interface --bitrate "
           "--log --timeout --fault"_s;
    QTest::newRow("an option") << u"set-time --sl"_s << u"--slot"_s;
    QTest::newRow("words of an argument") << u"send m"_s << u"menu"_s;
    QTest::newRow("an argument that may be left out") << u"set-time ''"_s << u"now"_s;
    QTest::newRow("nothing") << u"connect ''"_s << u""_s;
    QTest::newRow("file names") << u"send menu ''"_s << u""_s;
    QTest::newRow("an option's value") << u"connect --log ''"_s << u""_s;
}

void ShipwrightTest::completion_offersWhatFits()
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

void ShipwrightTest::help_namesEveryFault()
{
    const QString help = shipwright({u"connect"_s, u"--help"_s}).out.simplified();
    QVERIFY2(help.contains(u"Actions: %1. Frames: %2."_s.arg(
                 Shipwright::FaultPlan::actionNames().join(u", "_s),
                 Shipwright::FaultPlan::frameNames().join(u", "_s))),
             qPrintable(help));
}

void ShipwrightTest::bitRate_tooLowIsRemarkedOn()
{
    const QString path = file(u"sent"_s, pattern(3000));
    const Outcome outcome = shipwright({u"send"_s, u"generic"_s, path, u"--bitrate"_s, u"10000"_s});
    QCOMPARE(outcome.status, 0);
    QVERIFY2(
        outcome.out.endsWith(u" (more than a bus of 10000 bit/s can carry: check --bitrate).\n"_s),
        qPrintable(outcome.out));
    QVERIFY(!outcome.out.contains(u"of the bus"_s));
}

void ShipwrightTest::progress_fitsTheTerminalAsItIs_data()
{
    QTest::addColumn<int>("columns");
    QTest::newRow("narrow") << 30;
    QTest::newRow("narrower than the bar") << 12;
    QTest::newRow("wide") << 200;
}

void ShipwrightTest::progress_fitsTheTerminalAsItIs()
{
    QFETCH(int, columns);
    const QString path = file(u"sent"_s, pattern(100'000));
    QProcess process;
    // It starts with 100 columns and changes while the transfer waits.
    process.start(
        u"script"_s,
        {u"-qec"_s,
         u"stty cols 100; (sleep 2; stty cols %1) <&1 & %2 send generic %3 --timeout 20000 "
         "--fault delay=5000@record-start:3; wait"_s.arg(columns)
             .arg(QStringLiteral(SHIPWRIGHT), path),
         u"/dev/null"_s});
    const Outcome outcome = outcomeOf(process);
    const QStringList bars = outcome.out.split(u'\n').first().split(u"\r\x1b[K"_s,
                                                                    Qt::SkipEmptyParts);
    QVERIFY(bars.size() >= 3);
    for (const QString &bar : bars.last(2))
        QVERIFY2(bar.trimmed().size() < columns, qPrintable(bar));
    QVERIFY2(bars.last().contains(u"100 %"_s), qPrintable(bars.last()));
}

void ShipwrightTest::send_recoversFromACorruptedFrame()
{
    const QString path = file(u"sent"_s, pattern(3000));
    const Outcome outcome = shipwright(
        {u"send"_s, u"generic"_s, path, u"--fault"_s, u"corrupt@data:70"_s});
    QCOMPARE(outcome.status, 0);
    QVERIFY2(outcome.out.endsWith(u"; 1 record sent again.\n"_s), qPrintable(outcome.out));
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(3000));
}

void ShipwrightTest::send_progressOnATerminal()
{
    const QString path = file(u"sent"_s, pattern(100'000));
    QProcess process;
    process.start(u"script"_s,
                  {u"-qec"_s,
                   u"stty cols 100; %1 send generic %2 --bitrate 1000000 --timeout 20000 "
                   "--fault delay=2000@transfer-complete"_s.arg(QStringLiteral(SHIPWRIGHT), path),
                   u"/dev/null"_s});
    const Outcome outcome = outcomeOf(process);
    QCOMPARE(outcome.status, 0);
    const QStringList bars = outcome.out.split(u"\r\x1b[K"_s, Qt::SkipEmptyParts);
    QVERIFY(bars.size() >= 3);
    QVERIFY2(bars.first().startsWith(u"[------------------------]   0 %"_s),
             qPrintable(outcome.out));
    for (const QString &bar : bars.mid(0, bars.size() - 1)) {
        QVERIFY2(!bar.contains(u"100 %"_s), qPrintable(bar));
        QVERIFY2(bar.size() < 100, qPrintable(bar));
    }
    QVERIFY2(bars.at(bars.size() - 2)
                 .startsWith(u"[#######################-]  99 % 100.0 kB of 100.0 kB"_s),
             qPrintable(bars.at(bars.size() - 2)));
    QVERIFY2(bars.last().startsWith(u"[########################] 100 % 100.0 kB of 100.0 kB"_s),
             qPrintable(bars.last()));
    QVERIFY(bars.last().contains(u" % of the bus"_s));
}

void ShipwrightTest::end_saysThatItEnded()
{
    const Outcome outcome = shipwright({u"end"_s});
    QCOMPARE(outcome.out, u"Configuration ended.\n"_s);
    QCOMPARE(outcome.status, 0);
}

void ShipwrightTest::provision_doesAWholeSession()
{
    const QString configuration = file(u"configuration"_s, QByteArrayLiteral("{\"a\": 1}\n"));
    const QString menu = file(u"menu"_s, pattern(600));
    const QString log = file(u"generic"_s, pattern(10));
    const QString package = file(u"package"_s, pattern(1200));
    const Outcome outcome = shipwright({u"provision"_s, u"--time"_s, u"2026-01-02T03:04:05Z"_s,
                                        u"--serial"_s, u"SN42"_s, u"--configuration"_s,
                                        configuration, u"--menu"_s, menu, u"--generic"_s, log,
                                        u"--package"_s, package, u"--json"_s});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.status, 0);
    QStringList events;
    for (const QString &line : outcome.out.split(u'\n', Qt::SkipEmptyParts)) {
        const QString event =
            QJsonDocument::fromJson(line.toUtf8()).object().value(u"event"_s).toString();
        if (event != u"progress")
            events += event;
    }
    QCOMPARE(events,
             (QStringList{u"start"_s, u"connected"_s, u"clock"_s, u"serial"_s, u"sent"_s, u"sent"_s,
                          u"sent"_s, u"sent"_s, u"ended"_s}));
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("SN42\n"));
    QCOMPARE(contentOf(serviceTree + u"application/main/systemConfig.json"_s),
             QByteArrayLiteral("{\"a\": 1}\n"));
    QCOMPARE(contentOf(serviceTree + u"application/factory/menu/menu.tar"_s), pattern(600));
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/file.log"_s), pattern(10));
    QCOMPARE(contentOf(serviceTree + u"pendingUpdates/package.tar"_s), pattern(1200));
}

void ShipwrightTest::provision_refusesBeforeTheFirstFrame_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");
    QTest::newRow("missing file") << QStringList{u"--menu"_s, u"/nonexistent"_s} << 3;
    QTest::newRow("file over 4 GiB") << QStringList{u"--package"_s, u"$SPARSE"_s} << 3;
    QTest::newRow("device") << QStringList{u"--generic"_s, u"/dev/zero"_s} << 3;
    QTest::newRow("file that cannot be read") << QStringList{u"--menu"_s, u"/proc/self/mem"_s} << 3;
    QTest::newRow("standard input twice")
        << QStringList{u"--menu"_s, u"-"_s, u"--package"_s, u"/dev/stdin"_s} << 2;
    QTest::newRow("year that the wire cannot carry")
        << QStringList{u"--time"_s, u"1999-12-31T00:00:00Z"_s} << 2;
    QTest::newRow("log that cannot be written")
        << QStringList{u"--log"_s, u"/nonexistent/log"_s} << 3;
    QTest::newRow("report that cannot be written")
        << QStringList{u"--report"_s, u"/nonexistent/report"_s} << 3;
    QTest::newRow("report that is sent")
        << QStringList{u"--generic"_s, u"$FILE"_s, u"--report"_s, u"$FILE"_s} << 2;
    QTest::newRow("report that is the log")
        << QStringList{u"--report"_s, u"$FILE"_s, u"--log"_s, u"$FILE"_s} << 2;
    QTest::newRow("report on a full disk") << QStringList{u"--report"_s, u"full/report"_s} << 3;
}

void ShipwrightTest::provision_refusesBeforeTheFirstFrame()
{
    QFETCH(QStringList, options);
    QFETCH(int, status);
    QFile sparse(m_directory->filePath(u"sparse"_s));
    QVERIFY(sparse.open(QIODevice::WriteOnly) && sparse.resize(4'294'967'296));
    options.replaceInStrings(u"$SPARSE"_s, sparse.fileName());
    options.replaceInStrings(u"$FILE"_s, file(u"sent"_s, "x"));
    // The test has its mounts to itself.
    QVERIFY(QDir().mkpath(u"full"_s));
    QCOMPARE(QProcess::execute(u"mount"_s,
                               {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=4k"_s, u"tmpfs"_s, u"full"_s}),
             0);
    const auto unmount = qScopeGuard([] { QProcess::execute(u"umount"_s, {u"full"_s}); });
    const QByteArray before = contentOf(serviceTree + u"serialNumber"_s);
    const Outcome outcome = shipwright(QStringList{u"provision"_s, u"--serial"_s, u"NEVER"_s}
                                       + options);
    QCOMPARE(outcome.status, status);
    QCOMPARE(outcome.out, QString());
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), before);
}

void ShipwrightTest::provision_ofNothingIsRefused()
{
    QCOMPARE(shipwright({u"provision"_s}).status, 2);
}

void ShipwrightTest::provision_reportsEachUnit()
{
    const QString path = file(u"sent"_s, "123456789");
    const QString report = m_directory->filePath(u"report"_s);
    const QStringList command{u"provision"_s, u"--serial"_s, u"SN42"_s,     u"--generic"_s, path,
                              u"--menu"_s,    path,          u"--report"_s, report};
    QCOMPARE(shipwright(command + QStringList{u"--fault"_s, u"corrupt@data:1"_s}).status, 0);
    QCOMPARE(shipwright(command + QStringList{u"--fault"_s, u"abandon@data:3"_s}).status, 12);
    QCOMPARE(shipwright(command + QStringList{u"--slot"_s, u"4"_s}).status, 2);
    QByteArrayList lines = contentOf(report).split('\n');
    QCOMPARE(lines.takeLast(), QByteArray());
    QCOMPARE(lines.size(), 2);

    QJsonObject done = QJsonDocument::fromJson(lines.first()).object();
    QVERIFY(QDateTime::fromString(done.take(u"time"_s).toString(), Qt::ISODateWithMs).isValid());
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
    QVERIFY(failed.value(u"message"_s).toString().startsWith(u"Abandoned before sending 1B1AF0"_s));
    QVERIFY(failed.value(u"receiver"_s)
                .toString()
                .startsWith(u"The receiver holds an incomplete generic file (0 of 1 records)"_s));
}

void ShipwrightTest::provision_reportThatCannotBeWritten()
{
    const QStringList command{u"provision"_s, u"--serial"_s, u"SN43"_s, u"--report"_s,
                              u"/dev/full"_s};
    const QString reason = u"The report /dev/full cannot be written: No space left on device.\n"_s;
    const Outcome done = shipwright(command);
    QCOMPARE(done.status, 3);
    QCOMPARE(done.err, u"shipwright: The receiver is provisioned. "_s + reason);
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("SN43\n"));
    const Outcome failed = shipwright(command + QStringList{u"--fault"_s, u"abandon@command:2"_s});
    QCOMPARE(failed.status, 12);
    QVERIFY(failed.err.startsWith(u"shipwright: Warning: "_s + reason));
}

void ShipwrightTest::watch_printsTheTrafficUntilInterrupted()
{
    QProcess watch;
    startShipwright(watch, {u"watch"_s});
    QString seen;
    // Nothing shows when it listens, so send frames until it prints one.
    for (int attempt = 0; attempt < 50 && !seen.contains(u'\n'); ++attempt) {
        QCOMPARE(shipwright({u"end"_s}).status, 0);
        seen += QString::fromUtf8(watch.readAllStandardOutput());
    }
    QCOMPARE(shipwright({u"connect"_s}).status, 0);
    QTRY_VERIFY_WITH_TIMEOUT(
        (seen += QString::fromUtf8(watch.readAllStandardOutput())).contains(u"handshake"_s),
        20'000);
    ::kill(pid_t(watch.processId()), SIGINT);
    const Outcome outcome = outcomeOf(watch);
    QCOMPARE(outcome.status, 0);
    QCOMPARE(outcome.err, QString());
    QVERIFY2(outcome.out.endsWith(u" s: 1 session, 0 files of 0 bytes at 0 B/s, 0 records sent "
                                  "again, 0 refusals.\n"_s),
             qPrintable(outcome.out));
    const QStringList lines = seen.split(u'\n', Qt::SkipEmptyParts);
    QVERIFY(lines.at(lines.size() - 2)
                .endsWith(u"  0F1A02C0  A5 5A                    Shipwright > Dockhand  P3 Start "
                          "Configuration: slot 0"_s));
    QVERIFY(lines.last().endsWith(u"  0F584000  5A A5                    Dockhand > Shipwright  P3 "
                                  "response: slot 0, code 0 (success), handshake 5A A5"_s));
}

void ShipwrightTest::watch_tellsInterfacesApart()
{
    QProcess watch;
    startShipwright(watch, {u"watch"_s, u"--interface"_s, u"can0"_s, u"--interface"_s, u"can1"_s});
    QString seen;
    const auto hears = [&](const QString &start) {
        return (seen += QString::fromUtf8(watch.readAllStandardOutput()))
            .contains(QRegularExpression(u"(^|\n)"_s + start));
    };
    // Nobody answers on the other bus, and nothing tells when it is listened to.
    for (int attempt = 0; attempt < 50 && !hears(u"can1 +[0-9.]+  0F1A02C4"_s); ++attempt)
        QCOMPARE(
            shipwright({u"end"_s, u"--interface"_s, u"can1"_s, u"--timeout"_s, u"100"_s}).status,
            6);
    QCOMPARE(shipwright({u"end"_s}).status, 0);
    QTRY_VERIFY_WITH_TIMEOUT(hears(u"can0 +[0-9.]+  0F584000"_s), 20'000);
    ::kill(pid_t(watch.processId()), SIGINT);
    const Outcome outcome = outcomeOf(watch);
    QCOMPARE(outcome.status, 0);
    QVERIFY2(outcome.out.contains(
                 QRegularExpression(u"^can0  \\d+ frames in [^\n]*\ncan1  \\d+ frame"_s)),
             qPrintable(outcome.out));
}

void ShipwrightTest::decode_readsWhatLogWrites()
{
    const QString log = m_directory->filePath(u"frames.log"_s);
    const QString path = file(u"sent"_s, QByteArrayLiteral("123456789"));
    QCOMPARE(shipwright({u"send"_s, u"generic"_s, path, u"--log"_s, log}).status, 0);
    const Outcome fromFile = shipwright({u"decode"_s, log});
    QCOMPARE(fromFile.status, 0);
    QStringList messages;
    for (const QString &line : fromFile.out.split(u'\n', Qt::SkipEmptyParts))
        messages += line.mid(12);
    QVERIFY2(messages.takeLast().contains(u": 0 sessions, 1 file of 9 bytes at "_s),
             qPrintable(fromFile.out));
    const QStringList expected{
        u"1B1A0000  02 08 09 00 00 00        Shipwright > Dockhand  P6 Transfer Info: file type 2 "
        "(generic), 9 bytes, version 2"_s,
        u"1B580000  0A 3F E8 03 E8 03 60 EA  Dockhand > Shipwright  P6 Transfer Info answer: code 0 "
        "(success), version 2, flag 1, frame limit 63, parameters 1000, 1000, 60000"_s,
        u"1B1A1000  02 08 00 00 01 00 00 00  Shipwright > Dockhand  P6 Initiate Transfer: file type 2 "
        "(generic), 1 record, version 2"_s,
        u"1B581000  00 00 00 00 00 00 00 00  Dockhand > Shipwright  P6 Initiate Transfer answer: code "
        "0 (success)"_s,
        u"1B1A2000  02 00 00 00 00           Shipwright > Dockhand  P6 Record Start: record 0, 2 frames"_s,
        u"1B1AF000  31 32 33 34 35 36 37 38  Shipwright > Dockhand  P6 Data Frame: frame 0"_s,
        u"1B1AF010  39                       Shipwright > Dockhand  P6 Data Frame: frame 1"_s,
        u"1B1A3000  26 39 F4 CB              Shipwright > Dockhand  P6 Record End: CRC-32 0xcbf43926"_s,
        u"1B583000  00                       Dockhand > Shipwright  P6 Record End answer: code 0 "
        "(success), CRC-32 matches"_s,
        u"1B1A4000  26 39 F4 CB              Shipwright > Dockhand  P6 Transfer Complete: CRC-32 "
        "0xcbf43926"_s,
        u"1B584000  26 39 F4 CB              Dockhand > Shipwright  P6 Transfer Complete answer: code 0 "
        "(success), receiver's CRC-32 0xcbf43926"_s,
    };
    QCOMPARE(messages, expected);
    QCOMPARE(shipwright({u"decode"_s}, contentOf(log)).out, fromFile.out);
    QCOMPARE(shipwright({u"decode"_s, u"-"_s}, contentOf(log)).out, fromFile.out);
}

void ShipwrightTest::decode_followsAPipe()
{
    QProcess process;
    startShipwright(process, {u"decode"_s});
    process.write("(1.000000) can0 0F1A02C4#\n(2.000000) can0 0F58");
    QVERIFY(process.waitForReadyRead(20'000));
    QCOMPARE(process.readAllStandardOutput().count('\n'), 1);
    process.write("4000#\n");
    QVERIFY(process.waitForReadyRead(20'000));
    QVERIFY(process.readAllStandardOutput().endsWith("P3 response: slot 0, code 0 (success)\n"));
    process.closeWriteChannel();
    QCOMPARE(outcomeOf(process).status, 0);
}

void ShipwrightTest::decode_namesLinesThatAreNoFrames()
{
    const Outcome outcome = shipwright(
        {u"decode"_s},
        QByteArrayLiteral("hello\n(1.000000) can0 0F1A02C4#\n\n(2.000000) can0 1##11\n"));
    QCOMPARE(outcome.status, 3);
    QCOMPARE(outcome.out.count(u'\n'), 2);
    QVERIFY2(
        outcome.err.startsWith(u"shipwright: 2 of the lines hold no classic CAN frame in candump's "
                               "format: 1, 4.\n"_s),
        qPrintable(outcome.err));
}

void ShipwrightTest::decode_namesTheInterfaceWhenThereAreSeveral()
{
    const QByteArray log = QByteArrayLiteral("(1.000000) can0 0F1A02C4#\n"
                                             "(2.000000) can1 0F5840BA#\n"
                                             "(3.000000) can0 0F584000#\n");
    const Outcome outcome = shipwright({u"decode"_s}, log);
    QCOMPARE(outcome.out,
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
    for (const QString &line :
         shipwright({u"decode"_s, u"--json"_s}, log).out.split(u'\n', Qt::SkipEmptyParts))
        interfaces +=
            QJsonDocument::fromJson(line.toUtf8()).object().value(u"interface"_s).toString();
    QCOMPARE(interfaces,
             (QStringList{QString(), u"can0"_s, u"can1"_s, u"can0"_s, u"can0"_s, u"can1"_s}));
}

void ShipwrightTest::decode_printsDatesOnRequest()
{
    const Outcome outcome = shipwright(
        {u"decode"_s, u"--absolute"_s},
        QByteArrayLiteral("(1795235282.903797) can0 0F1A02C4#\n(-0.5) can0 0F584000#\n"));
    const QStringList lines = outcome.out.split(u'\n');
    QVERIFY2(lines.at(0).startsWith(u"2026-11-21T04:28:02.903797Z  0F1A02C4"_s),
             qPrintable(outcome.out));
    QVERIFY2(lines.at(1).startsWith(u"1969-12-31T23:59:59.500000Z  0F584000"_s),
             qPrintable(outcome.out));
}

void ShipwrightTest::decode_printsOnlyWhatIsAskedFor()
{
    const QString log = QStringLiteral(SESSIONS "/record-refused.log");
    const Outcome outcome = shipwright(
        {u"decode"_s, log, u"--only"_s, u"message=record-end"_s, u"--only"_s, u"result=failure"_s});
    QCOMPARE(
        outcome.out,
        u"  0.000611  1B5830BA  01                       Dockhand > Shipwright  P6 Record End "
        "answer: code 186 (failure), CRC-32 differs\n"
        "19 frames in 0.0 s: 0 sessions, 1 file of 27 bytes at 28.0 kB/s, 1 record sent again, "
        "1 refusal.\n"_s);
    const Outcome wrong = shipwright({u"decode"_s, log, u"--only"_s, u"coffee"_s});
    QCOMPARE(wrong.status, 2);
    QCOMPARE(wrong.err,
             u"shipwright: --only cannot choose \"coffee\".\nTry: Write message=TEXT, "
             "node=NUMBER, result=success, result=failure or result=CODE.\n"_s);
}

void ShipwrightTest::recordedSessions_areWhatTheReceiverDoes_data()
{
    QTest::addColumn<QString>("log");
    for (const QFileInfo &log : QDir(QStringLiteral(SESSIONS)).entryInfoList({u"*.log"_s}))
        QTest::newRow(qPrintable(log.baseName())) << log.filePath();
}

void ShipwrightTest::recordedSessions_areWhatTheReceiverDoes()
{
    QFETCH(QString, log);
    const std::unique_ptr<QCanBusDevice> device(
        QCanBus::instance()->createDevice(u"socketcan"_s, u"can0"_s));
    QVERIFY(device && device->connectDevice());
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
        QTRY_VERIFY_WITH_TIMEOUT(device->framesAvailable() > 0, 20'000);
        answers += device->readFrame().toString();
    }
    QVERIFY(!recorded.isEmpty());
    QCOMPARE(answers, recorded);
}

void ShipwrightTest::log_isReadByCanUtils()
{
    const QString log = m_directory->filePath(u"frames.log"_s);
    QCOMPARE(shipwright({u"connect"_s, u"--log"_s, log}).status, 0);
    QProcess converter;
    converter.start(u"log2asc"_s, {u"-I"_s, log, u"can0"_s});
    const Outcome outcome = outcomeOf(converter);
    QCOMPARE(outcome.status, 0);
    const QStringList lines = outcome.out.split(u'\n', Qt::SkipEmptyParts);
    QVERIFY2(lines.size() >= 2, qPrintable(outcome.out));
    QVERIFY2(lines.at(lines.size() - 2).contains(u"F1A02C0x"_s, Qt::CaseInsensitive)
                 && lines.at(lines.size() - 2).contains(u"A5 5A"_s),
             qPrintable(outcome.out));
    QVERIFY2(lines.last().contains(u"5A A5"_s), qPrintable(outcome.out));
}

void ShipwrightTest::json_isOneObjectPerLine()
{
    const QString path = file(u"sent"_s, pattern(20'000));
    const Outcome outcome = shipwright({u"send"_s, u"generic"_s, path, u"--json"_s});
    const QStringList lines = outcome.out.split(u'\n', Qt::SkipEmptyParts);
    QVERIFY(lines.size() > 5);
    const QJsonObject first = QJsonDocument::fromJson(lines.first().toUtf8()).object();
    QCOMPARE(first.value(u"event"_s).toString(), u"start"_s);
    QCOMPARE(first.value(u"version"_s).toInt(), 1);
    QCOMPARE(first.value(u"command"_s).toString(), u"send"_s);
    int percent = -1;
    for (const QString &line : lines) {
        const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
        QCOMPARE(object.value(u"interface"_s).toString(), u"can0"_s);
        const auto time = QDateTime::fromString(object.value(u"time"_s).toString(), Qt::ISODate);
        QVERIFY2(qAbs(time.msecsTo(QDateTime::currentDateTimeUtc())) < 60'000, qPrintable(line));
        if (object.value(u"event"_s) == u"progress"_s) {
            QVERIFY(object.value(u"percent"_s).toInt() >= percent);
            percent = object.value(u"percent"_s).toInt();
        }
    }
    QCOMPARE(percent, 100);
    const QJsonObject last = QJsonDocument::fromJson(lines.last().toUtf8()).object();
    QCOMPARE(last.value(u"event"_s).toString(), u"sent"_s);
    QCOMPARE(last.value(u"bytes"_s).toInt(), 20'000);
    QCOMPARE(last.value(u"records"_s).toInt(), 40);

    const Outcome failed = shipwright({u"send"_s, u"generic"_s, path, u"--json"_s, u"--fault"_s,
                                       u"corrupt@data"_s, u"--retries"_s, u"0"_s});
    QCOMPARE(failed.status, 8);
    const QStringList failedLines = failed.out.split(u'\n', Qt::SkipEmptyParts);
    const QJsonObject failure = QJsonDocument::fromJson(failedLines.last().toUtf8()).object();
    QCOMPARE(failure.value(u"event"_s).toString(), u"failure"_s);
    QCOMPARE(failure.value(u"status"_s).toInt(), 8);
}

void ShipwrightTest::json_everyCommandHasIt_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("event");
    QTest::newRow("connect") << QStringList{u"connect"_s} << u"connected"_s;
    QTest::newRow("info") << QStringList{u"info"_s} << u"info"_s;
    QTest::newRow("set-time") << QStringList{u"set-time"_s} << u"clock"_s;
    QTest::newRow("set-serial") << QStringList{u"set-serial"_s, u"SN1"_s} << u"serial"_s;
    QTest::newRow("end") << QStringList{u"end"_s} << u"ended"_s;
    QTest::newRow("warning") << QStringList{u"send"_s, u"configuration"_s, u"-"_s} << u"warning"_s;
    QTest::newRow("selftest --list") << QStringList{u"selftest"_s, u"--list"_s} << u"listed"_s;
    QTest::newRow("selftest") << QStringList{u"selftest"_s, u"--only"_s, u"file: "_s}
                              << u"selftest"_s;
    QTest::newRow("line") << QStringList{u"line"_s, u"$UNITS"_s} << u"units"_s;
    QTest::newRow("usage") << QStringList{u"info"_s, u"coffee"_s} << u"failure"_s;
    for (const QFileInfo &log : QDir(QStringLiteral(SESSIONS)).entryInfoList({u"*.log"_s}))
        QTest::addRow("decode %s", qPrintable(log.baseName()))
            << QStringList{u"decode"_s, log.filePath()} << u"summary"_s;
    QTest::newRow("decode of odd frames")
        << QStringList{u"decode"_s, QStringLiteral(ODD_FRAMES)} << u"frame"_s;
}

void ShipwrightTest::json_everyCommandHasIt()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, event);
    arguments.replaceInStrings(u"$UNITS"_s,
                               file(u"units.csv"_s, QByteArrayLiteral("serial\nSN1\n")));
    const Outcome outcome = shipwright(arguments << u"--json"_s, QByteArrayLiteral("no JSON"));
    QVERIFY2(outcome.out.contains(u"\"event\":\"%1\""_s.arg(event)), qPrintable(outcome.out));
}

void ShipwrightTest::selftest_passesOnTheReceiver()
{
    const Outcome outcome = shipwright({u"selftest"_s, u"--destructive"_s});
    QVERIFY2(outcome.out.endsWith(u" passed, 0 failed, 0 skipped.\n"
                                  "Overwritten on the receiver: generic file, menu file, package "
                                  "file, configuration, file of unknown type, serial number, "
                                  "clock.\n"_s),
             qPrintable(outcome.out));
    QCOMPARE(outcome.status, 0);
    QCOMPARE(contentOf(serviceTree + u"serialNumber"_s), QByteArrayLiteral("TEST12345678\n"));
    QCOMPARE(contentOf(serviceTree + u"application/main/systemConfig.json"_s),
             QByteArrayLiteral("{}\n"));
}

void ShipwrightTest::selftest_onlyRunsTheChecksAskedFor()
{
    const Outcome outcome = shipwright({u"selftest"_s, u"--only"_s, u"RECORD: WITHOUT"_s});
    QCOMPARE(outcome.out,
             u"pass  record: without frames\n1 passed, 0 failed, 0 skipped.\n"
             "Overwritten on the receiver: generic file.\n"_s);
    QCOMPARE(outcome.status, 0);
    const Outcome none = shipwright({u"selftest"_s, u"--only"_s, u"coffee"_s});
    QCOMPARE(none.err,
             u"shipwright: No check's name contains \"coffee\".\n"
             "Try: \"shipwright selftest --list\" prints all names.\n"_s);
    QCOMPARE(none.status, 2);
}

void ShipwrightTest::selftest_listNeedsNoBus()
{
    const Outcome outcome = shipwright(
        {u"selftest"_s, u"--list"_s, u"--only"_s, u"file: "_s, u"--plugin"_s, u"semaphore"_s});
    QCOMPARE(outcome.err, QString());
    const QStringList lines = outcome.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.first(), u"file: 1 to 1500 bytes in up to 3 records"_s);
    QCOMPARE(lines.last(), u"file: configuration, installed (--destructive)"_s);
    QCOMPARE(outcome.status, 0);
}

void ShipwrightTest::selftest_namesTheFrameBehindADeviation()
{
    QProcess standIn;
    standIn.start(QStringLiteral(STANDIN), {u"answers an empty Transfer Info with 7 bytes"_s});
    QVERIFY(standIn.waitForReadyRead());
    const Outcome outcome = shipwright({u"selftest"_s, u"--only"_s, u"Transfer Info: 0 to 5"_s});
    const QString report = m_directory->filePath(u"report.xml"_s);
    const Outcome json = shipwright({u"selftest"_s, u"--only"_s, u"Transfer Info: 0 to 5"_s,
                                     u"--json"_s, u"--report"_s, report});
    standIn.kill();
    standIn.waitForFinished();
    QCOMPARE(outcome.out,
             u"FAIL  Transfer Info: 0 to 5 bytes refused with the parameters\n"
             "      sent  1B1A0000#  P6 Transfer Info\n"
             "      due   1B58001D# and 8 bytes of parameters for version 2\n"
             "      came  1B58001D#0A3FE803E80360  P6 Transfer Info answer: code 29 (Transfer Info "
             "rejected)\n"
             "0 passed, 1 failed, 0 skipped.\nOverwritten on the receiver: nothing.\n"_s);
    QCOMPARE(outcome.status, 11);
    const QJsonObject check =
        QJsonDocument::fromJson(json.out.section(u'\n', 1, 1).toUtf8()).object();
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

void ShipwrightTest::selftest_reportsWhatEndedTheSession()
{
    const QString report = m_directory->filePath(u"report.xml"_s);
    QCOMPARE(shipwright({u"selftest"_s, u"--report"_s, report, u"--log"_s, report}).status, 2);
    QCOMPARE(shipwright(
                 {u"selftest"_s, u"--report"_s, u"/dev/full"_s, u"--only"_s, u"Transfer Info: 0"_s})
                 .status,
             3);
    stopReceiver();
    const Outcome outcome = shipwright(
        {u"selftest"_s, u"--report"_s, report, u"--timeout"_s, u"100"_s});
    QCOMPARE(outcome.status, 6);
    const QByteArray xml = contentOf(report);
    QVERIFY2(xml.contains(R"( tests="1" failures="0" errors="1" skipped="0">)"), xml.constData());
    QVERIFY2(xml.contains("<error message=\"No answer to "), xml.constData());
}

void ShipwrightTest::selftest_endsSoonWhenTheReceiverDies()
{
    QProcess standIn;
    standIn.start(QStringLiteral(STANDIN), QStringList());
    QVERIFY(standIn.waitForReadyRead());
    QProcess process;
    startShipwright(process, {u"selftest"_s, u"--timeout"_s, u"1000"_s});
    QVERIFY(process.waitForReadyRead());
    standIn.kill();
    standIn.waitForFinished();
    QElapsedTimer timer;
    timer.start();
    const Outcome outcome = outcomeOf(process);
    QVERIFY2(timer.elapsed() < 20'000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY2(
        outcome.out.contains(QRegularExpression(
            u" passed, [12] failed, \\d+ skipped \\(--destructive runs them\\), \\d+ not run: the "
            "receiver stopped answering\\.\n"_s)),
        qPrintable(outcome.out));
    QCOMPARE(outcome.status, 11);
}

void ShipwrightTest::failure_hasItsExitStatus_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const QString path = u"$FILE"_s;
    QTest::newRow("no command") << QStringList{} << 2 << u"No command given."_s;
    QTest::newRow("unknown command")
        << QStringList{u"fly"_s} << 2 << u"\"fly\" is not a command."_s;
    QTest::newRow("unknown option") << QStringList{u"info"_s, u"--loud"_s} << 2
                                    << u"Unknown option 'loud'.\nTry: shipwright info --help\n"_s;
    QTest::newRow("unknown file type")
        << QStringList{u"send"_s, u"song"_s, path} << 2 << u"\"song\" is not a file type."_s;
    QTest::newRow("missing argument")
        << QStringList{u"send"_s, u"generic"_s} << 2
        << u"Usage: shipwright send configuration|menu|generic|package FILE"_s;
    QTest::newRow("wrong slot") << QStringList{u"connect"_s, u"--slot"_s, u"4"_s} << 2
                                << u"--slot takes a number from 0 to 3, not \"4\"."_s;
    QTest::newRow("wrong destination") << QStringList{u"info"_s, u"--destination"_s, u"25"_s} << 2
                                       << u"--destination takes 26 or 14, not \"25\"."_s;
    QTest::newRow("wrong time") << QStringList{u"set-time"_s, u"noon"_s} << 2
                                << u"\"noon\" is not a date and time."_s;
    QTest::newRow("file missing") << QStringList{u"send"_s, u"menu"_s, u"/nonexistent"_s} << 3
                                  << u"/nonexistent cannot be read: No such file or directory."_s;
    QTest::newRow("directory") << QStringList{u"send"_s, u"menu"_s, u"/"_s} << 3
                               << u"/ is a directory."_s;
    QTest::newRow("log not writable")
        << QStringList{u"connect"_s, u"--log"_s, u"/nonexistent/log"_s} << 3
        << u"The log /nonexistent/log cannot be written: No such file or directory."_s;
    QTest::newRow("log on a full disk")
        << QStringList{u"connect"_s, u"--log"_s, u"/dev/full"_s} << 3
        << u"The log /dev/full cannot be written: No space left on device."_s;
    QTest::newRow("no such plugin")
        << QStringList{u"connect"_s, u"--plugin"_s, u"semaphore"_s} << 4
        << u"The CAN plugin \"semaphore\" has no interface \"can0\": "_s;
    QTest::newRow("no answer")
        << QStringList{u"connect"_s, u"--timeout"_s, u"50"_s, u"--fault"_s, u"drop@any"_s} << 6
        << u"No answer to start of configuration: sent 0F1A02C0#A55A, waited 50 ms for identifier "
           "0F584000, received nothing."_s;
    QTest::newRow("refused") << QStringList{u"connect"_s, u"--fault"_s, u"corrupt@any"_s} << 7
                             << u"The receiver refused start of configuration with code 186."_s;
    QTest::newRow("record refused")
        << QStringList{u"send"_s,         u"generic"_s,   path,  u"--fault"_s,
                       u"drop@data:1-"_s, u"--retries"_s, u"1"_s}
        << 8
        << u"The receiver refused record 1 of 2 with code 186 in each of 2 attempts: the CRC-32 that it "
           "computed is not 0x"_s;
    QTest::newRow("file refused") << QStringList{u"send"_s, u"generic"_s, path, u"--fault"_s,
                                                 u"repeat@record-end:1"_s}
                                  << 9 << u"The CRC-32 of the file differs: 0x"_s;
    QTest::newRow("abandoned") << QStringList{u"send"_s, u"generic"_s, path, u"--fault"_s,
                                              u"abandon@data:70"_s}
                               << 12 << u"Abandoned before sending 1B1AF050#"_s;
    QTest::newRow("link killed") << QStringList{u"send"_s, u"generic"_s, path, u"--fault"_s,
                                                u"kill@record-start:2"_s}
                                 << 4 << u"The CAN interface went away."_s;
}

void ShipwrightTest::failure_hasItsExitStatus()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, message);
    arguments.replaceInStrings(u"$FILE"_s, file(u"sent"_s, pattern(600)));
    const Outcome outcome = shipwright(arguments);
    QVERIFY2(outcome.err.startsWith(u"shipwright: "_s + message), qPrintable(outcome.err));
    QCOMPARE(outcome.status, status);
}

void ShipwrightTest::failure_noReceiver()
{
    stopReceiver();
    const Outcome outcome = shipwright({u"connect"_s, u"--timeout"_s, u"100"_s});
    QCOMPARE(outcome.status, 6);
    QCOMPARE(shipwright({u"selftest"_s, u"--timeout"_s, u"100"_s}).status, 6);
}

void ShipwrightTest::failure_interfaceCannotBeOpened()
{
    qputenv("VIRTUALBUS_FAULTS", file(u"faults"_s, QByteArrayLiteral("connect\n")).toLocal8Bit());
    const Outcome outcome = shipwright({u"connect"_s, u"--interface"_s, u"can7"_s});
    qunsetenv("VIRTUALBUS_FAULTS");
    QCOMPARE(outcome.status, 4);
    QVERIFY(outcome.err.contains(u"(ip link set can7 up type can bitrate 1000000)"_s));
    QVERIFY2(outcome.err.startsWith(u"shipwright: The CAN interface cannot be opened: Bus fault: "
                                    "connect.\nTry: "_s),
             qPrintable(outcome.err));
}

void ShipwrightTest::failure_sendBufferStaysFull()
{
    qputenv("VIRTUALBUS_FAULTS", file(u"faults"_s, QByteArrayLiteral("write\n")).toLocal8Bit());
    const Outcome outcome = shipwright({u"connect"_s, u"--timeout"_s, u"100"_s});
    qunsetenv("VIRTUALBUS_FAULTS");
    QCOMPARE(outcome.status, 5);
    QVERIFY2(outcome.err.startsWith(u"shipwright: 0F1A02C0#A55A could not be sent for 10"_s),
             qPrintable(outcome.err));
    QVERIFY2(outcome.err.contains(u" ms: Bus fault: write.\nTry: "_s), qPrintable(outcome.err));
}

void ShipwrightTest::interruption_tellsTheReceiversState()
{
    const QString path = file(u"sent"_s, pattern(600));
    const QString log = m_directory->filePath(u"frames.log"_s);
    QProcess process;
    startShipwright(process,
                    {u"send"_s, u"generic"_s, path, u"--fault"_s, u"delay=20000@data:70"_s,
                     u"--timeout"_s, u"20000"_s, u"--log"_s, log});
    // 74 frames are sent and three answers received when the delay begins.
    QTRY_COMPARE_WITH_TIMEOUT(contentOf(log).count('\n'), 77, 20'000);
    ::kill(pid_t(process.processId()), SIGINT);
    const Outcome outcome = outcomeOf(process);
    QCOMPARE(outcome.status, 130);
    QCOMPARE(
        outcome.err,
        u"shipwright: Interrupted.\nThe receiver holds an incomplete generic file (1 of 2 records) "
        "and waits without a time limit; sending the file again replaces it.\n"_s);
}

QTEST_GUILESS_MAIN(ShipwrightTest)
#include "tst_shipwright.moc"
