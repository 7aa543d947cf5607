#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using EventLog::transcript;

/// Multipacket transfer: the records of a file.
class tst_p6_records : public ReceiverTest
{
    Q_OBJECT

private slots:
    void recordStartPreparesTheRecord();
    void recordStartReplacesThePreviousRecord();
    void recordStartOfAnotherSizeChangesNothing_data();
    void recordStartOfAnotherSizeChangesNothing();
    void recordStartMayAnnounce255Frames();
    void recordStartShowsTheTypeOfTheFile_data();
    void recordStartShowsTheTypeOfTheFile();
    void recordStartShowsTheProgress_data();
    void recordStartShowsTheProgress();

    void dataFramesFillTheRecord();
    void dataFrameLogsNumberAndSize_data();
    void dataFrameLogsNumberAndSize();
    void shortFrameShortensTheRecord_data();
    void shortFrameShortensTheRecord();
    void shortFrameInTheMiddleLeavesZeros();
    void repeatedFrameIsDropped();
    void frameThatSkipsAheadIsDropped();
    void framesAfterALostOneAreDropped();
    void errorFrameCountsAsFrame0();
    void lowIdentifierBitsAreIgnored();
    void sixtyFourFramesMakeARecord();
    void frameOutsideOfTheRecordIsDropped_data();
    void frameOutsideOfTheRecordIsDropped();
    void frameBeforeAnyRecordIsDropped();
    void frameOfMoreThanEightBytesIsDropped();

    void recordEndAppendsTheRecord();
    void recordEndAppendsAShortRecord();
    void recordEndAppendsInOrderOfArrival();
    void recordEndWithWrongCrcWritesNothing();
    void recordEndWithoutACrcCountsAsCrc0_data();
    void recordEndWithoutACrcCountsAsCrc0();
    void recordEndOfNoFramesMatchesCrc0();
    void recordEndReportsAClosedFileInTheLogOnly();
    void recordEndKeepsTheRecord();
    void recordEndFlushesBeforeItAnswers();
    void recordEndReportsAWriteErrorInTheLogOnly();
    void recordEndOnAFullDiskFailsWhenTheBufferIsFull();
    void recordEndReportsAShortWriteInTheLogOnly();
    void recordEndOnASmallDiskIsFoundByTheFileCrc();
    void recordEndOfAnImpossibleLengthStaysInTheBuffer_data();
    void recordEndOfAnImpossibleLengthStaysInTheBuffer();
    void recordCanBeSentAgain();
    void moreShortFramesThanTheRecordHasAreSafe();

    void wholeTransferOverTheDevice();
    void messageChangesOnlyItsFields_data();
    void messageChangesOnlyItsFields();
    void anyFrameInAnyOrderIsSafe();

private:
    void openGenericFile();
};

/// As an Initiate Transfer with 10 records does.
void tst_p6_records::openGenericFile()
{
    call("processP6InitTransferCommand", frame(0x1B1A1000, "020800000a000000"));
    QVERIFY(session().outputFile.isOpen());
    events();
}

// ---- Record Start

void tst_p6_records::recordStartPreparesTheRecord()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0305000000"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6RecordStartCommand: |
        debug |Number of Frames to follow: 3 Current Block Number: 5|
        display "Receiving Generic File" on "Empty String" off 0.5 on
    )"));
    QCOMPARE(session().transferInProgress, true);
    QCOMPARE(session().framesToFollow, 3u);
    QCOMPARE(session().blockDataLength, 24);
    QCOMPARE(session().blockBuffer, QByteArray(24, '\0'));
    QCOMPARE(session().expectedFrameNumber, 0u);
    QCOMPARE(session().currentBlockNumber, 5u);
}

void tst_p6_records::recordStartReplacesThePreviousRecord()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "0102030405060708"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, "0102"));
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0202000000"));
    QCOMPARE(session().blockBuffer, QByteArray(16, '\0'));
    QCOMPARE(session().blockDataLength, 16);
    QCOMPARE(session().expectedFrameNumber, 0u);
    QCOMPARE(session().currentBlockNumber, 2u);
}

void tst_p6_records::recordStartOfAnotherSizeChangesNothing_data()
{
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("four bytes") << QByteArray("02010000");
    QTest::newRow("six bytes") << QByteArray("020100000000");
    QTest::newRow("eight bytes") << QByteArray("0201000000000000");
}

