#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <sys/syscall.h>

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <utility>

using namespace Qt::StringLiterals;
using EventLog::transcript;

static QByteArray tarArguments()
{
    QFile file(u"tar-arguments"_s);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "(not started)"_ba;
}

/// Waits of the process for descriptors that end by time.
static int limitedWaits = 0;

// Takes the place of the system call in the whole process.
extern "C" int ppoll(pollfd *descriptors, nfds_t count, const timespec *timeout,
                     const sigset_t *mask)
{
    if (timeout)
        ++limitedWaits;
    // The call itself changes the time that it is given.
    timespec left = timeout ? *timeout : timespec{};
    return int(syscall(SYS_ppoll, descriptors, count, timeout ? &left : nullptr, mask, _NSIG / 8));
}

/// The installation of a menu archive.
class tst_filestore_menu : public ReceiverTest
{
    Q_OBJECT

private slots:
    /// Makes a menu archive with nested directories once, with the real tar.
    void initTestCase()
    {
        ReceiverTest::checkSandbox();
        QTemporaryDir content;
        const QDir directory(content.path());
        QVERIFY(directory.mkpath(u"images/icons/large"_s));
        for (const auto &[name, text] : {std::pair{u"menu.json"_s, "menu"},
                                         {u"images/logo.png"_s, "logo"},
                                         {u"images/icons/large/start.png"_s, "start"}}) {
            QFile file(directory.filePath(name));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(text);
        }
        QProcess tar;
        tar.setStandardErrorFile(QProcess::nullDevice());
        tar.start(u"tar"_s,
                  {u"-cf"_s, u"-"_s, u"-C"_s, content.path(), u"menu.json"_s, u"images"_s});
        QVERIFY(tar.waitForFinished());
        QCOMPARE(tar.exitCode(), 0);
        m_archive = tar.readAllStandardOutput();
        QVERIFY(m_archive.size() >= 10240);
    }

    void init()
    {
        startReceiver();
        QFile::remove(u"tar-arguments"_s);
    }

    void cleanup() { stopReceiver(); }

    // ---- Cleanup

