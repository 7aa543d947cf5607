// Storage that fails: each file operation of a session fails in turn, in several ways, or ends the
// process. Then real file systems that are full or read-only.
#include "faultfs.h"
#include "faulttest.h"
#include "servicetree.h"

#include <QDir>
#include <QProcess>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

constexpr char factoryConfig[] = "application/factory/main/systemConfig.json";
constexpr char backupConfig[] = "application/backup/main/systemConfig.json";
constexpr char liveConfig[] = "application/main/systemConfig.json";
constexpr char serialNumber[] = "serialNumber";

const QByteArray firstConfig = QByteArray(1200, 'a') + "first";
const QByteArray nextConfig = QByteArray(900, 'b') + "next";
const QByteArray oldConfig = "what was there before";

/// What the service tool does, and checks of the result.
struct Session
{
    void (*prepare)();
    QStringList (*act)(StartedReceiver &receiver);
    QString (*judge)(const QStringList &events);  ///< what was not as documented, with a fault
    QString (*repeat)(StartedReceiver &receiver); ///< without one; what is not complete
    QString (*leftBehind)();                      ///< what a killed process must not leave
};

struct Fault
{
    FaultFs::Action action = FaultFs::Action::None;
    int error = 0;
    bool lasting = false;
};

QString compare(const QByteArray &path, const QByteArray &expected)
{
    const QByteArray actual = ServiceTree::read(path);
    if (actual == expected)
        return {};
    return u"%1: %2 bytes instead of %3; "_s.arg(QString::fromLatin1(path))
        .arg(actual.size())
        .arg(expected.size());
}

QString withEvents(const QString &complaint, const QStringList &events)
{
    return complaint.isEmpty() ? complaint : complaint + listed(events);
}

// ---- Configuration download

void prepareConfig()
{
    ServiceTree::reset();
    for (const char *place : {factoryConfig, backupConfig, liveConfig})
        ServiceTree::write(place, oldConfig);
    ServiceTree::write("application/main/stats.db", "statistics");
    ServiceTree::write("application/main/eventlog.db", "events");
}

QStringList downloadConfig(StartedReceiver &receiver)
{
    return receiver.receive(ToolFrames::configurationDownload(firstConfig));
}

QString judgeConfig(const QStringList &events)
{
    const QStringList answers = answersIn(events);
    const QString complete = answers.value(6);
    // A storage fault does not change the answers to the negotiation and the records.
    const QStringList others{
        u"0F584000#5AA5"_s,
        u"1B580000#0A3FE803E80360EA"_s,
        u"1B581000#0000000000000000"_s,
        u"1B583000#00"_s,
        u"1B583000#00"_s,
        u"1B583000#00"_s,
        complete,
        u"0F584000#"_s,
    };
    QString complaint;
    if (answers != others)
        complaint += u"answers; "_s;
    const bool accepted = complete == acceptanceOf(firstConfig);
    if (!accepted && !complete.startsWith("1B5840BA#"_L1))
        complaint += u"answer to Transfer Complete; "_s;

    for (const char *place : {backupConfig, liveConfig}) {
        const QString success = "info |Success! File safely backed up to: \""_L1
            + ServiceTree::path(place) + "\"|"_L1;
        const bool copied = ServiceTree::read(place) == firstConfig;
        if (accepted && events.contains(success) && !copied)
            complaint += u"success without a copy; "_s;
        if (!copied && !complainsIn(events))
            complaint += u"nothing in the log; "_s;
    }
    return withEvents(complaint, events);
}

QString repeatConfig(StartedReceiver &receiver)
{
    const QStringList events = receiver.receive(ToolFrames::configurationDownload(nextConfig));
    QString complaint;
    if (!answersIn(events).contains(acceptanceOf(nextConfig)))
        complaint += u"no acceptance; "_s;
    for (const char *place : {factoryConfig, backupConfig, liveConfig})
        complaint += compare(place, nextConfig);
    for (const char *directory :
         {"application/factory/main", "application/backup/main", "application/main"}) {
        if (ServiceTree::list(directory) != QStringList{u"systemConfig.json"_s})
            complaint += u"litter; "_s;
    }
    return withEvents(complaint, events);
}