void tst_p6_records::recordStartOfAnotherSizeChangesNothing()
{
    QFETCH(QByteArray, payload);
    session().numberOfBlocks = 8;
    session().currentBlockNumber = 2;
    session().framesToFollow = 3;
    session().blockDataLength = 4;
    session().blockBuffer = "abcd";
    session().expectedFrameNumber = 5;
    session().fileType = 3;
    call("processP6RecordStartCommand", frame(0x1B1A2000, payload.constData()));
    QCOMPARE(events(), transcript(R"(
        debug |processP6RecordStartCommand: |
        display "Receiving Package File" on "Empty String" off 0.25 on
    )"));
    QCOMPARE(session().transferInProgress, false);
    QCOMPARE(session().currentBlockNumber, 2u);
    QCOMPARE(session().framesToFollow, 3u);
    QCOMPARE(session().blockDataLength, 4);
    QCOMPARE(session().blockBuffer, "abcd");
    QCOMPARE(session().expectedFrameNumber, 5u);
}

void tst_p6_records::recordStartMayAnnounce255Frames()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "ff04030201"));
    QCOMPARE(session().framesToFollow, 255u);
    QCOMPARE(session().blockDataLength, 2040);
    QCOMPARE(session().blockBuffer, QByteArray(2040, '\0'));
    QCOMPARE(session().currentBlockNumber, 16909060u);
    QCOMPARE(events().at(1),
             u"debug |Number of Frames to follow: 255 Current Block Number: 16909060|"_s);
}

void tst_p6_records::recordStartShowsTheTypeOfTheFile_data()
{
    QTest::addColumn<quint32>("fileType");
    QTest::addColumn<QString>("text");

    QTest::newRow("configuration") << 0u << u"Receiving Configuration File"_s;
    QTest::newRow("menu") << 1u << u"Receiving Menu File"_s;
    QTest::newRow("generic") << 2u << u"Receiving Generic File"_s;
    QTest::newRow("package") << 3u << u"Receiving Package File"_s;
    QTest::newRow("unknown") << 4u << u"Receiving Unknown File"_s;
}

void tst_p6_records::recordStartShowsTheTypeOfTheFile()
{
    QFETCH(quint32, fileType);
    QFETCH(QString, text);
    session().fileType = fileType;
    session().numberOfBlocks = 1;
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    QCOMPARE(events().constLast(), u"display \"%1\" on \"Empty String\" off 1 on"_s.arg(text));
}

void tst_p6_records::recordStartShowsTheProgress_data()
{
    QTest::addColumn<quint32>("records");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("progress");

    QTest::newRow("first of 3") << 3u << QByteArray("0101000000") << u"0.33333333333333331"_s;
    QTest::newRow("record 0") << 3u << QByteArray("0100000000") << u"0"_s;
    QTest::newRow("last") << 3u << QByteArray("0103000000") << u"1"_s;
    QTest::newRow("beyond the last") << 4u << QByteArray("0105000000") << u"1.25"_s;
    QTest::newRow("largest numbers") << 4294967295u << QByteArray("01ffffffff") << u"1"_s;
    QTest::newRow("more than a signed number holds")
        << 2u << QByteArray("0100000080") << u"1073741824"_s;
    QTest::newRow("no records") << 0u << QByteArray("0101000000") << u"inf"_s;
    QTest::newRow("record 0 of no records") << 0u << QByteArray("0100000000") << u"nan"_s;
}

void tst_p6_records::recordStartShowsTheProgress()
{
    QFETCH(quint32, records);
    QFETCH(QByteArray, payload);
    QFETCH(QString, progress);
    session().numberOfBlocks = records;
    call("processP6RecordStartCommand", frame(0x1B1A2000, payload.constData()));
    QCOMPARE(
        events().constLast(),
        u"display \"Receiving Configuration File\" on \"Empty String\" off %1 on"_s.arg(progress));
}

// ---- Data Frame

void tst_p6_records::dataFramesFillTheRecord()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0301000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "0001020304050607"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, "08090a0b0c0d0e0f"));
    QCOMPARE(session().expectedFrameNumber, 2u);
    QCOMPARE(session().blockDataLength, 24);
    call("processP6DataFrameCommand", frame(0x1B1AF020, "101112"));
    QCOMPARE(session().expectedFrameNumber, 3u);
    QCOMPARE(session().blockDataLength, 19);
    QCOMPARE(session().blockBuffer,
             QByteArray::fromHex("000102030405060708090a0b0c0d0e0f1011120000000000"));
    QVERIFY(sentFrames().isEmpty());
}

