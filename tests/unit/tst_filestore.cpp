#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;
using EventLog::transcript;

namespace {

/// What read() was asked for while it is watched, and how it is made to fail.
struct ReadWatch
{
    bool active = false;
    QList<std::size_t> requests;
    qsizetype failFrom = -1; ///< index of the first request that fails
};
ReadWatch readWatch;

/// What fsync() was called for, and how it is made to fail.
struct SyncWatch
{
    QStringList files;
    bool fails = false;
};
SyncWatch syncWatch;

/// The checksum as it is published, bit by bit.
quint32 bitwiseCrc(const QByteArray &data)
{
    quint32 value = 0xFFFFFFFF;
    for (const char byte : data) {
        value ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            value = value >> 1 ^ (value & 1 ? 0xEDB88320 : 0);
    }
    return ~value;
}

/// \a size bytes without a pattern, the same in every run.
QByteArray someBytes(qsizetype size)
{
    QByteArray bytes(size, '\0');
    quint32 state = quint32(size) + 1;
    for (char &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = char(state >> 24);
    }
    return bytes;
}

} // namespace

// Takes the place of the system call in the whole process.
extern "C" ssize_t read(int descriptor, void *buffer, std::size_t size)
{
    if (readWatch.active) {
        readWatch.requests.append(size);
        if (readWatch.failFrom >= 0 && readWatch.requests.size() > readWatch.failFrom) {
            errno = EIO;
            return -1;
        }
    }
    return syscall(SYS_read, descriptor, buffer, size);
}

// Likewise.
extern "C" int fsync(int descriptor)
{
    const QFileInfo file(QFile::symLinkTarget(u"/proc/self/fd/%1"_s.arg(descriptor)));
    syncWatch.files += u"%1: %2 bytes, beside %3"_s.arg(file.fileName())
                           .arg(file.size())
                           .arg(file.dir().entryList(QDir::Files).join(u' '));
    if (syncWatch.fails) {
        errno = EIO;
        return -1;
    }
    return int(syscall(SYS_fsync, descriptor));
}

/// The file type catalogue, the checksums and the installation of a configuration.
class tst_filestore : public ReceiverTest
{
    Q_OBJECT

private slots:
    void fileTypesHaveWordAndPath_data();
    void fileTypesHaveWordAndPath();
    void lookupsReturnIndependentStrings();
    void lookupsTouchNothing();

    void bufferCrcIsThatOfIeee8023_data();
    void bufferCrcIsThatOfIeee8023();
    void bufferCrcTakesARange_data();
    void bufferCrcTakesARange();
    void bufferCrcOfAnImpossibleRange_data();
    void bufferCrcOfAnImpossibleRange();
    void bufferCrcAgreesWithTheBitwiseOne();
    void bufferCrcLeavesTheBuffer();

    void fileCrcIsThatOfIeee8023();
    void fileCrcTakesARange_data();
    void fileCrcTakesARange();
    void fileCrcOfAMissingFileIs0();
    void fileCrcOfADirectoryIs0();
    void fileCrcOfANegativeOffsetIs0();
    void fileCrcOpensAndSeeksBeforeItLooksAtTheLength();
    void fileCrcReadsInChunks_data();
    void fileCrcReadsInChunks();
    void fileCrcStopsAtAReadError();
    void fileCrcAgreesWithTheBufferCrc();
    void fileCrcClosesTheFile();

    void configurationIsCopiedWhenNothingIsThere();
    void configurationReplacesBackupAndLiveFile();
    void configurationRemovesParametersAndDatabases();
    void configurationKnowsNoWildcard();
    void configurationGoesOnWithoutTheBackupDirectory();
    void configurationGoesOnWithoutTheLiveDirectory();
    void configurationWithoutReceivedFileRemovesAllTheSame();
    void configurationReportsWhatItCannotRemove();
    void configurationGoesOnWithAReadOnlyBackup();
    void configurationCannotReplaceADirectory();
    void configurationDoesNotReplaceALinkThatLeadsNowhere();
    void configurationIsOnTheDiskBeforeItGetsItsName();
    void configurationThatDoesNotReachTheDiskIsNotCopied();
    void configurationReplacesWhatACutHasLeft();
    void configurationKeepsItsPermissions();
    void configurationInstallationChangesNoState();
};

