#include "receivertest.h"

#include <QFile>
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

/// The file type catalogue, the checksums and the installation of a configuration.
class tst_filestore : public ReceiverTest
{
    Q_OBJECT

private:
    /// Installs a configuration as if it had been received.
    void install(const QByteArray &received = "received")
    {
        ServiceTree::write("application/factory/main/systemConfig.json", received);
        manager->processReceivedConfigFile();
    }

private slots:
    // ---- Catalogue

    void fileTypesHaveWordAndPath()
    {
        const QString root = u"/media/service/korvane/"_s;
        const std::tuple<quint32, QString, QString> rows[] = {
            {0u, u"Configuration"_s, root + u"application/factory/main/systemConfig.json"_s},
            {1u, u"Menu"_s, root + u"application/factory/menu/menu.tar"_s},
            {2u, u"Generic"_s, root + u"pendingUpdates/file.log"_s},
            {3u, u"Package"_s, root + u"pendingUpdates/package.tar"_s},
            {4u, u"Unknown"_s, u"Unknown"_s},
            {255u, u"Unknown"_s, u"Unknown"_s},
            {256u, u"Unknown"_s, u"Unknown"_s},
            {0x80000000u, u"Unknown"_s, u"Unknown"_s},
            {0xFFFFFFFFu, u"Unknown"_s, u"Unknown"_s},
        };
        const QStringList before = state();
        for (const auto &[code, word, path] : rows) {
            QCOMPARE(manager->getFileTypeString(code), word);
            QCOMPARE(manager->getFilePathString(code), path);
            // What is returned is the caller's own.
            manager->getFileTypeString(code)[0] = u'X';
            manager->getFilePathString(code)[0] = u'X';
            QCOMPARE(manager->getFileTypeString(code), word);
            QCOMPARE(manager->getFilePathString(code), path);
        }
        QCOMPARE(state(), before);
        QCOMPARE(events(), QStringList());
    }

    // ---- Checksums

    void crcIsThatOfIeee8023()
    {
        const std::pair<QByteArray, quint32> rows[] = {
            {"123456789", 0xCBF43926u},
            {"a", 0xE8B7BE43u},
            {"abc", 0x352441C2u},
            {"The quick brown fox jumps over the lazy dog", 0x414FA339u},
            {QByteArray(32, '\0'), 0x190A55ADu},
            {QByteArray(32, '\xff'), 0xFF6CAB0Bu},
            {{}, 0u},
        };
        for (const auto &[data, crc] : rows) {
            QCOMPARE(manager->CalculateCRC32(data, 0, quint32(data.size())), crc);
            ServiceTree::write("data", data);
            QCOMPARE(manager->CalculateCRC32(ServiceTree::path("data"), 0L, long(data.size())),
                     crc);
        }
        QCOMPARE(events(), QStringList());
    }

    /// Of "abcdef". What is outside of the buffer is left out; a sum that wraps covers nothing.
    void bufferCrcTakesARange()
    {
        const std::tuple<int, quint32, QByteArray> rows[] = {
            {2, 3u, "cde"}, {0, 6u, "abcdef"},          {5, 1u, "f"},
            {2, 0u, {}},    {2, 0xFFFFFFFEu, {}},       {1, 0xFFFFFFFFu, {}},
            {4, 3u, "ef"},  {0, 0xFFFFFFFFu, "abcdef"}, {6, 1u, {}},
            {-1, 3u, {}},   {int(0x80000000), 3u, {}},
        };
        const QByteArray letters("abcdef");
        for (const auto &[offset, length, covered] : rows) {
            QCOMPARE(manager->CalculateCRC32(letters, offset, length), bitwiseCrc(covered));
            QCOMPARE(manager->CalculateCRC32(QByteArray(), offset, length), 0u);
        }
        QCOMPARE(letters, "abcdef");
        QCOMPARE(events(), QStringList());
    }