void tst_p6_records::dataFrameLogsNumberAndSize_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("expected");

    QTest::newRow("expected")
        << 0x1B1AF000u << QByteArray("0102030405060708")
        << u"debug |processP6DataFrameCommand: Frame Number:  0 Payload Size:  8|"_s;
    QTest::newRow("out of order")
        << 0x1B1AF3F0u << QByteArray("010203")
        << u"debug |processP6DataFrameCommand: Frame Number:  63 Payload Size:  3|"_s;
}

void tst_p6_records::dataFrameLogsNumberAndSize()
{
    QFETCH(quint32, identifier);
    QFETCH(QByteArray, payload);
    QFETCH(QString, expected);
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0301000000"));
    events();
    call("processP6DataFrameCommand", frame(identifier, payload.constData()));
    QCOMPARE(events(), QStringList{expected});
}

void tst_p6_records::shortFrameShortensTheRecord_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("length");

    QTest::newRow("full") << QByteArray("0102030405060708") << 16;
    QTest::newRow("seven bytes") << QByteArray("01020304050607") << 15;
    QTest::newRow("one byte") << QByteArray("01") << 9;
    QTest::newRow("empty") << QByteArray("") << 8;
}

void tst_p6_records::shortFrameShortensTheRecord()
{
    QFETCH(QByteArray, payload);
    QFETCH(int, length);
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "0102030405060708"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, payload.constData()));
    QCOMPARE(session().blockDataLength, length);
    QCOMPARE(session().blockBuffer.size(), 16);
    QCOMPARE(session().expectedFrameNumber, 2u);
}

void tst_p6_records::shortFrameInTheMiddleLeavesZeros()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "616263"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, "6465666768696a6b"));
    QCOMPARE(session().blockDataLength, 11);
    // The CRC is that of "abc", five zeros and "def".
    call("processP6RecordEndCommand", frame(0x1B1A3000, "4ba9a4b9"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), QByteArray("abc\0\0\0\0\0def", 11));
}

void tst_p6_records::repeatedFrameIsDropped()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "0102030405060708"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "090a"));
    QCOMPARE(session().expectedFrameNumber, 1u);
    QCOMPARE(session().blockDataLength, 16);
    QCOMPARE(session().blockBuffer, QByteArray::fromHex("01020304050607080000000000000000"));
}

void tst_p6_records::frameThatSkipsAheadIsDropped()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0301000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF020, "5152535455565758"));
    QCOMPARE(session().expectedFrameNumber, 1u);
    call("processP6DataFrameCommand", frame(0x1B1AF010, "494a4b4c4d4e4f50"));
    QCOMPARE(session().expectedFrameNumber, 2u);
    QCOMPARE(session().blockBuffer, QByteArray("ABCDEFGHIJKLMNOP\0\0\0\0\0\0\0\0", 24));
    events();
    // The CRC is that of all three frames.
    call("processP6RecordEndCommand", frame(0x1B1A3000, "06bba8f9"));
    QCOMPARE(sentFrames(), transcript("sent 1b5830ba ext [01]"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
}

void tst_p6_records::framesAfterALostOneAreDropped()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0401000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF020, "5152535455565758"));
    call("processP6DataFrameCommand", frame(0x1B1AF030, "5152535455565758"));
    QCOMPARE(session().expectedFrameNumber, 1u);
    QCOMPARE(session().blockBuffer, "ABCDEFGH" + QByteArray(24, '\0'));
    QVERIFY(sentFrames().isEmpty());
}

void tst_p6_records::errorFrameCountsAsFrame0()
{
    QCanBusFrame error = errorFrame();
    error.setFrameId(0x1B1AF010);
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    events();
    call("processP6DataFrameCommand", error);
    QCOMPARE(events().mid(0, 1), transcript(R"(
        debug |processP6DataFrameCommand: Frame Number:  0 Payload Size:  0|
    )"));
    QCOMPARE(session().expectedFrameNumber, 1u);
    QCOMPARE(session().blockDataLength, 8);
}

void tst_p6_records::lowIdentifierBitsAreIgnored()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF00F, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AFC1F, "494a4b4c4d4e4f50"));
    QCOMPARE(session().blockBuffer, "ABCDEFGHIJKLMNOP");
}

