#include "receivertest.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

/// Multipacket transfer: what a transcript cannot show.
class tst_p6 : public ReceiverTest
{
    Q_OBJECT

private:
    /// A generic file of the nine digits, "123456789", up to its end.
    static inline const QString digits =
        u"1B1A0000#020809000000 1B1A1000#0208000001000000 1B1A2000#0201000000 "
        "1B1AF000#3132333435363738 1B1AF010#39 1B1A3000#2639F4CB"_s;

    /// Begins a record of \a frames frames whose bytes are all \a byte.
    void beginRecord(const QString &frames, char byte)
    {
        receive(u"1B1A2000#"_s + frames + u"01000000"_s);
        session().blockBuffer.fill(byte);
        events();
    }

private slots:
    void transferInfoReportsTheReceiverParameters()
    {
        const std::pair<QList<quint32>, QString> rows[] = {
            {{0, 0, 0, 0, 0}, u"0800000000000000"_s},
            {{0, 0, 0, 0, 1}, u"0A00000000000000"_s},
            {{0, 0, 0, 0, 2}, u"0C00000000000000"_s}, // the flag's byte is sent whole
            {{0, 0, 0, 256, 0}, u"0900000000000000"_s},
            {{0, 0, 0, 511, 1}, u"0BFF000000000000"_s},
            {{0, 0, 0, 512, 0}, u"0800000000000000"_s},
            {{0xAABB1234, 0xCCDD5678, 0xEEFF9ABC, 0, 0}, u"080034127856BC9A"_s},
        };
        for (const auto &[parameters, payload] : rows) {
            session().infoParam1 = parameters[0];
            session().infoParam2 = parameters[1];
            session().infoParam3 = parameters[2];
            session().infoFrameLimit = parameters[3];
            session().infoFlag = quint8(parameters[4]);
            play(u"receive 1B1A0000#\n sent 1B58001D#"_s + payload);
        }
    }

    void initTransferClosesTheFileOfAnUnfinishedTransfer()
    {
        receive(u"1B1A1000#0208000001000000"_s);
        session().outputFile.write("held back");
        events();
        play(uR"(
            receive 1B1A1000#0308000001000000
            warning |QFile::setFileName: File (/media/service/korvane/pendingUpdates/file.log) already open|
            info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/package.tar"|
            sent 1B581000#0000000000000000
            file pendingUpdates/file.log "held back"
            file pendingUpdates/package.tar ""
        )"_s);
    }

    void recordStartMayAnnounce255Frames()
    {
        play(Handlers, uR"(
            receive 1B1A2000#FF04030201
            debug |processP6RecordStartCommand: |
            debug |Number of Frames to follow: 255 Current Block Number: 16909060|
            display "Receiving Configuration File" on "Empty String" off inf on
            state framesToFollow 255, blockDataLength 2040, currentBlockNumber 16909060
        )"_s);
        QCOMPARE(session().blockBuffer, QByteArray(2040, '\0'));
    }