/// Copies appear whole or not at all.
QString configLeftBehind()
{
    QString complaint;
    for (const char *place : {backupConfig, liveConfig}) {
        const QByteArray content = ServiceTree::read(place);
        if (content != oldConfig && content != "(no file)")
            complaint += compare(place, firstConfig);
    }
    return complaint;
}

// ---- Serial number

void prepareSerial()
{
    ServiceTree::reset();
    ServiceTree::write(serialNumber, "OLD\n");
}

QStringList setSerial(StartedReceiver &receiver)
{
    return receiver.receive(ToolFrames::setSerialNumber("SN1234567890"));
}

QString judgeSerial(const QStringList &events)
{
    const QStringList answers = answersIn(events);
    const bool refused = answers == QStringList{u"0F584000#"_s, u"0F5840BA#"_s};
    const bool accepted = answers == QStringList{u"0F584000#"_s, u"0F584000#"_s};
    QString complaint;
    if (!refused && !accepted)
        complaint += u"answers; "_s;
    if (refused && !complainsIn(events))
        complaint += u"nothing in the log; "_s;
    return withEvents(complaint, events);
}

QString repeatSerial(StartedReceiver &receiver)
{
    const QStringList events = receiver.receive(ToolFrames::setSerialNumber("NEXT7"));
    QString complaint = compare(serialNumber, "NEXT7\n");
    if (answersIn(events) != QStringList{u"0F584000#"_s})
        complaint += u"answers; "_s;
    return withEvents(complaint, events);
}

/// The file is written in place: a kill leaves the old number or the beginning of the new one.
QString serialLeftBehind()
{
    const QByteArray content = ServiceTree::read(serialNumber);
    if (content == "OLD\n" || QByteArray("SN1234567890\n").startsWith(content))
        return {};
    return u"neither the old number nor a part of the new one"_s;
}

// ---- Menu archive: transfer and installation

QByteArray menuArchive;

const QByteArray menuDirectories[] = {"application/factory/menu/", "application/backup/menu/",
                                      "application/menu/"};

void prepareMenu()
{
    ServiceTree::reset();
    for (const QByteArray &directory : menuDirectories) {
        for (const char *name :
             {"menu.db", "menu.json", "images.tar", "menu.tar", "images/deep/old.png"})
            ServiceTree::write(directory + name, "old");
    }
}

QStringList downloadMenu(StartedReceiver &receiver)
{
    QStringList events = receiver.receive(ToolFrames::transfer(1, menuArchive));
    receiver.manager.processReceivedMenuFile();
    return events + receiver.receive({ToolFrames::startConfiguration()});
}

QString judgeMenu(const QStringList &events)
{
    QString complaint;
    if (answersIn(events).constLast() != "0F584000#5AA5"_L1)
        complaint += u"no handshake; "_s;
    for (const QByteArray &directory : menuDirectories) {
        if (ServiceTree::read(directory + "menu.json") != "{\"menu\": 2}" && !complainsIn(events))
            complaint += u"incomplete, and nothing in the log; "_s;
    }
    return withEvents(complaint, events);
}

QString repeatMenu(StartedReceiver &receiver)
{
    const QStringList events = downloadMenu(receiver);
    QString complaint;
    for (const QByteArray &directory : menuDirectories) {
        complaint += compare(directory + "menu.tar", menuArchive);
        complaint += compare(directory + "menu.json", "{\"menu\": 2}");
        complaint += compare(directory + "menu.db", "database");
        complaint += compare(directory + "images/new.png", QByteArray(300, 'p'));
        if (ServiceTree::list(directory)
                != QStringList{u"images/"_s, u"menu.db"_s, u"menu.json"_s, u"menu.tar"_s}
            || ServiceTree::list(directory + "images") != QStringList{u"new.png"_s})
            complaint += u"litter; "_s;
    }
    return withEvents(complaint, events);
}

/// The installer clears the directories first: a kill can leave any part of the files.
QString menuLeftBehind()
{
    return {};
}