void tst_p6_records::sixtyFourFramesMakeARecord()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "4001000000"));
    for (quint32 number = 0; number < 64; ++number)
        call("processP6DataFrameCommand", frame(0x1B1AF000 + 16 * number, "6161616161616161"));
    QCOMPARE(session().expectedFrameNumber, 64u);
    QCOMPARE(session().blockBuffer, QByteArray(512, 'a'));
    // There is no frame 64: its number would read as 0 again.
    call("processP6DataFrameCommand", frame(0x1B1AF000, "6262626262626262"));
    QCOMPARE(session().blockBuffer, QByteArray(512, 'a'));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "517051f9"));
    QCOMPARE(sentFrames(), transcript("sent 1b583000 ext [00]"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), QByteArray(512, 'a'));
}

void tst_p6_records::frameOutsideOfTheRecordIsDropped_data()
{
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("full") << QByteArray("0102030405060708");
    QTest::newRow("one byte") << QByteArray("01");
    QTest::newRow("empty") << QByteArray("");
}

void tst_p6_records::frameOutsideOfTheRecordIsDropped()
{
    QFETCH(QByteArray, payload);
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, payload.constData()));
    QCOMPARE(session().blockBuffer, "ABCDEFGH");
    QCOMPARE(session().blockDataLength, 8);
    QCOMPARE(session().expectedFrameNumber, 1u);
}

void tst_p6_records::frameBeforeAnyRecordIsDropped()
{
    call("processP6DataFrameCommand", frame(0x1B1AF000, "0102030405060708"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6DataFrameCommand: Frame Number:  0 Payload Size:  8|
    )"));
    QCOMPARE(session().blockBuffer, QByteArray());
    QCOMPARE(session().blockDataLength, 0);
}

void tst_p6_records::frameOfMoreThanEightBytesIsDropped()
{
    QCanBusFrame longFrame = frame(0x1B1AF000, "4142434445464748494a4b4c");
    QVERIFY(longFrame.hasFlexibleDataRateFormat());
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", longFrame);
    QCOMPARE(session().blockBuffer, QByteArray(16, '\0'));
    QCOMPARE(session().blockDataLength, 16);
    QCOMPARE(session().expectedFrameNumber, 0u);
    // As the last of a record it would reach beyond the buffer.
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", longFrame);
    QCOMPARE(session().blockBuffer, QByteArray(8, '\0'));
}

// ---- Record End

void tst_p6_records::recordEndAppendsTheRecord()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6RecordEndCommand: Caclulated CRC: 1759295004 Received CRC: 1759295004|
        info |Successfully appended 8 bytes to file.|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  0 frameId:  "1b583000"|
        sent 1b583000 ext [00]
        debug |writeFrame: Frame sent with ID: "1b583000"|
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "ABCDEFGH");
    QVERIFY(session().outputFile.isOpen());
}

void tst_p6_records::recordEndAppendsAShortRecord()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0301000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, "494a4b4c4d4e4f50"));
    call("processP6DataFrameCommand", frame(0x1B1AF020, "515253"));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "462b67ad"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |Successfully appended 19 bytes to file.|
        sent 1b583000 ext [00]
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "ABCDEFGHIJKLMNOPQRS");
}

void tst_p6_records::recordEndAppendsInOrderOfArrival()
{
    openGenericFile();
    // Record 2 comes before record 1: the numbers place nothing.
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0102000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "494a4b4c4d4e4f50"));
    call("processP6RecordEndCommand", frame(0x1B1A3000, "6b41e744"));
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    QCOMPARE(sentFrames(), transcript(R"(
        sent 1b583000 ext [00]
        sent 1b583000 ext [00]
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "IJKLMNOPABCDEFGH");
}

void tst_p6_records::recordEndWithWrongCrcWritesNothing()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "68dcb61c"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6RecordEndCommand: Caclulated CRC: 1759295004 Received CRC: 481746024|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  186 frameId:  "1b5830ba"|
        sent 1b5830ba ext [01]
        debug |writeFrame: Frame sent with ID: "1b5830ba"|
    )"));
    QVERIFY(session().outputFile.flush());
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
}

void tst_p6_records::recordEndWithoutACrcCountsAsCrc0_data()
{
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("three bytes") << QByteArray("1cb6dc");
    QTest::newRow("five bytes") << QByteArray("1cb6dc6800");
}