// ---- Catalogue

void tst_filestore::fileTypesHaveWordAndPath_data()
{
    QTest::addColumn<quint32>("code");
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("path");

    QTest::newRow("0") << 0u << u"Configuration"_s
                       << u"/media/service/korvane/application/factory/main/systemConfig.json"_s;
    QTest::newRow("1") << 1u << u"Menu"_s
                       << u"/media/service/korvane/application/factory/menu/menu.tar"_s;
    QTest::newRow("2") << 2u << u"Generic"_s << u"/media/service/korvane/pendingUpdates/file.log"_s;
    QTest::newRow("3") << 3u << u"Package"_s
                       << u"/media/service/korvane/pendingUpdates/package.tar"_s;
    QTest::newRow("4") << 4u << u"Unknown"_s << u"Unknown"_s;
    QTest::newRow("255") << 255u << u"Unknown"_s << u"Unknown"_s;
    QTest::newRow("256") << 256u << u"Unknown"_s << u"Unknown"_s;
    QTest::newRow("2^31") << 0x80000000u << u"Unknown"_s << u"Unknown"_s;
    QTest::newRow("2^32 - 1") << 0xFFFFFFFFu << u"Unknown"_s << u"Unknown"_s;
}

void tst_filestore::fileTypesHaveWordAndPath()
{
    QFETCH(quint32, code);
    QTEST(manager->getFileTypeString(code), "word");
    QTEST(manager->getFilePathString(code), "path");
}

void tst_filestore::lookupsReturnIndependentStrings()
{
    QString word = manager->getFileTypeString(3);
    word[0] = u'X';
    QString path = manager->getFilePathString(3);
    path[0] = u'X';
    QCOMPARE(manager->getFileTypeString(3), u"Package"_s);
    QCOMPARE(manager->getFilePathString(3), u"/media/service/korvane/pendingUpdates/package.tar"_s);
}

void tst_filestore::lookupsTouchNothing()
{
    session().fileType = 1;
    manager->getFileTypeString(3);
    manager->getFilePathString(4);
    QCOMPARE(session().fileType, 1u);
    QCOMPARE(session().outputFilePath, QString());
    QCOMPARE(events(), QStringList());
}

// ---- Checksums

void tst_filestore::bufferCrcIsThatOfIeee8023_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<quint32>("crc");

    QTest::newRow("check value") << QByteArray("123456789") << 0xCBF43926u;
    QTest::newRow("one letter") << QByteArray("a") << 0xE8B7BE43u;
    QTest::newRow("three letters") << QByteArray("abc") << 0x352441C2u;
    QTest::newRow("a sentence") << QByteArray("The quick brown fox jumps over the lazy dog")
                                << 0x414FA339u;
    QTest::newRow("zeros") << QByteArray(32, '\0') << 0x190A55ADu;
    QTest::newRow("ones") << QByteArray(32, '\xff') << 0xFF6CAB0Bu;
    QTest::newRow("nothing") << QByteArray() << 0u;
}

void tst_filestore::bufferCrcIsThatOfIeee8023()
{
    QFETCH(QByteArray, data);
    QTEST(manager->CalculateCRC32(data, 0, quint32(data.size())), "crc");
}

void tst_filestore::bufferCrcTakesARange_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<quint32>("length");
    QTest::addColumn<QByteArray>("covered");

    QTest::newRow("in the middle") << 2 << 3u << QByteArray("cde");
    QTest::newRow("all") << 0 << 6u << QByteArray("abcdef");
    QTest::newRow("last") << 5 << 1u << QByteArray("f");
    QTest::newRow("no bytes") << 2 << 0u << QByteArray();
}

void tst_filestore::bufferCrcTakesARange()
{
    QFETCH(int, offset);
    QFETCH(quint32, length);
    QFETCH(QByteArray, covered);
    QCOMPARE(manager->CalculateCRC32("abcdef"_ba, offset, length), bitwiseCrc(covered));
}

