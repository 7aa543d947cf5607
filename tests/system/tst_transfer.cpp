#include "busclient.h"
#include "receiverprocess.h"
#include "servicetree.h"
#include "toolframes.h"

#include <QTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QByteArray infoAccepted = "1B580000#0A3FE803E80360EA";
const QByteArray initiateAccepted = "1B581000#0000000000000000";
const QByteArray recordAccepted = "1B583000#00";

constexpr char factory[] = "application/factory/main/systemConfig.json";
constexpr char backup[] = "application/backup/main/systemConfig.json";
constexpr char live[] = "application/main/systemConfig.json";

/// Bytes in which neighbouring records and frames differ.
QByteArray contentOf(int size)
{
    QByteArray result(size, '\0');
    for (int i = 0; i < size; ++i)
        result[i] = char(i * 7 + (i >> 8) * 13 + 3);
    return result;
}

} // namespace

/// Downloads to the receiver: the frames that it answers and the files that it leaves.
class TestTransfer : public QObject
{
    Q_OBJECT

private:
    /// Sends a whole file and returns the answer to its end.
    QByteArray sendFile(quint8 fileType, const QByteArray &content)
    {
        const auto records = quint32((content.size() + 511) / 512);
        if (m_tool->request({ToolFrames::transferInfo(fileType, quint32(content.size()))})
                != infoAccepted
            || m_tool->request({ToolFrames::initiateTransfer(fileType, records)})
                != initiateAccepted)
            return "not accepted";
        for (quint32 record = 0; record < records; ++record) {
            const QByteArray data = content.mid(qsizetype(record) * 512, 512);
            if (m_tool->request(ToolFrames::record(record + 1, data)) != recordAccepted)
                return "record " + QByteArray::number(record + 1) + " not accepted";
        }
        return m_tool->request({ToolFrames::transferComplete(ToolFrames::crc32(content))});
    }

    QString clockLog() const { return m_receiver->directory() + u"/clock"_s; }

    std::unique_ptr<BusClient> m_tool;
    std::unique_ptr<ReceiverProcess> m_receiver;

private slots:
    void initTestCase() { QCOMPARE(ToolFrames::crc32("123456789"), 0xCBF43926u); }

    void init()
    {
        ServiceTree::reset();
        m_tool = std::make_unique<BusClient>();
        QVERIFY(m_tool->isConnected());
        m_receiver = std::make_unique<ReceiverProcess>();
        m_receiver->setVariable(u"QT_LOGGING_RULES"_s, u"*.debug=false"_s);
        m_receiver->setVariable(u"DOCKHAND_STAND_IN_LOG"_s, clockLog());
        QVERIFY(m_receiver->start());
    }

    void cleanup()
    {
        if (m_receiver)
            QVERIFY(m_receiver->isRunning());
        m_receiver.reset();
    }

    void configurationOfOneRecord()
    {
        QCOMPARE(m_tool->request("0F1A02C0#A55A"), "0F584000#5AA5");
        QCOMPARE(m_tool->request("1B1A0000#00080D000000"), "1B580000#0A3FE803E80360EA");
        QCOMPARE(m_tool->request("1B1A1000#0008000001000000"), "1B581000#0000000000000000");
        QVERIFY(m_tool->send("1B1A2000#0201000000"));
        QVERIFY(m_tool->send("1B1AF000#7B22766F6C756D65"));
        QVERIFY(m_tool->send("1B1AF010#223A31317D"));
        QCOMPARE(m_tool->request("1B1A3000#32B85095"), "1B583000#00");
        QCOMPARE(m_tool->request("1B1A4000#32B85095"), "1B584000#32B85095");
        QCOMPARE(m_tool->request("0F1A02C4#"), "0F584000#");
        QVERIFY(m_tool->isSilent());

        QCOMPARE(ServiceTree::files(), (QByteArrayList{backup, factory, live}));
        QCOMPARE(ServiceTree::read(factory), "{\"volume\":11}");
        QCOMPARE(ServiceTree::read(backup), "{\"volume\":11}");
        QCOMPARE(ServiceTree::read(live), "{\"volume\":11}");
    }