void tst_p6_records::recordEndWithoutACrcCountsAsCrc0()
{
    QFETCH(QByteArray, payload);
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, payload.constData()));
    const QStringList lines = events();
    QCOMPARE(lines.first(),
             u"debug |processP6RecordEndCommand: Caclulated CRC: 1759295004 Received CRC: 0|"_s);
    QVERIFY(lines.contains(u"sent 1b5830ba ext [01]"_s));
}

void tst_p6_records::recordEndOfNoFramesMatchesCrc0()
{
    openGenericFile();
    for (const char *payload : {"00000000", "", "ffff"}) {
        call("processP6RecordStartCommand", frame(0x1B1A2000, "0001000000"));
        QCOMPARE(session().blockDataLength, 0);
        events();
        call("processP6RecordEndCommand", frame(0x1B1A3000, payload));
        QCOMPARE(eventsButDebug(), transcript(R"(
            info |Successfully appended 0 bytes to file.|
            sent 1b583000 ext [00]
        )"));
    }
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
}

void tst_p6_records::recordEndReportsAClosedFileInTheLogOnly()
{
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        critical |Cannot write block data; output file is not open!|
        sent 1b583000 ext [00]
    )"));
    // A record that differs is not to be written.
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc69"));
    QCOMPARE(eventsButDebug(), transcript("sent 1b5830ba ext [01]"));
}

void tst_p6_records::recordEndKeepsTheRecord()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0207000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, ""));
    for (int turn = 0; turn < 2; ++turn) {
        events();
        call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
        QCOMPARE(sentFrames(), transcript("sent 1b583000 ext [00]"));
        QCOMPARE(session().blockBuffer, "ABCDEFGH" + QByteArray(8, '\0'));
        QCOMPARE(session().blockDataLength, 8);
        QCOMPARE(session().expectedFrameNumber, 2u);
        QCOMPARE(session().framesToFollow, 2u);
        QCOMPARE(session().currentBlockNumber, 7u);
        QVERIFY(session().transferInProgress);
    }
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "ABCDEFGHABCDEFGH");
}

void tst_p6_records::recordEndFlushesBeforeItAnswers()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    QByteArray onDisk;
    FakeCanDevice::behaviour.onWrite = [&onDisk](const QCanBusFrame &) {
        onDisk = ServiceTree::read("pendingUpdates/file.log");
    };
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    QCOMPARE(onDisk, "ABCDEFGH");
}

void tst_p6_records::recordEndReportsAWriteErrorInTheLogOnly()
{
    ServiceTree::write("pendingUpdates/file.log", "kept");
    session().outputFile.setFileName(ServiceTree::path("pendingUpdates/file.log"));
    QVERIFY(session().outputFile.open(QIODevice::ReadOnly));
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6DataFrameCommand", frame(0x1B1AF010, ""));
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    // Expected is the size of the buffer, not that of the record.
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |QIODevice::write (QFile, "/media/service/korvane/pendingUpdates/file.log"): ReadOnly device|
        warning |File write mismatch! Expected: 16 Written: -1|
        sent 1b583000 ext [00]
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "kept");
    QVERIFY(session().outputFile.isOpen());
    QCOMPARE(session().blockBuffer.size(), 16);
}

void tst_p6_records::recordEndOnAFullDiskFailsWhenTheBufferIsFull()
{
    QVERIFY(QFile::link(u"/dev/full"_s, ServiceTree::path("pendingUpdates/file.log")));
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "4001000000"));
    session().blockBuffer.fill('a');
    events();
    // The file object holds back 16384 bytes, 32 records; only then writing fails.
    for (int record = 0; record < 32; ++record) {
        call("processP6RecordEndCommand", frame(0x1B1A3000, "517051f9"));
        QCOMPARE(eventsButDebug(), transcript(R"(
            info |Successfully appended 512 bytes to file.|
            sent 1b583000 ext [00]
        )"));
    }
    call("processP6RecordEndCommand", frame(0x1B1A3000, "517051f9"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |File write mismatch! Expected: 512 Written: -1|
        sent 1b583000 ext [00]
    )"));
}

void tst_p6_records::recordEndReportsAShortWriteInTheLogOnly()
{
    // Without its buffer the file object meets the end of the disk within a record.
    const ServiceTree::SmallFileSystem disk("pendingUpdates", 4096);
    session().outputFile.setFileName(ServiceTree::path("pendingUpdates/file.log"));
    QVERIFY(session().outputFile.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QCOMPARE(session().outputFile.write(QByteArray(4000, 'b')), 4000);
    call("processP6RecordStartCommand", frame(0x1B1A2000, "4001000000"));
    session().blockBuffer.fill('a');
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "517051f9"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |File write mismatch! Expected: 512 Written: 96|
        sent 1b583000 ext [00]
    )"));
    session().outputFile.close();
}

void tst_p6_records::recordEndOnASmallDiskIsFoundByTheFileCrc()
{
    const ServiceTree::SmallFileSystem disk("pendingUpdates", 4096);
    openGenericFile();
    session().fileSize = 5120;
    call("processP6RecordStartCommand", frame(0x1B1A2000, "4001000000"));
    session().blockBuffer.fill('a');
    for (int record = 0; record < 10; ++record)
        call("processP6RecordEndCommand", frame(0x1B1A3000, "517051f9"));
    events();
    // The CRC sent is that of 5120 times "a", the one computed that of the 4096 with room.
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "5886fa5e"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Generic File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
        info |processP6TransferCompleteCommand: Received CRC:  1593476696 Calculated CRC:  2627329139|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        sent 1b5840ba ext [73 dc 99 9c]
        display "Received Generic File" on "Done" on 1 on
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), QByteArray(4096, 'a'));
}