// ---- Faults

void strike(uint32_t operation, const Fault &fault)
{
    FaultFs::Control &control = FaultFs::control();
    control.operations = 0;
    control.struck = 0;
    control.action = fault.action;
    control.error = fault.error;
    control.lasting = fault.lasting;
    control.at = operation;
}

void heal()
{
    FaultFs::control().at = 0;
}

/// The number of file operations of \a session, which must succeed without a fault.
uint32_t operationsOf(const Session &session)
{
    session.prepare();
    StartedReceiver receiver;
    strike(0, {});
    const QStringList events = session.act(receiver);
    const uint32_t operations = FaultFs::control().operations;
    if (const QString complaint = session.judge(events); !complaint.isEmpty())
        qFatal("Without a fault: %s", qUtf8Printable(complaint));
    return operations;
}

} // namespace

class tst_Storage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString reason = ServiceTree::unsafe(); !reason.isEmpty())
            qFatal("%s", qUtf8Printable(reason));

        const QString script = uR"(mkdir archive archive/images
            cd archive
            printf '{"menu": 2}' > menu.json
            printf database > menu.db
            printf p%.0s $(seq 300) > images/new.png
            tar -b1 -cf ../menu.tar menu.json menu.db images)"_s;
        QCOMPARE(QProcess::execute(u"sh"_s, {u"-ec"_s, script}), 0);
        QFile archive(u"menu.tar"_s);
        QVERIFY(archive.open(QIODevice::ReadOnly));
        menuArchive = archive.readAll();

        FaultFs::share(qUtf8Printable(QDir::current().absoluteFilePath(u"faultfs"_s)));
    }

    void faultAtEveryOperation_data()
    {
        QList<std::pair<QByteArray, Fault>> faults{
            {"ENOSPC", {FaultFs::Action::Error, ENOSPC, false}},
            {"short", {FaultFs::Action::Short, 0, false}},
            {"ENOSPC from there", {FaultFs::Action::Error, ENOSPC, true}},
        };
#ifndef __SANITIZE_ADDRESS__ // which sees no more when the error has another number
        faults += {
            {"EIO", {FaultFs::Action::Error, EIO, false}},
            {"EROFS", {FaultFs::Action::Error, EROFS, false}},
            {"EACCES", {FaultFs::Action::Error, EACCES, false}},
            {"EIO from there", {FaultFs::Action::Error, EIO, true}},
            {"EROFS from there", {FaultFs::Action::Error, EROFS, true}},
        };
#endif
        addSessions(faults);
    }

    void faultAtEveryOperation()
    {
        QFETCH(const Session, session);
        QFETCH(const Fault, fault);
        const uint32_t operations = operationsOf(session);
        QVERIFY2(operations >= 3, "the operations are not seen");

        for (uint32_t operation = 1; operation <= operations; ++operation) {
            session.prepare();
            StartedReceiver receiver;
            strike(operation, fault);
            const QStringList events = session.act(receiver);
            heal();
            QVERIFY(FaultFs::control().struck > 0);
            QString complaint = session.judge(events);
            complaint += session.repeat(receiver) + repeatConfig(receiver);
            QVERIFY2(
                complaint.isEmpty(),
                qPrintable(
                    u"operation %1 of %2: %3"_s.arg(operation).arg(operations).arg(complaint)));
        }
    }

    void killedAtEveryOperation_data()
    {
        addSessions({{"killed", {FaultFs::Action::Kill, 0, false}}});
    }

    void killedAtEveryOperation()
    {
        QFETCH(const Session, session);
        QFETCH(const Fault, fault);
        const uint32_t operations = operationsOf(session);

        for (uint32_t operation = 1; operation <= operations; ++operation) {
            session.prepare();
            const bool killed = isKilled([&] {
                StartedReceiver receiver;
                strike(operation, fault);
                session.act(receiver);
            });
            heal();
            QVERIFY(killed);
            const QString leftBehind = session.leftBehind();
            StartedReceiver restarted;
            const QString complaint = session.repeat(restarted) + repeatConfig(restarted);
            QVERIFY2(
                leftBehind.isEmpty() && complaint.isEmpty(),
                qPrintable(u"operation %1 of %2: left behind: %3; restarted: %4"_s.arg(operation)
                               .arg(operations)
                               .arg(leftBehind, complaint)));
        }
    }

    void fullFileSystem_data()
    {
        QTest::addColumn<QByteArray>("place");
        QTest::addColumn<QString>("answer");
        QTest::newRow("for what is received")
            << QByteArray("application/factory/main") << u"1B5840BA#"_s;
        QTest::newRow("for the backup") << QByteArray("application/backup/main") << u"1B584000#"_s;
        QTest::newRow("for the live copy") << QByteArray("application/main") << u"1B584000#"_s;
    }

    void fullFileSystem()
    {
        QFETCH(const QByteArray, place);
        QFETCH(const QString, answer);
        ServiceTree::reset();
        const ServiceTree::SmallFileSystem small(place, 8192);
        StartedReceiver receiver;

        const QStringList events = receiver.receive(
            ToolFrames::configurationDownload(QByteArray(20000, 'l')));
        QVERIFY2(answersIn(events).value(43).startsWith(answer), qPrintable(listed(events)));
        QVERIFY(complainsIn(events));
        // No part of a copy is left.
        if (place != "application/factory/main")
            QCOMPARE(ServiceTree::list(place), QStringList());
        QCOMPARE(repeatConfig(receiver), QString());
    }

    void readOnlyFileSystem_data()
    {
        QTest::addColumn<QByteArray>("place");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("serialAnswer");
        const QString stored = u"0F584000#"_s;
        // A file that cannot be opened for writing keeps its content, whose CRC differs.
        QTest::newRow("for what is received")
            << QByteArray("application/factory/main") << u"1B5840BA#"_s << stored;
        QTest::newRow("for the backup")
            << QByteArray("application/backup/main") << u"1B584000#"_s << stored;
        QTest::newRow("for the live copy")
            << QByteArray("application/main") << u"1B584000#"_s << stored;
        QTest::newRow("everywhere") << QByteArray("") << u"1B5840BA#"_s << u"0F5840BA#"_s;
    }

    void readOnlyFileSystem()
    {
        QFETCH(const QByteArray, place);
        QFETCH(const QString, answer);
        QFETCH(const QString, serialAnswer);
        prepareConfig();
        StartedReceiver receiver;
        {
            const ServiceTree::ReadOnly readOnly(place);
            const QStringList events = downloadConfig(receiver);
            QVERIFY2(answersIn(events).value(6).startsWith(answer), qPrintable(listed(events)));
            QVERIFY(complainsIn(events));
            const QByteArray kept = place.isEmpty() ? "application/main" : place;
            QCOMPARE(ServiceTree::read(kept + "/systemConfig.json"), oldConfig);
            QCOMPARE(answersIn(receiver.receive(ToolFrames::setSerialNumber("SHORT"))),
                     QStringList{serialAnswer});
        }
        QCOMPARE(repeatConfig(receiver), QString());
        QCOMPARE(repeatSerial(receiver), QString());
    }

private:
    static void addSessions(const QList<std::pair<QByteArray, Fault>> &faults)
    {
        QTest::addColumn<Session>("session");
        QTest::addColumn<Fault>("fault");
        const std::pair<QByteArray, Session> sessions[] = {
            {"configuration",
             {prepareConfig, downloadConfig, judgeConfig, repeatConfig, configLeftBehind}},
            {"serial number",
             {prepareSerial, setSerial, judgeSerial, repeatSerial, serialLeftBehind}},
            {"menu", {prepareMenu, downloadMenu, judgeMenu, repeatMenu, menuLeftBehind}},
        };
        for (const auto &[sessionName, session] : sessions) {
            for (const auto &[faultName, fault] : faults)
                QTest::newRow((sessionName + ": " + faultName).constData()) << session << fault;
        }
    }
};

QTEST_GUILESS_MAIN(tst_Storage)

#include "tst_storage.moc"
