#include "receivertest.h"

#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include <sys/syscall.h>

#include <poll.h>
#include <unistd.h>

#include <csignal>

using namespace Qt::StringLiterals;
using EventLog::transcript;

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

/// The installation of a menu archive: what a transcript cannot show.
class tst_filestore_menu : public ReceiverTest
{
    Q_OBJECT

private:
    void unpack(const QByteArray &archive = "archive")
    {
        ServiceTree::write("application/menu/menu.tar", archive);
        manager->DecompressMenuFile(u"/media/service/korvane/application/menu/"_s);
    }

private slots:
    void unpackingOfACorruptArchiveReportsTar()
    {
        unpack(QByteArray(10240, 'x'));
        QStringList lines = events();
        // tar names itself by the path at which it was found.
        lines.replaceInStrings(QStandardPaths::findExecutable(u"tar"_s), u"tar"_s);
        QCOMPARE(lines, transcript(uR"(
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            critical |Tar Error: Extraction failed with exit code: 2 Details: "tar: This does not look like a tar archive\ntar: Skipping to next header\ntar: Exiting with failure status due to previous errors"|
            sync
        )"_s));
    }

    void unpackingWithoutTarFails()
    {
        qputenv("PATH", "/nowhere");
        unpack();
        QCOMPARE(events(), transcript(uR"(
            info |Extracting "/media/service/korvane/application/menu/menu.tar" into "/media/service/korvane/application/menu/"|
            critical |Tar Error: Process timed out or crashed completely. Error code: QProcess::FailedToStart|
            sync
        )"_s));
    }

    void unpackingWaitsWithoutLimit()
    {
        replaceProgram(u"tar"_s, "sleep 0.2; echo ended > /media/service/korvane/tar");
        limitedWaits = 0;
        unpack();
        QCOMPARE(limitedWaits, 0);
        QCOMPARE(ServiceTree::read("tar"), "ended\n");
    }

    void unpackingLetsNothingElseRun()
    {
        replaceProgram(u"tar"_s, "sleep 0.2");
        bool ran = false;
        const auto run = [&ran] { ran = true; };
        QMetaObject::invokeMethod(this, run, Qt::QueuedConnection);
        unpack();
        QVERIFY(!ran);
        QTRY_VERIFY(ran);
    }

    /// The process itself is gone then.
    void unpackingSyncsAfterTarHasEnded()
    {
        replaceProgram(u"tar"_s, "printf $$ > /media/service/korvane/tar; sleep 0.2");
        QStringList seen;
        EventLog::watcher = [&](const QString &line) {
            const QString process = QString::fromLatin1(ServiceTree::read("tar"));
            if (line == "sync"_L1)
                seen += QFile::exists(u"/proc/"_s + process) ? u"runs"_s : u"gone"_s;
        };
        unpack();
        QCOMPARE(seen, QStringList{u"gone"_s});
        QVERIFY(ServiceTree::read("tar").toInt() > 0);
    }

    void installationWithoutTar()
    {
        qputenv("PATH", "/nowhere");
        ServiceTree::write("application/factory/menu/menu.tar", "archive");
        manager->processReceivedMenuFile();
        const QStringList lines = events();
        QCOMPARE(lines.count(u"critical |Tar Error: Process timed out or crashed completely. Error "
                             "code: QProcess::FailedToStart|"_s),
                 3);
        QCOMPARE(lines.count(u"sync"_s), 8);
    }
};

QTEST_GUILESS_MAIN(tst_filestore_menu)
#include "tst_filestore_menu.moc"