void tst_p6_records::recordEndOfAnImpossibleLengthStaysInTheBuffer_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("crc");
    QTest::addColumn<QByteArray>("written");

    QTest::newRow("negative") << -8 << QByteArray("00000000") << QByteArray();
    QTest::newRow("most negative") << int(0x80000000) << QByteArray("00000000") << QByteArray();
    QTest::newRow("one too large") << 9 << QByteArray("1cb6dc68") << QByteArray("ABCDEFGH");
    QTest::newRow("largest") << 0x7FFFFFFF << QByteArray("1cb6dc68") << QByteArray("ABCDEFGH");
}

void tst_p6_records::recordEndOfAnImpossibleLengthStaysInTheBuffer()
{
    QFETCH(int, length);
    QFETCH(QByteArray, crc);
    openGenericFile();
    session().blockBuffer = "ABCDEFGH";
    session().blockBuffer.squeeze();
    session().blockDataLength = length;
    call("processP6RecordEndCommand", frame(0x1B1A3000, crc.constData()));
    QCOMPARE(sentFrames(), transcript("sent 1b583000 ext [00]"));
    QTEST(ServiceTree::read("pendingUpdates/file.log"), "written");
}

void tst_p6_records::recordCanBeSentAgain()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "5858585858585858"));
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0101000000"));
    call("processP6DataFrameCommand", frame(0x1B1AF000, "4142434445464748"));
    call("processP6RecordEndCommand", frame(0x1B1A3000, "1cb6dc68"));
    QCOMPARE(sentFrames(), transcript(R"(
        sent 1b5830ba ext [01]
        sent 1b583000 ext [00]
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "ABCDEFGH");
}