    /// Of a file with "abcdef".
    void fileCrcTakesARange()
    {
        const std::tuple<long, long, QByteArray> rows[] = {
            {2, 3, "cde"},
            {0, 6, "abcdef"},
            {0, 7, "abcdef"},
            {4, 0x7FFFFFFF, "ef"},
            {6, 1, {}},
            {100, 1, {}},
            {0, 0, {}},
            {0, -1, {}},
            {2, long(int(0x80000000)), {}},
        };
        ServiceTree::write("letters", "abcdef");
        for (const auto &[offset, length, covered] : rows) {
            QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), offset, length),
                     bitwiseCrc(covered));
        }
        QCOMPARE(events(), QStringList());
    }

    void fileCrcOfAMissingFileIs0()
    {
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("missing"), 0L, 9L), 0u);
        QCOMPARE(events(), transcript(uR"(
            critical |CalculateCRC32 Error: Failed to open file: "No such file or directory"|
        )"_s));
        QVERIFY(!QFile::exists(ServiceTree::path("missing")));
    }

    void fileCrcOfADirectoryIs0()
    {
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("pendingUpdates"), 0L, 9L), 0u);
        const QStringList lines = events();
        QCOMPARE(
            lines.last().left(60),
            u"critical |CalculateCRC32 Error: Failed to open file: \"file to open is a directory\"|"_s
                .left(60));
    }

    void fileCrcOpensAndSeeksBeforeItLooksAtTheLength()
    {
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("missing"), 0L, 0L), 0u);
        QCOMPARE(events().size(), 1);
        ServiceTree::write("letters", "abcdef");
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), -1L, 3L), 0u);
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), -5L, 0L), 0u);
        QCOMPARE(events().filter(u"critical |"_s), transcript(uR"(
            critical |CalculateCRC32 Error: Failed to seek to offset: -1|
            critical |CalculateCRC32 Error: Failed to seek to offset: -5|
        )"_s));
        // Then nothing is read.
        readWatch = {true, {}, -1};
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), 0L, 0L), 0u);
        QCOMPARE(manager->CalculateCRC32(ServiceTree::path("letters"), 0L, -7L), 0u);
        readWatch.active = false;
        QCOMPARE(readWatch.requests, QList<std::size_t>());
    }

    void fileCrcReadsInChunks()
    {
        const std::tuple<long, long, QList<std::size_t>> rows[] = {
            {0, 10000, {4096, 4096, 1808}}, {0, 4096, {4096}}, {0, 4097, {4096, 1}},
            {5000, 5000, {4096, 904}},      {9990, 3, {3}},
        };
        const QByteArray data = someBytes(10000);
        ServiceTree::write("bytes", data);
        for (const auto &[offset, length, requests] : rows) {
            readWatch = {true, {}, -1};
            const quint32 crc = manager->CalculateCRC32(ServiceTree::path("bytes"), offset, length);
            readWatch.active = false;
            QCOMPARE(readWatch.requests, requests);
            QCOMPARE(crc, bitwiseCrc(data.mid(offset, length)));
        }
    }

    void fileCrcStopsAtAReadError()
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

    void fileCrcAgreesWithTheBufferCrc()
    {
        for (const int size : {0, 1, 4095, 4096, 4097, 8192, 10000, 1000000}) {
            const QByteArray data = someBytes(size);
            ServiceTree::write("bytes", data);
            const quint32 crc = manager->CalculateCRC32(ServiceTree::path("bytes"), 0L, long(size));
            QCOMPARE(crc, manager->CalculateCRC32(data, 0, quint32(size)));
            QCOMPARE(crc, bitwiseCrc(data));
        }
    }

    void fileCrcClosesTheFile()
    {
        ServiceTree::write("letters", "abcdef");
        manager->CalculateCRC32(ServiceTree::path("letters"), 0L, 6L);
        manager->CalculateCRC32(ServiceTree::path("letters"), -1L, 6L);
        QCOMPARE(ServiceTree::openFiles(), QStringList());
    }

    // ---- Configuration

    void configurationIsOnTheDiskBeforeItGetsItsName()
    {
        ServiceTree::write("application/backup/main/systemConfig.json", "old");
        ServiceTree::write("application/main/systemConfig.json", "old");
        fsyncCalls = Logged;
        install(someBytes(100000));
        const QString file =
            u"fsync /media/service/korvane/application/%1main/systemConfig.json.new: "
            "100000 bytes, beside systemConfig.json.new"_s;
        QCOMPARE(events(Outside).filter(u"fsync"_s),
                 (QStringList{file.arg(u"backup/"_s), file.arg(QString())}));
        QCOMPARE(ServiceTree::list("application/backup/main"), QStringList{u"systemConfig.json"_s});
        QCOMPARE(ServiceTree::list("application/main"), QStringList{u"systemConfig.json"_s});
    }

    void configurationThatDoesNotReachTheDiskIsNotCopied()
    {
        fsyncCalls = Failing;
        install();
        QCOMPARE(events(Outside), transcript(uR"(
            sync
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
            sync
        )"_s));
        QCOMPARE(ServiceTree::list("application/backup/main"), QStringList());
        QCOMPARE(ServiceTree::list("application/main"), QStringList());
    }

    void configurationThatDoesNotFitIsNotCopied()
    {
        const ServiceTree::SmallFileSystem small("application/backup/main", 8192);
        install(someBytes(20000));
        QCOMPARE(events(Outside), transcript(uR"(
            sync
            critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
            info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
            sync
        )"_s));
        QCOMPARE(ServiceTree::list("application/backup/main"), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_filestore)
#include "tst_filestore.moc"