void tst_filestore::bufferCrcOfAnImpossibleRange_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<quint32>("length");
    QTest::addColumn<QByteArray>("covered");

    QTest::newRow("sum that wraps") << 2 << 0xFFFFFFFEu << QByteArray();
    QTest::newRow("sum that wraps to itself less one") << 1 << 0xFFFFFFFFu << QByteArray();
    QTest::newRow("longer than the buffer") << 4 << 3u << QByteArray("ef");
    QTest::newRow("much longer") << 0 << 0xFFFFFFFFu << QByteArray("abcdef");
    QTest::newRow("behind the buffer") << 6 << 1u << QByteArray();
    QTest::newRow("negative offset") << -1 << 3u << QByteArray();
    QTest::newRow("most negative offset") << int(0x80000000) << 3u << QByteArray();
}

void tst_filestore::bufferCrcOfAnImpossibleRange()
{
    QFETCH(int, offset);
    QFETCH(quint32, length);
    QFETCH(QByteArray, covered);
    QCOMPARE(manager->CalculateCRC32("abcdef"_ba, offset, length), bitwiseCrc(covered));
    QCOMPARE(manager->CalculateCRC32(QByteArray(), offset, length), 0u);
}

void tst_filestore::bufferCrcAgreesWithTheBitwiseOne()
{
    for (const int size : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 63, 64, 65, 511, 512, 513, 4097}) {
        const QByteArray data = someBytes(size);
        QCOMPARE(manager->CalculateCRC32(data, 0, quint32(size)), bitwiseCrc(data));
        QCOMPARE(manager->CalculateCRC32(data, size / 3, quint32(size / 2)),
                 bitwiseCrc(data.mid(size / 3, size / 2)));
    }
}

void tst_filestore::bufferCrcLeavesTheBuffer()
{
    const QByteArray data("abcdef");
    manager->CalculateCRC32(data, 0, 6);
    QCOMPARE(data, "abcdef");
    QCOMPARE(events(), QStringList());
}

void tst_filestore::fileCrcIsThatOfIeee8023()
{
    ServiceTree::write("digits", "123456789");
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("digits"), 0L, 9L), 0xCBF43926u);
    QCOMPARE(events(), QStringList());
}

void tst_filestore::fileCrcTakesARange_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("covered");

    QTest::newRow("in the middle") << 2 << 3 << QByteArray("cde");
    QTest::newRow("all") << 0 << 6 << QByteArray("abcdef");
    QTest::newRow("longer than the file") << 0 << 7 << QByteArray("abcdef");
    QTest::newRow("much longer than the rest") << 4 << 0x7FFFFFFF << QByteArray("ef");
    QTest::newRow("at the end") << 6 << 1 << QByteArray();
    QTest::newRow("behind the end") << 100 << 1 << QByteArray();
    QTest::newRow("no bytes") << 0 << 0 << QByteArray();
    QTest::newRow("negative length") << 0 << -1 << QByteArray();
    QTest::newRow("most negative length") << 2 << int(0x80000000) << QByteArray();
}

void tst_filestore::fileCrcTakesARange()
{
    QFETCH(int, offset);
    QFETCH(int, length);
    QFETCH(QByteArray, covered);
    ServiceTree::write("letters", "abcdef");
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), long(offset), long(length)),
             bitwiseCrc(covered));
    QCOMPARE(events(), QStringList());
}

void tst_filestore::fileCrcOfAMissingFileIs0()
{
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("missing"), 0L, 9L), 0u);
    QCOMPARE(events(), transcript(R"(
        critical |CalculateCRC32 Error: Failed to open file: "No such file or directory"|
    )"));
    QVERIFY(!QFile::exists(ServiceTree::path("missing")));
}

void tst_filestore::fileCrcOfADirectoryIs0()
{
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("pendingUpdates"), 0L, 9L), 0u);
    const QStringList lines = events();
    QCOMPARE(
        lines.last().left(60),
        u"critical |CalculateCRC32 Error: Failed to open file: \"file to open is a directory\"|"_s
            .left(60));
}