    void configurationOfAnySize_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("0 bytes") << 0 << QByteArray("1B584000#00000000");
        QTest::newRow("1 byte") << 1 << QByteArray("1B584000#37BE0B4B");
        QTest::newRow("511 bytes") << 511 << QByteArray("1B584000#C9477754");
        QTest::newRow("512 bytes") << 512 << QByteArray("1B584000#7A5A3249");
        QTest::newRow("513 bytes") << 513 << QByteArray("1B584000#2C299D01");
        QTest::newRow("1 MiB") << 1048576 << QByteArray("1B584000#2289DB80");
    }

    void configurationOfAnySize()
    {
        QFETCH(int, size);
        const QByteArray content = contentOf(size);
        QTEST(sendFile(0, content), "answer");
        QCOMPARE(ServiceTree::files(), (QByteArrayList{backup, factory, live}));
        QVERIFY(ServiceTree::read(factory) == content);
        QVERIFY(ServiceTree::read(backup) == content);
        QVERIFY(ServiceTree::read(live) == content);
        QVERIFY(m_tool->isSilent());
    }

    void replacesAnEarlierConfiguration()
    {
        for (const char *name : {factory, backup, live})
            ServiceTree::write(name, "a much longer configuration than the one that comes");
        ServiceTree::write("application/main/stats.db", "removed");
        ServiceTree::write("application/main/eventlog.db", "removed");
        ServiceTree::write("application/main/settingsChangeLog.db", "removed");
        ServiceTree::write("application/main/nvParameters.conf*", "removed");
        ServiceTree::write("application/main/nvParameters.conf.1", "kept");
        ServiceTree::write("application/main/other.db", "kept");
        QCOMPARE(sendFile(0, "{\"volume\":11}"), "1B584000#32B85095");
        QCOMPARE(ServiceTree::files(),
                 (QByteArrayList{backup, factory, "application/main/nvParameters.conf.1",
                                 "application/main/other.db", live}));
        for (const char *name : {factory, backup, live})
            QCOMPARE(ServiceTree::read(name), "{\"volume\":11}");
    }

    void fileOfEachType_data()
    {
        QTest::addColumn<quint8>("fileType");
        QTest::addColumn<QByteArray>("file");
        QTest::newRow("menu") << quint8(1) << QByteArray("application/factory/menu/menu.tar");
        QTest::newRow("generic") << quint8(2) << QByteArray("pendingUpdates/file.log");
        QTest::newRow("package") << quint8(3) << QByteArray("pendingUpdates/package.tar");
    }

    /// Types other than the configuration are left where they land.
    void fileOfEachType()
    {
        QFETCH(quint8, fileType);
        QFETCH(QByteArray, file);
        QCOMPARE(sendFile(fileType, contentOf(1000)), "1B584000#6898F8BA");
        QCOMPARE(ServiceTree::files(), QByteArrayList{file});
        QVERIFY(ServiceTree::read(file) == contentOf(1000));
        QVERIFY(m_receiver->log().contains(
            "info|default|processP6TransferCompleteCommand: Unkown file type received"));
    }

    void unknownTypeLandsInTheWorkingDirectory()
    {
        QCOMPARE(sendFile(4, contentOf(1000)), "1B584000#6898F8BA");
        QCOMPARE(ServiceTree::files(), QByteArrayList());
        QCOMPARE(QDir(m_receiver->directory()).entryList(QDir::Files), QStringList{u"Unknown"_s});
        QFile file(m_receiver->directory() + u"/Unknown"_s);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll() == contentOf(1000));
    }

    void secondNodeIsServedTheSame()
    {
        QCOMPARE(m_tool->request("0F0E02C0#A55A"), "0F584000#5AA5");
        QCOMPARE(m_tool->request("1B0E0000#000801000000"), infoAccepted);
        QCOMPARE(m_tool->request("1B0E1000#0008000001000000"), initiateAccepted);
        QCOMPARE(m_tool->request("1B0E2000#0101000000 1B0EF000#03 1B0E3000#37BE0B4B"),
                 recordAccepted);
        QCOMPARE(m_tool->request("1B0E4000#37BE0B4B"), "1B584000#37BE0B4B");
        QCOMPARE(ServiceTree::read(live), "\x03");
        // Other nodes get no answer.
        QVERIFY(m_tool->send("0F1902C0#A55A 0EFA02C0#A55A 0F1A0280#A55A 1B190000#000801000000"));
        QVERIFY(m_tool->isSilent());
    }

    void repeatsARecordThatArrivedBroken()
    {
        QCOMPARE(m_tool->request("1B1A0000#020801000000"), infoAccepted);
        QCOMPARE(m_tool->request("1B1A1000#0208000001000000"), initiateAccepted);
        QCOMPARE(m_tool->request("1B1A2000#0101000000 1B1AF000#02 1B1A3000#37BE0B4B"),
                 "1B5830BA#01");
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
        QCOMPARE(m_tool->request("1B1A2000#0101000000 1B1AF000#03 1B1A3000#37BE0B4B"),
                 "1B583000#00");
        QCOMPARE(m_tool->request("1B1A4000#37BE0B4B"), "1B584000#37BE0B4B");
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "\x03");
    }

    void installsNothingIfTheFileIsBroken()
    {
        ServiceTree::write(live, "live");
        ServiceTree::write("application/main/stats.db", "stats");
        QCOMPARE(m_tool->request("1B1A0000#000801000000"), infoAccepted);
        QCOMPARE(m_tool->request("1B1A1000#0008000001000000"), initiateAccepted);
        QCOMPARE(m_tool->request("1B1A2000#0101000000 1B1AF000#03 1B1A3000#37BE0B4B"),
                 "1B583000#00");
        QCOMPARE(m_tool->request("1B1A4000#37BE0B4C"), "1B5840BA#37BE0B4B");
        QVERIFY(m_receiver->waitForLog(
            "critical|default|processP6TransferCompleteCommand: CRCs dont match!"));
        QCOMPARE(ServiceTree::read(live), "live");
        QCOMPARE(ServiceTree::read(factory), "\x03");
        QCOMPARE(ServiceTree::files(),
                 (QByteArrayList{factory, "application/main/stats.db", live}));
    }

    void leavesItToTheLogThatAFileCannotBeOpened()
    {
        const QDir tree(ServiceTree::path(""));
        QVERIFY(QDir().rename(tree.filePath(u"pendingUpdates"_s), tree.filePath(u"away"_s)));
        const QByteArray answer = m_tool->request("1B1A1000#0208000001000000");
        const QByteArray record = m_tool->request(
            "1B1A2000#0101000000 1B1AF000#03 1B1A3000#37BE0B4B");
        QVERIFY(QDir().rename(tree.filePath(u"away"_s), tree.filePath(u"pendingUpdates"_s)));
        QCOMPARE(answer, initiateAccepted);
        QCOMPARE(record, "1B583000#00");
        QVERIFY(
            m_receiver->log().contains("critical|default|Failed to open output file for writing: "
                                       "\"No such file or directory\""));
        QVERIFY(m_receiver->log().contains(
            "critical|default|Cannot write block data; output file is not open!"));
    }

    void writesEachRecordBeforeItAnswers()
    {
        QCOMPARE(m_tool->request("1B1A1000#0208000003000000"), initiateAccepted);
        const QByteArray content = contentOf(1024);
        QCOMPARE(m_tool->request(ToolFrames::record(1, content.left(512))), "1B583000#00");
        QVERIFY(ServiceTree::read("pendingUpdates/file.log") == content.left(512));
        QCOMPARE(m_tool->request(ToolFrames::record(2, content.mid(512))), "1B583000#00");
        QVERIFY(ServiceTree::read("pendingUpdates/file.log") == content);
    }

    void setsTheClock()
    {
        QCOMPARE(m_tool->request("0F1A02C1#1803050E0709"), "0F584000#1803050E0709");
        QByteArrayList lines;
        const auto bothRan = [&] {
            QFile file(clockLog());
            if (file.open(QIODevice::ReadOnly))
                lines = file.readAll().split('\n');
            return lines.size() == 3;
        };
        QTRY_VERIFY(bothRan());
        std::sort(lines.begin(), lines.end()); // the two run side by side
        QCOMPARE(lines,
                 (QByteArrayList{"", "hwclock\t--systohc",
                                 "timedatectl\tset-time\t2024-03-05 14:07:09 UTC"}));
    }

    void refusesADateThatThereIsNot()
    {
        QCOMPARE(m_tool->request("0F1A02C1#17021D0E0709"), "0F5840BA#17021D0E0709");
        QCOMPARE(m_tool->request("0F1A02C1#1803050E07"), "0F5840BA#1803050E07");
        QVERIFY(m_tool->isSilent());
        QVERIFY(!QFile::exists(clockLog()));
    }

    void storesTheSerialNumber()
    {
        QCOMPARE(m_tool->request("0F1A02C2#054142434445"), "0F584000#");
        QCOMPARE(ServiceTree::read("serialNumber"), "ABCDE\n");
        QCOMPARE(m_tool->request("0F1A02C2#0C534E3132333435"), "0F584000#");
        QCOMPARE(ServiceTree::read("serialNumber"), "ABCDE\n");
        QCOMPARE(m_tool->request("0F1A02C3#3637383930"), "0F584000#");
        QCOMPARE(ServiceTree::read("serialNumber"), "SN1234567890\n");
        QCOMPARE(ServiceTree::files(), QByteArrayList{"serialNumber"});
    }

    void ignoresFramesInBaseFormat()
    {
        QVERIFY(m_tool->send("2C0#A55A 0F1A02C0#R"));
        QVERIFY(m_tool->isSilent());
        QCOMPARE(m_receiver->log().size(), 3); // of the start
    }
};

QTEST_GUILESS_MAIN(TestTransfer)
#include "tst_transfer.moc"