    /// There is no frame 64: its number would read as 0 again.
    void sixtyFourFramesMakeARecord()
    {
        receive(u"1B1A1000#0208000001000000 1B1A2000#4001000000"_s);
        for (quint32 number = 0; number < 64; ++number)
            receive(u"%1#6161616161616161"_s.arg(0x1B1AF000 + 16 * number, 8, 16));
        QCOMPARE(session().blockBuffer, QByteArray(512, 'a'));
        events();
        play(uR"(
            receive 1B1AF000#6262626262626262
            changed nothing
            receive 1B1A3000#517051F9
            info |Successfully appended 512 bytes to file.|
            sent 1B583000#00
        )"_s);
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), QByteArray(512, 'a'));
    }

    void recordEndFlushesBetweenItsLogLineAndItsAnswer()
    {
        receive(u"1B1A1000#0208000001000000 1B1A2000#0101000000 1B1AF000#4142434445464748"_s);
        QByteArray onDisk;
        EventLog::watcher = [&onDisk](const QString &line) {
            if (line.startsWith("info |Successfully appended"_L1) || line.startsWith("sent"_L1))
                onDisk += '<' + ServiceTree::read("pendingUpdates/file.log") + '>';
        };
        receive(u"1B1A3000#1CB6DC68"_s);
        QCOMPARE(onDisk, "<><ABCDEFGH>");
    }

    /// Expected is the size of the buffer, not that of the record.
    void recordEndReportsAWriteErrorInTheLogOnly()
    {
        ServiceTree::write("pendingUpdates/file.log", "kept");
        session().outputFile.setFileName(ServiceTree::path("pendingUpdates/file.log"));
        QVERIFY(session().outputFile.open(QIODevice::ReadOnly));
        play(uR"(
            given 1B1A2000#0201000000 1B1AF000#4142434445464748 1B1AF010#
            receive 1B1A3000#1CB6DC68
            warning |QIODevice::write (QFile, "/media/service/korvane/pendingUpdates/file.log"): ReadOnly device|
            warning |File write mismatch! Expected: 16 Written: -1|
            sent 1B583000#00
            changed nothing
            file pendingUpdates/file.log "kept"
        )"_s);
    }

    /// The file object holds back 16384 bytes, 32 records; only then writing fails. Were it
    /// flushed then, the file would grow as soon as there is room.
    void recordEndAfterAFailedWriteDoesNotFlush()
    {
        const ServiceTree::SmallFileSystem disk("pendingUpdates", 8192);
        receive(u"1B1A1000#0208000028000000"_s);
        ServiceTree::write("pendingUpdates/filler", QByteArray(8192, 'f'));
        beginRecord(u"40"_s, 'a');
        for (int record = 0; record < 32; ++record) {
            play(uR"(
                receive 1B1A3000#517051F9
                info |Successfully appended 512 bytes to file.|
                sent 1B583000#00
            )"_s);
        }
        QByteArray onDisk;
        EventLog::watcher = [&onDisk](const QString &line) {
            if (line.startsWith("warning"_L1))
                QVERIFY(QFile::remove(ServiceTree::path("pendingUpdates/filler")));
            onDisk = ServiceTree::read("pendingUpdates/file.log");
        };
        play(uR"(
            receive 1B1A3000#517051F9
            warning |File write mismatch! Expected: 512 Written: -1|
            sent 1B583000#00
        )"_s);
        QCOMPARE(onDisk, "");
        // With room the next record takes the held back ones along.
        EventLog::watcher = nullptr;
        receive(u"1B1A3000#517051F9"_s);
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log").size(), 8192);
    }

    /// Without its buffer the file object meets the end of the disk within a record.
    void recordEndReportsAShortWriteInTheLogOnly()
    {
        const ServiceTree::SmallFileSystem disk("pendingUpdates", 4096);
        session().outputFile.setFileName(ServiceTree::path("pendingUpdates/file.log"));
        QVERIFY(session().outputFile.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QCOMPARE(session().outputFile.write(QByteArray(4000, 'b')), 4000);
        beginRecord(u"40"_s, 'a');
        play(uR"(
            receive 1B1A3000#517051F9
            warning |File write mismatch! Expected: 512 Written: 96|
            sent 1B583000#00
        )"_s);
    }

    /// The CRC sent is that of 5120 times "a", the one computed that of the 4096 with room.
    void recordEndOnASmallDiskIsFoundByTheFileCrc()
    {
        const ServiceTree::SmallFileSystem disk("pendingUpdates", 4096);
        receive(u"1B1A0000#020800140000 1B1A1000#020800000A000000"_s);
        beginRecord(u"40"_s, 'a');
        for (int record = 0; record < 10; ++record)
            receive(u"1B1A3000#517051F9"_s);
        events();
        play(uR"(
            receive 1B1A4000#5886FA5E
            display "Received Generic File" on "Checking" on 1 on
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            info |processP6TransferCompleteCommand: Received CRC:  1593476696 Calculated CRC:  2627329139|
            critical |processP6TransferCompleteCommand: CRCs dont match!|
            sent 1B5840BA#73DC999C
            display "Received Generic File" on "Done" on 1 on
        )"_s);
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), QByteArray(4096, 'a'));
    }

    void recordEndOfAnImpossibleLengthStaysInTheBuffer()
    {
        for (const auto &[length, crc, written] :
             {std::tuple(-8, u"00000000"_s, ""), std::tuple(int(0x80000000), u"00000000"_s, ""),
              std::tuple(9, u"1CB6DC68"_s, "ABCDEFGH"),
              std::tuple(0x7FFFFFFF, u"1CB6DC68"_s, "ABCDEFGH")}) {
            receive(u"1B1A1000#0208000001000000"_s);
            session().blockBuffer = "ABCDEFGH";
            session().blockBuffer.squeeze();
            session().blockDataLength = length;
            receive(u"1B1A3000#"_s + crc);
            QVERIFY(events().contains(u"sent 1B583000#00"_s));
            QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), written);
        }
    }

    void moreShortFramesThanTheRecordHasAreSafe()
    {
        receive(u"1B1A1000#0208000001000000 1B1A2000#0201000000"_s);
        for (quint32 number = 0; number < 64; ++number)
            receive(u"%1#"_s.arg(0x1B1AF000 + 16 * number, 8, 16));
        events();
        play(uR"(
            state blockDataLength 0
            receive 1B1A3000#00000000
            info |Successfully appended 0 bytes to file.|
            sent 1B583000#00
        )"_s);
    }

    /// Buffer overruns are the sanitizers' to find; here the bounds of the record are held.
    void anyFrameInAnyOrderIsSafe()
    {
        quint32 state = 12345;
        const auto random = [&state](quint32 below) {
            state = state * 1664525u + 1013904223u;
            return (state >> 8) % below;
        };
        for (int turn = 0; turn < 20000; ++turn) {
            const quint32 types[] = {2, 3, 15, 15, 15, 15, 15};
            const quint32 type = types[random(7)];
            const quint32 number = random(4) ? session().expectedFrameNumber & 63 : random(64);
            QByteArray payload;
            for (quint32 size = type == 2 && random(4) ? 5 : random(13); size > 0; --size)
                payload.append(char(random(4) ? random(256) : 0));
            device->deliver(
                {QCanBusFrame(0x1B1A0000 | type << 12 | (type == 15 ? number << 4 : 0), payload)});
            QVERIFY(session().blockBuffer.size() <= 2040);
            QVERIFY(session().blockDataLength <= session().blockBuffer.size());
            QVERIFY(session().blockDataLength >= 0);
            events();
        }
    }

    void completeFileIsOnTheDiskBeforeItsAnswer()
    {
        receive(u"1B1A0000#020809000000 1B1A1000#0208000001000000"_s);
        session().outputFile.write("123456789");
        events();
        fsyncCalls = Logged;
        play(uR"(
            receive 1B1A4000#2639F4CB
            display "Received Generic File" on "Checking" on 1 on
            fsync /media/service/korvane/pendingUpdates/file.log: 9 bytes, beside file.log
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
            info |processP6TransferCompleteCommand: CRCs match|
            info |processP6TransferCompleteCommand: Unkown file type received|
            sent 1B584000#2639F4CB
            display "Received Generic File" on "Done" on 1 on
        )"_s);
    }

    /// Of a longer file the announced size is checked, of a shorter one what is there. Where a
    /// long has 32 bits, the largest size is a negative one, of which nothing is read.
    void completeChecksTheAnnouncedSize()
    {
        ServiceTree::write("pendingUpdates/file.log", "123456789 and more");
        session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
        receive(u"1B1A0000#020809000000 1B1A4000#2639F4CB"_s);
        QVERIFY(events().contains(u"sent 1B584000#2639F4CB"_s));
        ServiceTree::write("pendingUpdates/file.log", "123456789");
        receive(u"1B1A0000#0208FFFFFFFF 1B1A4000#2639F4CB"_s);
        QVERIFY(events().contains(sizeof(long) > 4 ? u"sent 1B584000#2639F4CB"_s
                                                   : u"sent 1B5840BA#00000000"_s));
        receive(u"1B1A0000#020800000000 1B1A4000#00000000"_s);
        QVERIFY(events().contains(u"sent 1B584000#00000000"_s));
    }

    /// "Checking" before any file work, and "Done" while the transfer is still marked.
    void completeShowsWhatItDoesInOrder()
    {
        receive(digits);
        QStringList seen;
        connect(manager.get(), &CanBusManager::statusUpdated, this,
                [&](const QString &, bool, const QString &text2) {
                    seen += text2;
                    seen += state().filter(QRegularExpression(u"^(outputFileMode|transfer)"_s));
                });
        EventLog::watcher = [&](const QString &line) {
            if (line.contains("Output file closed cleanly"_L1))
                seen += ServiceTree::openFiles().isEmpty() ? u"closed"_s : u"open"_s;
        };
        receive(u"1B1A4000#2639F4CB"_s);
        QCOMPARE(seen, EventLog::transcript(uR"(
            Checking
            outputFileMode 2
            transferInProgress true
            closed
            Done
            outputFileMode 0
            transferInProgress true
        )"_s));
        QVERIFY(!session().transferInProgress);
    }

    /// It may have changed since "Checking".
    void completeLooksUpTheTypeAgainForDone()
    {
        receive(digits);
        events();
        FakeCanDevice::behaviour.onWrite = [this](const QCanBusFrame &) { session().fileType = 3; };
        play(uR"(
            receive 1B1A4000#2639F4CB
            display "Received Generic File" on "Checking" on 1 on
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
            info |processP6TransferCompleteCommand: CRCs match|
            info |processP6TransferCompleteCommand: Unkown file type received|
            sent 1B584000#2639F4CB
            display "Received Package File" on "Done" on 1 on
        )"_s);
    }
};

QTEST_GUILESS_MAIN(tst_p6)
#include "tst_p6.moc"