void tst_filestore::fileCrcOfANegativeOffsetIs0()
{
    ServiceTree::write("letters", "abcdef");
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), -1L, 3L), 0u);
    QCOMPARE(events().filter(u"critical |"_s), transcript(R"(
        critical |CalculateCRC32 Error: Failed to seek to offset: -1|
    )"));
}

void tst_filestore::fileCrcOpensAndSeeksBeforeItLooksAtTheLength()
{
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("missing"), 0L, 0L), 0u);
    QCOMPARE(events().size(), 1);
    ServiceTree::write("letters", "abcdef");
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), -5L, 0L), 0u);
    QVERIFY(events().contains(u"critical |CalculateCRC32 Error: Failed to seek to offset: -5|"_s));
    // Then nothing is read.
    readWatch = {true, {}, -1};
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), 0L, 0L), 0u);
    QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), 0L, -7L), 0u);
    readWatch.active = false;
    QCOMPARE(readWatch.requests, QList<std::size_t>());
}

void tst_filestore::fileCrcReadsInChunks_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("length");
    QTest::addColumn<QList<std::size_t>>("requests");

    QTest::newRow("all") << 0 << 10000 << QList<std::size_t>{4096, 4096, 1808};
    QTest::newRow("one chunk") << 0 << 4096 << QList<std::size_t>{4096};
    QTest::newRow("one byte more") << 0 << 4097 << QList<std::size_t>{4096, 1};
    QTest::newRow("from the middle") << 5000 << 5000 << QList<std::size_t>{4096, 904};
    QTest::newRow("few") << 9990 << 3 << QList<std::size_t>{3};
}

void tst_filestore::fileCrcReadsInChunks()
{
    QFETCH(int, offset);
    QFETCH(int, length);
    const QByteArray data = someBytes(10000);
    ServiceTree::write("bytes", data);
    readWatch = {true, {}, -1};
    const quint32 crc = manager->CalculateCRC32(ServiceTree::path("bytes"), long(offset),
                                                long(length));
    readWatch.active = false;
    QTEST(readWatch.requests, "requests");
    QCOMPARE(crc, bitwiseCrc(data.mid(offset, length)));
}

void tst_filestore::fileCrcStopsAtAReadError()
{
    const QByteArray data = someBytes(10000);
    ServiceTree::write("bytes", data);
    readWatch = {true, {}, 1};
    const quint32 crc = manager->CalculateCRC32(ServiceTree::path("bytes"), 0L, 10000L);
    readWatch.active = false;
    QCOMPARE(crc, bitwiseCrc(data.first(4096)));
    QCOMPARE(readWatch.requests, (QList<std::size_t>{4096, 4096}));
    QCOMPARE(events(), QStringList());
}

void tst_filestore::fileCrcAgreesWithTheBufferCrc()
{
    for (const int size : {0, 1, 4095, 4096, 4097, 8192, 10000, 1000000}) {
        const QByteArray data = someBytes(size);
        ServiceTree::write("bytes", data);
        const quint32 crc = manager->CalculateCRC32(ServiceTree::path("bytes"), 0L, long(size));
        QCOMPARE(crc, manager->CalculateCRC32(data, 0, quint32(size)));
        QCOMPARE(crc, bitwiseCrc(data));
    }
}

void tst_filestore::fileCrcClosesTheFile()
{
    ServiceTree::write("letters", "abcdef");
    const auto openFiles = [] {
        return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System).size();
    };
    const auto before = openFiles();
    manager->CalculateCRC32(ServiceTree::path("letters"), 0L, 6L);
    manager->CalculateCRC32(ServiceTree::path("letters"), -1L, 6L);
    manager->CalculateCRC32(ServiceTree::path("missing"), 0L, 6L);
    QCOMPARE(openFiles(), before);
}

// ---- Configuration