void tst_p6_records::moreShortFramesThanTheRecordHasAreSafe()
{
    openGenericFile();
    call("processP6RecordStartCommand", frame(0x1B1A2000, "0201000000"));
    for (quint32 number = 0; number < 64; ++number)
        call("processP6DataFrameCommand", frame(0x1B1AF000 + 16 * number, ""));
    QCOMPARE(session().blockDataLength, 0);
    events();
    call("processP6RecordEndCommand", frame(0x1B1A3000, "00000000"));
    QCOMPARE(sentFrames(), transcript("sent 1b583000 ext [00]"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
}

// ---- All of it

void tst_p6_records::wholeTransferOverTheDevice()
{
    receive({frame(0x1B1A0000, "020813000000"), frame(0x1B1A1000, "0208000002000000")});
    receive({frame(0x1B1A2000, "0201000000"), frame(0x1B1AF000, "4142434445464748"),
             frame(0x1B1AF010, "494a4b4c4d4e4f50"), frame(0x1B1A3000, "4dffe8e0")});
    receive({frame(0x1B1A2000, "0102000000"), frame(0x1B1AF000, "515253"),
             frame(0x1B1A3000, "0da2d0e8")});
    receive({frame(0x1B1A4000, "462b67ad")});
    QStringList lines = events();
    lines.removeIf([](const QString &line) {
        return line.startsWith("debug |"_L1) || line.startsWith("info |onFramesReceived"_L1)
            || line.startsWith("info |processP6CanCommand"_L1);
    });
    QCOMPARE(lines, transcript(R"(
        sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]
        info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/file.log"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
        display "Receiving Generic File" on "Empty String" off 0.5 on
        info |Successfully appended 16 bytes to file.|
        sent 1b583000 ext [00]
        display "Receiving Generic File" on "Empty String" off 1 on
        info |Successfully appended 3 bytes to file.|
        sent 1b583000 ext [00]
        display "Received Generic File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
        info |processP6TransferCompleteCommand: Received CRC:  2909219654 Calculated CRC:  2909219654|
        info |processP6TransferCompleteCommand: CRCs match|
        info |processP6TransferCompleteCommand: Unkown file type received|
        sent 1b584000 ext [46 2b 67 ad]
        display "Received Generic File" on "Done" on 1 on
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "ABCDEFGHIJKLMNOPQRS");
}

void tst_p6_records::messageChangesOnlyItsFields_data()
{
    QTest::addColumn<QCanBusFrame>("message");
    QTest::addColumn<QStringList>("changed");

    QTest::newRow("Transfer Info")
        << frame(0x1B1A0000, "030801000000") << QStringList{u"fileSize 1"_s, u"fileType 3"_s};
    QTest::newRow("Transfer Info of another version")
        << frame(0x1B1A0000, "030401000000") << QStringList();
    QTest::newRow("Transfer Info without payload") << frame(0x1B1A0000) << QStringList();
    QTest::newRow("Initiate Transfer of another version")
        << frame(0x1B1A1000, "0304000001000000") << QStringList();
    QTest::newRow("Initiate Transfer of another size")
        << frame(0x1B1A1000, "03080000010000") << QStringList();
    QTest::newRow("Record Start") << frame(0x1B1A2000, "0105000000")
                                  << QStringList{u"currentBlockNumber 5"_s, u"blockDataLength 8"_s,
                                                 u"blockBuffer 0000000000000000"_s,
                                                 u"expectedFrameNumber 0"_s, u"framesToFollow 1"_s};
    QTest::newRow("Record Start of another size") << frame(0x1B1A2000, "01050000") << QStringList();
    QTest::newRow("Data Frame")
        << frame(0x1B1AF010, "4344")
        << QStringList{u"blockDataLength 12"_s,
                       u"blockBuffer 414200000000000043440000000000000000000000000000"_s,
                       u"expectedFrameNumber 2"_s};
    QTest::newRow("Data Frame out of order") << frame(0x1B1AF020, "4344") << QStringList();
    // The CRC-32 of "AB" and 16 zeros.
    QTest::newRow("Record End") << frame(0x1B1A3000, "fffcbebb")
                                << QStringList{u"outputFile \"%1\" mode 2 at 18"_s};
    QTest::newRow("Record End of another CRC") << frame(0x1B1A3000, "01020304") << QStringList();
    // The file is empty, and so its CRC-32 is 0.
    for (const auto &[name, crc] : {std::pair("Transfer Complete", "00000000"),
                                    std::pair("Transfer Complete of another size", "0000000001"),
                                    std::pair("Transfer Complete of another CRC", "01020304")}) {
        QTest::newRow(name) << frame(0x1B1A4000, crc)
                            << QStringList{u"outputFile \"%1\" mode 0 at 0"_s,
                                           u"transferInProgress 0"_s};
    }
}

void tst_p6_records::messageChangesOnlyItsFields()
{
    QFETCH(QCanBusFrame, message);
    QFETCH(QStringList, changed);
    beginTransfer();
    const QStringList before = state();
    receive({message});
    QStringList differing = state();
    differing.removeIf([&before](const QString &line) { return before.contains(line); });
    changed.replaceInStrings(u"%1"_s, session().outputFile.fileName());
    QCOMPARE(differing, changed);
}

void tst_p6_records::anyFrameInAnyOrderIsSafe()
{
    // Buffer overruns are the sanitizers' to find; here the bounds of the record are held.
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
        QCanBusFrame any(0x1B1A0000 | type << 12 | (type == 15 ? number << 4 : 0), payload);
        receive({any});
        QVERIFY(session().blockBuffer.size() <= 2040);
        QVERIFY(session().blockDataLength <= session().blockBuffer.size());
        QVERIFY(session().blockDataLength >= 0);
        events();
    }
}

QTEST_GUILESS_MAIN(tst_p6_records)
#include "tst_p6_records.moc"