    void cleanUpOfAnEmptyDirectory()
    {
        manager->CleanUpMenuDirectory(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(), transcript(uR"(
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/menu.db"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/menu.json"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/images.tar"|
            sync
        )"_s));
    }

    void cleanUpRemovesWhatAMenuLeaves()
    {
        QVERIFY(QDir().mkpath(ServiceTree::path("application/menu/images/icons/large")));
        for (const char *name : {"application/menu/menu.db", "application/menu/menu.json",
                                 "application/menu/images.tar", "application/menu/menu.tar",
                                 "application/menu/other", "application/menu/images/logo.png",
                                 "application/menu/images/icons/large/start.png"}) {
            ServiceTree::write(name, "old");
        }
        manager->CleanUpMenuDirectory(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(), transcript(uR"(
            info |Success! Cleaned up file: "/media/service/korvane/application/menu/menu.db"|
            info |Success! Cleaned up file: "/media/service/korvane/application/menu/menu.json"|
            info |Success! Cleaned up file: "/media/service/korvane/application/menu/images.tar"|
            info |Success! Recursively removed directory: "/media/service/korvane/application/menu/images"|
            sync
        )"_s));
        QCOMPARE(ServiceTree::list("application/menu"), (QStringList{u"menu.tar"_s, u"other"_s}));
    }

    void cleanUpReportsWhatItCannotRemove()
    {
        QVERIFY(QDir().mkpath(ServiceTree::path("application/menu/images")));
        ServiceTree::write("application/menu/images/logo.png", "old");
        ServiceTree::write("application/menu/menu.json", "old");
        const ServiceTree::ReadOnly readOnly("application/menu");
        manager->CleanUpMenuDirectory(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(Outside), transcript(uR"(
            critical |Cleanup Error: Failed to remove file: "/media/service/korvane/application/menu/menu.json"|
            critical |Cleanup Error: Failed to remove directory: "/media/service/korvane/application/menu/images"|
            sync
        )"_s));
    }

    void cleanUpTakesTheDirectoryAsItIs()
    {
        ServiceTree::write("application/menumenu.db", "old");
        manager->CleanUpMenuDirectory(u"/media/service/korvane/application/menu"_s);
        QCOMPARE(events(Outside), transcript(uR"(
            info |Success! Cleaned up file: "/media/service/korvane/application/menumenu.db"|
            sync
        )"_s));
    }

    // ---- Unpacking

    void unpackingUnpacksBesideTheArchive()
    {
        ServiceTree::write("application/menu/menu.tar", m_archive);
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(), transcript(uR"(
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            info |Success! Uncompressed menu.tar smoothly.|
            sync
        )"_s));
        QCOMPARE(ServiceTree::list("application/menu"),
                 (QStringList{u"images/"_s, u"menu.json"_s, u"menu.tar"_s}));
        QCOMPARE(ServiceTree::read("application/menu/menu.json"), "menu");
        QCOMPARE(ServiceTree::read("application/menu/images/logo.png"), "logo");
        QCOMPARE(ServiceTree::read("application/menu/images/icons/large/start.png"), "start");
    }

    void unpackingPassesItsArguments()
    {
        standInForTar("echo noise that is not read");
        ServiceTree::write("application/menu/menu.tar", "archive");
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(tarArguments(),
                 "-xf\n"
                 "/media/service/korvane/application/menu/menu.tar\n"
                 "-C\n"
                 "/media/service/korvane/application/menu/\n");
        QCOMPARE(events().at(1), u"info |Success! Uncompressed menu.tar smoothly.|"_s);
    }

    void unpackingWithoutArchiveStartsNothing()
    {
        standInForTar("");
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(), transcript(uR"(
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/menu/menu.tar"|
            sync
        )"_s));
        QCOMPARE(tarArguments(), "(not started)");
    }

    void unpackingOfACorruptArchiveReportsTar()
    {
        ServiceTree::write("application/menu/menu.tar", QByteArray(10240, 'x'));
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QStringList lines = events();
        QCOMPARE(lines.size(), 3);
        // tar names itself by the path at which it was found.
        lines[1].replace(QStandardPaths::findExecutable(u"tar"_s), "tar"_L1);
        QCOMPARE(lines, transcript(uR"(
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            critical |Tar Error: Extraction failed with exit code: 2 Details: "tar: This does not look like a tar archive\ntar: Skipping to next header\ntar: Exiting with failure status due to previous errors"|
            sync
        )"_s));
    }

    void unpackingTrimsWhatTarSays()
    {
        standInForTar("echo output; printf '\\n\\t said \"this\" \\n\\n' >&2; exit 77");
        ServiceTree::write("application/menu/menu.tar", "archive");
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(
            events().at(1),
            u"critical |Tar Error: Extraction failed with exit code: 77 Details: \"said \\\"this\\\"\"|"_s);
    }

    void unpackingWithoutTarFails()
    {
        QVERIFY(QDir().mkpath(u"no-programs"_s));
        qputenv("PATH", QFile::encodeName(QDir::current().filePath(u"no-programs"_s)));
        ServiceTree::write("application/menu/menu.tar", m_archive);
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events(), transcript(uR"(
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            critical |Tar Error: Process timed out or crashed completely. Error code: QProcess::FailedToStart|
            sync
        )"_s));
    }

    void unpackingKilledCountsAsItsSignal()
    {
        standInForTar("kill -KILL $$");
        ServiceTree::write("application/menu/menu.tar", "archive");
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events().at(1),
                 u"critical |Tar Error: Extraction failed with exit code: 9 Details: \"\"|"_s);
    }

    void unpackingThatWarnsSucceeds()
    {
        standInForTar("echo 'tar: a warning' >&2; exit 0");
        ServiceTree::write("application/menu/menu.tar", "archive");
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(events().at(1), u"info |Success! Uncompressed menu.tar smoothly.|"_s);
    }

    void unpackingWaitsWithoutLimit()
    {
        standInForTar("sleep 0.2; echo ended >> tar-arguments");
        ServiceTree::write("application/menu/menu.tar", "archive");
        limitedWaits = 0;
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(limitedWaits, 0);
        QVERIFY(tarArguments().endsWith("\nended\n"));
    }

    void unpackingLetsNothingElseRun()
    {
        standInForTar("sleep 0.2");
        ServiceTree::write("application/menu/menu.tar", "archive");
        bool ran = false;
        const auto run = [&ran] { ran = true; };
        QMetaObject::invokeMethod(this, run, Qt::QueuedConnection);
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QVERIFY(!ran);
        QTRY_VERIFY(ran);
    }

    void unpackingTakesTheDirectoryAsItIs()
    {
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu"_s);
        QCOMPARE(events(), transcript(uR"(
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/menumenu.tar"|
            sync
        )"_s));
    }

    /// The process itself is gone then.
    void unpackingSyncsAfterTarHasEnded()
    {
        standInForTar("echo $$ > tar-process; sleep 0.2; echo ended >> tar-arguments");
        ServiceTree::write("application/menu/menu.tar", "archive");
        QStringList seen;
        EventLog::watcher = [&](const QString &line) {
            if (line != "sync"_L1)
                return;
            QFile process(u"tar-process"_s);
            QVERIFY(process.open(QIODevice::ReadOnly));
            const QString place = u"/proc/"_s + QString::fromLatin1(process.readAll().trimmed());
            process.close();
            seen += QFile::exists(place) ? u"runs"_s : u"gone"_s;
            seen += tarArguments().endsWith("\nended\n") ? u"ended"_s : u"not ended"_s;
        };
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
        QCOMPARE(seen, (QStringList{u"gone"_s, u"ended"_s}));
    }

    // ---- Installation

    void installationOfAMenu()
    {
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        manager->processReceivedMenuFile();
        QCOMPARE(events(), transcript(uR"(
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/factory/menu/menu.db"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/factory/menu/menu.json"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/factory/menu/images.tar"|
            sync
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/backup/menu/menu.db"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/backup/menu/menu.json"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/backup/menu/images.tar"|
            sync
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/menu.db"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/menu.json"|
            debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/menu/images.tar"|
            sync
            info |Success! File safely backed up to: "/media/service/korvane/application/backup/menu/menu.tar"|
            info |Success! File safely backed up to: "/media/service/korvane/application/menu/menu.tar"|
            sync
            info |Extracting "/media/service/korvane/application/factory/menu/menu.tar" into "/media/service/korvane/application/factory/menu/"|
            info |Success! Uncompressed menu.tar smoothly.|
            sync
            info |Extracting "/media/service/korvane/application/backup/menu/menu.tar" into "/media/service/korvane/application/backup/menu/"|
            info |Success! Uncompressed menu.tar smoothly.|
            sync
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            info |Success! Uncompressed menu.tar smoothly.|
            sync
            sync
        )"_s));
        for (const char *directory :
             {"application/factory/menu/", "application/backup/menu/", "application/menu/"}) {
            const QByteArray place(directory);
            QCOMPARE(ServiceTree::list(directory),
                     (QStringList{u"images/"_s, u"menu.json"_s, u"menu.tar"_s}));
            QCOMPARE(ServiceTree::read(place + "menu.tar"), m_archive);
            QCOMPARE(ServiceTree::read(place + "images/icons/large/start.png"), "start");
        }
    }

    void installationReplacesAnEarlierMenu()
    {
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        for (const char *directory :
             {"application/factory/menu/", "application/backup/menu/", "application/menu/"}) {
            const QByteArray place(directory);
            QVERIFY(QDir().mkpath(ServiceTree::path(place + "images/old")));
            ServiceTree::write(place + "images/old/old.png", "old");
            ServiceTree::write(place + "menu.db", "old");
            ServiceTree::write(place + "menu.json", "old");
            ServiceTree::write(place + "images.tar", "old");
        }
        ServiceTree::write("application/backup/menu/menu.tar", "old");
        ServiceTree::write("application/menu/menu.tar", "old");
        manager->processReceivedMenuFile();
        const QStringList lines = events();
        QCOMPARE(lines.count(u"sync"_s), 8);
        QCOMPARE(lines.filter(u"info |Success! Cleaned up file: "_s).size(), 9);
        QCOMPARE(lines.filter(u"info |Success! Recursively removed directory: "_s).size(), 3);
        QCOMPARE(lines.filter(u"critical |"_s), QStringList());
        for (const char *directory :
             {"application/factory/menu/", "application/backup/menu/", "application/menu/"}) {
            const QByteArray place(directory);
            QCOMPARE(ServiceTree::list(directory),
                     (QStringList{u"images/"_s, u"menu.json"_s, u"menu.tar"_s}));
            QCOMPARE(ServiceTree::list(place + "images"),
                     (QStringList{u"icons/"_s, u"logo.png"_s}));
            QCOMPARE(ServiceTree::read(place + "menu.json"), "menu");
            QCOMPARE(ServiceTree::read(place + "menu.tar"), m_archive);
        }
    }

    void installationWithoutArchiveClearsAllTheSame()
    {
        ServiceTree::write("application/menu/menu.json", "old");
        ServiceTree::write("application/menu/menu.tar", "old");
        manager->processReceivedMenuFile();
        QCOMPARE(events(Outside), transcript(uR"(
            sync
            sync
            info |Success! Cleaned up file: "/media/service/korvane/application/menu/menu.json"|
            sync
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/menu/menu.tar" to "/media/service/korvane/application/backup/menu/menu.tar"|
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/menu/menu.tar" to "/media/service/korvane/application/menu/menu.tar"|
            sync
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/factory/menu/menu.tar"|
            sync
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/backup/menu/menu.tar"|
            sync
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/menu/menu.tar"|
            sync
            sync
        )"_s));
        QCOMPARE(ServiceTree::list("application/menu"), QStringList());
    }

    void installationOfACorruptArchiveGoesOn()
    {
        ServiceTree::write("application/factory/menu/menu.tar", QByteArray(10240, 'x'));
        manager->processReceivedMenuFile();
        const QStringList lines = events();
        QCOMPARE(
            lines.filter(u"critical |Tar Error: Extraction failed with exit code: 2 Details: "_s)
                .size(),
            3);
        QCOMPARE(lines.count(u"sync"_s), 8);
        QCOMPARE(ServiceTree::read("application/menu/menu.tar"), QByteArray(10240, 'x'));
    }

    void installationGoesOnWithAReadOnlyBackup()
    {
        standInForTar("");
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        ServiceTree::write("application/backup/menu/menu.tar", "old");
        const ServiceTree::ReadOnly readOnly("application/backup/menu");
        manager->processReceivedMenuFile();
        QCOMPARE(events(Outside).mid(3, 4), transcript(uR"(
            critical |Backup Error: Failed to remove old backup file: "/media/service/korvane/application/backup/menu/menu.tar"|
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/menu/menu.tar" to "/media/service/korvane/application/backup/menu/menu.tar"|
            info |Success! File safely backed up to: "/media/service/korvane/application/menu/menu.tar"|
            sync
        )"_s));
        // The old archive is unpacked where it could not be replaced.
        QCOMPARE(tarArguments(),
                 "-xf\n"
                 "/media/service/korvane/application/factory/menu/menu.tar\n"
                 "-C\n"
                 "/media/service/korvane/application/factory/menu/\n"
                 "-xf\n"
                 "/media/service/korvane/application/backup/menu/menu.tar\n"
                 "-C\n"
                 "/media/service/korvane/application/backup/menu/\n"
                 "-xf\n"
                 "/media/service/korvane/application/menu/menu.tar\n"
                 "-C\n"
                 "/media/service/korvane/application/menu/\n");
    }

    void installationGoesOnWithAReadOnlyLiveDirectory()
    {
        standInForTar("");
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        ServiceTree::write("application/menu/menu.tar", "old");
        const ServiceTree::ReadOnly readOnly("application/menu");
        manager->processReceivedMenuFile();
        // The messages call the live archive a backup too.
        QCOMPARE(events(Outside).mid(3, 4), transcript(uR"(
            info |Success! File safely backed up to: "/media/service/korvane/application/backup/menu/menu.tar"|
            critical |Backup Error: Failed to remove old backup file: "/media/service/korvane/application/menu/menu.tar"|
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/menu/menu.tar" to "/media/service/korvane/application/menu/menu.tar"|
            sync
        )"_s));
    }

    void installationGoesOnWithoutTheLiveDirectory()
    {
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        QVERIFY(QDir(ServiceTree::path("application/menu")).removeRecursively());
        manager->processReceivedMenuFile();
        const QStringList lines = events();
        QCOMPARE(lines.count(u"sync"_s), 8);
        QCOMPARE(lines.count(u"info |Success! Uncompressed menu.tar smoothly.|"_s), 2);
        QCOMPARE(lines.filter(u"critical |"_s), transcript(uR"(
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/menu/menu.tar" to "/media/service/korvane/application/menu/menu.tar"|
            critical |Extraction Error: Primary menu.tar missing at: "/media/service/korvane/application/menu/menu.tar"|
        )"_s));
    }

    void installationWithoutTar()
    {
        QVERIFY(QDir().mkpath(u"no-programs"_s));
        qputenv("PATH", QFile::encodeName(QDir::current().filePath(u"no-programs"_s)));
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        manager->processReceivedMenuFile();
        const QStringList lines = events();
        QCOMPARE(lines.count(u"critical |Tar Error: Process timed out or crashed completely. Error "
                             "code: QProcess::FailedToStart|"_s),
                 3);
        QCOMPARE(lines.count(u"sync"_s), 8);
    }

    void installationTouchesNoState()
    {
        session().fileType = 2;
        session().outputFilePath = u"kept"_s;
        ServiceTree::write("application/factory/menu/menu.tar", m_archive);
        manager->processReceivedMenuFile();
        QCOMPARE(session().fileType, 2u);
        QCOMPARE(session().outputFilePath, u"kept"_s);
        QVERIFY(events().filter(u"display "_s).isEmpty());
    }

private:
    void makeArchive(const char *path);

    /// Puts a shell script in tar's place; each of its arguments is first logged on its own line.
    static void standInForTar(const QByteArray &script)
    {
        replaceProgram(u"tar"_s, "printf '%s\\n' \"$@\" >> tar-arguments\n" + script);
    }

    QByteArray m_archive;
};

QTEST_GUILESS_MAIN(tst_filestore_menu)
#include "tst_filestore_menu.moc"