void tst_filestore::configurationIsCopiedWhenNothingIsThere()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    manager->processReceivedConfigFile();
    QCOMPARE(events(), transcript(R"(
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/nvParameters.conf*"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/settingsChangeLog.db"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/stats.db"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/eventlog.db"|
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::read("application/backup/main/systemConfig.json"), "received");
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "received");
    QCOMPARE(ServiceTree::read("application/factory/main/systemConfig.json"), "received");
}

void tst_filestore::configurationReplacesBackupAndLiveFile()
{
    const QByteArray received = someBytes(100000);
    ServiceTree::write("application/factory/main/systemConfig.json", received);
    ServiceTree::write("application/backup/main/systemConfig.json", "old backup");
    ServiceTree::write("application/main/systemConfig.json", "old");
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::read("application/backup/main/systemConfig.json"), received);
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), received);
    QCOMPARE(ServiceTree::read("application/factory/main/systemConfig.json"), received);
}

void tst_filestore::configurationRemovesParametersAndDatabases()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    for (const char *name : {"application/main/nvParameters.conf*",
                             "application/main/settingsChangeLog.db", "application/main/stats.db",
                             "application/main/eventlog.db", "application/main/other.db"}) {
        ServiceTree::write(name, "old");
    }
    manager->processReceivedConfigFile();
    QCOMPARE(events().mid(0, 5), transcript(R"(
        info |Success! Cleaned up file: "/media/service/korvane/application/main/nvParameters.conf*"|
        info |Success! Cleaned up file: "/media/service/korvane/application/main/settingsChangeLog.db"|
        info |Success! Cleaned up file: "/media/service/korvane/application/main/stats.db"|
        info |Success! Cleaned up file: "/media/service/korvane/application/main/eventlog.db"|
        sync
    )"));
    QCOMPARE(ServiceTree::list("application/main"),
             (QStringList{u"other.db"_s, u"systemConfig.json"_s}));
}

void tst_filestore::configurationKnowsNoWildcard()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    ServiceTree::write("application/main/nvParameters.conf", "kept");
    ServiceTree::write("application/main/nvParameters.conf.1", "kept too");
    manager->processReceivedConfigFile();
    QCOMPARE(events().constFirst(),
             u"debug |Cleanup Note: File did not exist, skipping: "
             "\"/media/service/korvane/application/main/nvParameters.conf*\"|"_s);
    QCOMPARE(ServiceTree::read("application/main/nvParameters.conf"), "kept");
    QCOMPARE(ServiceTree::read("application/main/nvParameters.conf.1"), "kept too");
}

void tst_filestore::configurationGoesOnWithoutTheBackupDirectory()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    QVERIFY(QDir(ServiceTree::path("application/backup")).removeRecursively());
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        sync
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "received");
    QVERIFY(!QFile::exists(ServiceTree::path("application/backup")));
}

void tst_filestore::configurationGoesOnWithoutTheLiveDirectory()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    QVERIFY(QDir(ServiceTree::path("application/main")).removeRecursively());
    manager->processReceivedConfigFile();
    const QStringList lines = events();
    QCOMPARE(lines.filter(u"Cleanup Note"_s).size(), 4);
    QCOMPARE(lines.mid(4), transcript(R"(
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
}

void tst_filestore::configurationWithoutReceivedFileRemovesAllTheSame()
{
    ServiceTree::write("application/main/stats.db", "old");
    ServiceTree::write("application/main/systemConfig.json", "old");
    ServiceTree::write("application/backup/main/systemConfig.json", "old");
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |Success! Cleaned up file: "/media/service/korvane/application/main/stats.db"|
        sync
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::list("application/main"), QStringList());
    QCOMPARE(ServiceTree::list("application/backup/main"), QStringList());
}

void tst_filestore::configurationReportsWhatItCannotRemove()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    ServiceTree::write("application/main/stats.db", "old");
    ServiceTree::write("application/main/systemConfig.json", "old");
    const ServiceTree::ReadOnly readOnly("application/main");
    manager->processReceivedConfigFile();
    QCOMPARE(events(), transcript(R"(
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/nvParameters.conf*"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/settingsChangeLog.db"|
        critical |Cleanup Error: Failed to remove file: "/media/service/korvane/application/main/stats.db"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/eventlog.db"|
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to remove old backup file: "/media/service/korvane/application/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "old");
    QCOMPARE(ServiceTree::read("application/main/stats.db"), "old");
}

void tst_filestore::configurationGoesOnWithAReadOnlyBackup()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    ServiceTree::write("application/backup/main/systemConfig.json", "old");
    const ServiceTree::ReadOnly readOnly("application/backup/main");
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        sync
        critical |Backup Error: Failed to remove old backup file: "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::read("application/backup/main/systemConfig.json"), "old");
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "received");
}

void tst_filestore::configurationCannotReplaceADirectory()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    QVERIFY(QDir().mkpath(ServiceTree::path("application/main/systemConfig.json")));
    QVERIFY(QDir().mkpath(ServiceTree::path("application/main/eventlog.db")));
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        critical |Cleanup Error: Failed to remove file: "/media/service/korvane/application/main/eventlog.db"|
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to remove old backup file: "/media/service/korvane/application/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
}

void tst_filestore::configurationDoesNotReplaceALinkThatLeadsNowhere()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    const QString live = ServiceTree::path("application/main/systemConfig.json");
    QVERIFY(QFile::link(u"nowhere"_s, live));
    manager->processReceivedConfigFile();
    QCOMPARE(eventsButDebug(), transcript(R"(
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QVERIFY(QFileInfo(live).isSymLink());
}

void tst_filestore::configurationIsOnTheDiskBeforeItGetsItsName()
{
    ServiceTree::write("application/factory/main/systemConfig.json", someBytes(100000));
    ServiceTree::write("application/backup/main/systemConfig.json", "old");
    ServiceTree::write("application/main/systemConfig.json", "old");
    syncWatch = {};
    manager->processReceivedConfigFile();
    // Once for the backup, once for the live file.
    QCOMPARE(
        syncWatch.files,
        QStringList(2, u"systemConfig.json.new: 100000 bytes, beside systemConfig.json.new"_s));
    QCOMPARE(ServiceTree::list("application/backup/main"), QStringList{u"systemConfig.json"_s});
    QCOMPARE(ServiceTree::list("application/main"), QStringList{u"systemConfig.json"_s});
}

void tst_filestore::configurationThatDoesNotReachTheDiskIsNotCopied()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    syncWatch = {};
    syncWatch.fails = true;
    manager->processReceivedConfigFile();
    syncWatch.fails = false;
    QCOMPARE(eventsButDebug(), transcript(R"(
        sync
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
    )"));
    QCOMPARE(ServiceTree::list("application/backup/main"), QStringList());
    QCOMPARE(ServiceTree::list("application/main"), QStringList());
}

void tst_filestore::configurationReplacesWhatACutHasLeft()
{
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    ServiceTree::write("application/main/systemConfig.json.new", someBytes(5000));
    manager->processReceivedConfigFile();
    QCOMPARE(ServiceTree::list("application/main"), QStringList{u"systemConfig.json"_s});
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "received");
}

void tst_filestore::configurationKeepsItsPermissions()
{
    constexpr auto permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser
        | QFile::WriteUser | QFile::ReadGroup;
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    QVERIFY(QFile::setPermissions(ServiceTree::path("application/factory/main/systemConfig.json"),
                                  permissions));
    manager->processReceivedConfigFile();
    QCOMPARE(QFile::permissions(ServiceTree::path("application/backup/main/systemConfig.json")),
             permissions);
    QCOMPARE(QFile::permissions(ServiceTree::path("application/main/systemConfig.json")),
             permissions);
}

void tst_filestore::configurationInstallationChangesNoState()
{
    session().fileType = 2;
    session().outputFilePath = u"kept"_s;
    session().transferInProgress = true;
    ServiceTree::write("application/factory/main/systemConfig.json", "received");
    manager->processReceivedConfigFile();
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().outputFilePath, u"kept"_s);
    QVERIFY(session().transferInProgress);
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "received");
}

QTEST_GUILESS_MAIN(tst_filestore)
#include "tst_filestore.moc"
