#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using EventLog::transcript;

Q_DECLARE_METATYPE(QCanBusFrame)

static bool logFsync = false;

// Takes the place of the system call in the whole process.
extern "C" int fsync(int descriptor)
{
    if (logFsync) {
        const QFileInfo file(QFile::symLinkTarget(u"/proc/self/fd/%1"_s.arg(descriptor)));
        EventLog::add(u"fsync %1: %2 bytes"_s.arg(file.filePath()).arg(file.size()));
    }
    return int(syscall(SYS_fsync, descriptor));
}

/// Multipacket transfer: the dispatch, the sender, the negotiation and the completion.
class tst_p6 : public ReceiverTest
{
    Q_OBJECT

private slots:
    void messagesAreDispatchedByType_data();
    void messagesAreDispatchedByType();
    void secondDestinationIsServedAlike();
    void commandResponseBitIsNotLookedAt();
    void bitsWithoutMeaningAreNotLookedAt_data();
    void bitsWithoutMeaningAreNotLookedAt();
    void foreignMessagesAreDropped_data();
    void foreignMessagesAreDropped();
    void unknownTypesAreNotAnswered_data();
    void unknownTypesAreNotAnswered();
    void errorFrameIsDropped();
    void senderPacksItsFields_data();
    void senderPacksItsFields();
    void senderPassesThePayloadOn();

    void transferInfoIsAccepted_data();
    void transferInfoIsAccepted();
    void transferInfoLogsItsSteps();
    void transferInfoIsRejected_data();
    void transferInfoIsRejected();
    void transferInfoReportsTheReceiverParameters_data();
    void transferInfoReportsTheReceiverParameters();
    void transferInfoTouchesTypeAndSizeOnly();

    void initTransferOpensTheFile_data();
    void initTransferOpensTheFile();
    void initTransferOfAnUnknownTypeOpensUnknown();
    void initTransferIsRejected_data();
    void initTransferIsRejected();
    void initTransferAcceptsLowBitsOfTheVersionByte();
    void initTransferNeedsNoTransferInfo();
    void initTransferTruncatesAnExistingFile();
    void initTransferReportsAMissingDirectoryInTheLogOnly();
    void initTransferReportsAReadOnlyDirectoryInTheLogOnly();
    void initTransferClosesTheFileOfAnUnfinishedTransfer();
    void initTransferLeavesRecordAndDisplay_data();
    void initTransferLeavesRecordAndDisplay();

    void completeConfigurationIsInstalled();
    void completeFileOfAnotherTypeIsLeftWhereItIs_data();
    void completeFileOfAnotherTypeIsLeftWhereItIs();
    void completeFileIsOnTheDiskBeforeItsAnswer();
    void completeWithWrongCrcInstallsNothing();
    void completeWithoutACrcCountsAsCrc0_data();
    void completeWithoutACrcCountsAsCrc0();
    void completeWithoutACrcMatchesCrc0();
    void completeWithoutATransferMatchesCrc0();
    void completeOfAVanishedFileFails();
    void completeChecksTheAnnouncedSizeOnly();
    void completeOfAShortFileChecksWhatIsThere();
    void completeOfAnEmptyFile();
    void completeSucceedsAlthoughTheInstallationFails();
    void completeMayBeRepeated();
    void completeKeepsTheSessionFields();
    void completeShowsCheckingBeforeAnyFileWork();
    void completeShowsDoneWhileTheTransferIsStillMarked();
};

// ---- Dispatch and sender

void tst_p6::messagesAreDispatchedByType_data()
{
    QTest::addColumn<QCanBusFrame>("message");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("Transfer Info") << frame(0x1B1A0000) << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  0 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Transfer Info received|
        debug |processP6TransferInfoCommand: |
        debug |processP6TransferInfoCommand: Protocol check|
        debug |Payload size: 0 Hex: ""|
        debug |processP6TransferInfoCommand: packing the response data|
        debug |processP6TransferInfoCommand: sending the response|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  0  cmdResp:  0  responseNum:  29 frameId:  "1b58001d"|
        sent 1b58001d ext [0a 3f e8 03 e8 03 60 ea]
        debug |writeFrame: Frame sent with ID: "1b58001d"|
    )");
    QTest::newRow("Initiate Transfer") << frame(0x1B1A1000) << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  1 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Initiate Transfer received|
        debug |processP6InitTransferCommand: |
        debug |processP6InitTransferCommand: Protocol check - inData.size 0 proto:  0|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  1  cmdResp:  0  responseNum:  30 frameId:  "1b58101e"|
        sent 1b58101e ext [00 00 00 00 00 00 00 00]
        debug |writeFrame: Frame sent with ID: "1b58101e"|
    )");
    QTest::newRow("Record Start") << frame(0x1B1A2000) << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  2 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Record Start received|
        debug |processP6RecordStartCommand: |
        display "Receiving Configuration File" on "Empty String" off nan on
    )");
    QTest::newRow("Record End") << frame(0x1B1A3000) << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  3 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Record End received|
        debug |processP6RecordEndCommand: Caclulated CRC: 0 Received CRC: 0|
        critical |Cannot write block data; output file is not open!|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  0 frameId:  "1b583000"|
        sent 1b583000 ext [00]
        debug |writeFrame: Frame sent with ID: "1b583000"|
    )");
    QTest::newRow("Transfer Complete") << frame(0x1B1A4000, "01000000") << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  4 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Transfer Complete received|
        display "Received Configuration File" on "Checking" on 1 on
        warning |QFSFileEngine::open: No file name specified|
        critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
        info |processP6TransferCompleteCommand: Received CRC:  1 Calculated CRC:  0|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  0  responseNum:  186 frameId:  "1b5840ba"|
        sent 1b5840ba ext [00 00 00 00]
        debug |writeFrame: Frame sent with ID: "1b5840ba"|
        display "Received Configuration File" on "Done" on 1 on
    )");
    QTest::newRow("Data Frame") << frame(0x1B1AF000) << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  15 cmdResp:  0|
        info |processP6CanCommand: P6 Message Type Data Frame received|
        debug |processP6DataFrameCommand: Frame Number:  0 Payload Size:  0|
    )");
}

void tst_p6::messagesAreDispatchedByType()
{
    QFETCH(QCanBusFrame, message);
    call("processP6CanMessage", message);
    QTEST(events(), "expected");
}

void tst_p6::secondDestinationIsServedAlike()
{
    call("processP6CanMessage", frame(0x1B0E0000, "0008102700000000"));
    QStringList lines = events();
    QCOMPARE(lines.first(),
             u"debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  14 "
             " p6Type:  0 cmdResp:  0|"_s);
    QVERIFY(lines.contains(u"sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]"_s));
    QCOMPARE(session().fileSize, 10000u);
}

void tst_p6::commandResponseBitIsNotLookedAt()
{
    call("processP6CanMessage", frame(0x1B1A0C00, "0008102700000000"));
    const QStringList lines = events();
    QCOMPARE(lines.first(),
             u"debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26 "
             " p6Type:  0 cmdResp:  1|"_s);
    QVERIFY(lines.contains(u"sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]"_s));
}

// Bits 11 and 9 to 0 of the identifier; in a Data Frame 9 to 4 are its number.
void tst_p6::bitsWithoutMeaningAreNotLookedAt_data()
{
    QTest::addColumn<QCanBusFrame>("message");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("Transfer Info") << frame(0x1B1A0BFF, "000810270000") << transcript(R"(
        info |processP6CanCommand: P6 Message Type Transfer Info received|
        sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]
    )");
    QTest::newRow("Initiate Transfer") << frame(0x1B1A1BFF, "0208000001000000") << transcript(R"(
        info |processP6CanCommand: P6 Message Type Initiate Transfer received|
        info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/file.log"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
    )");
    QTest::newRow("Record Start") << frame(0x1B1A2BFF, "0105000000") << transcript(R"(
        info |processP6CanCommand: P6 Message Type Record Start received|
        display "Receiving Configuration File" on "Empty String" off inf on
    )");
    QTest::newRow("Record End") << frame(0x1B1A3BFF, "01000000") << transcript(R"(
        info |processP6CanCommand: P6 Message Type Record End received|
        sent 1b5830ba ext [01]
    )");
    QTest::newRow("Transfer Complete") << frame(0x1B1A4BFF, "01000000") << transcript(R"(
        info |processP6CanCommand: P6 Message Type Transfer Complete received|
        display "Received Configuration File" on "Checking" on 1 on
        warning |QFSFileEngine::open: No file name specified|
        critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
        info |processP6TransferCompleteCommand: Received CRC:  1 Calculated CRC:  0|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        sent 1b5840ba ext [00 00 00 00]
        display "Received Configuration File" on "Done" on 1 on
    )");
}

void tst_p6::bitsWithoutMeaningAreNotLookedAt()
{
    QFETCH(QCanBusFrame, message);
    call("processP6CanMessage", message);
    QTEST(eventsButDebug(), "expected");
}

void tst_p6::foreignMessagesAreDropped_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("from another source") << 0x1AFA0000u << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  26  p6Type:  0 cmdResp:  0|
    )");
    QTest::newRow("to another destination") << 0x1B190000u << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  25  p6Type:  0 cmdResp:  0|
    )");
    QTest::newRow("to the second destination from another source") << 0x1AEE0000u << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  14  p6Type:  0 cmdResp:  0|
    )");
    QTest::newRow("unknown type from another source") << 0x1AFA5400u << transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  26  p6Type:  5 cmdResp:  1|
    )");
}

void tst_p6::foreignMessagesAreDropped()
{
    QFETCH(quint32, identifier);
    call("processP6CanMessage", frame(identifier, "0008102700000000"));
    QTEST(events(), "expected");
    QCOMPARE(session().fileSize, 0u);
}

void tst_p6::unknownTypesAreNotAnswered_data()
{
    QTest::addColumn<quint32>("identifier");
    QTest::addColumn<QString>("number");

    QTest::newRow("5") << 0x1B1A5000u << u"5"_s;
    QTest::newRow("6") << 0x1B1A6000u << u"6"_s;
    QTest::newRow("7") << 0x1B1A7000u << u"7"_s;
    QTest::newRow("8") << 0x1B1A8000u << u"8"_s;
    QTest::newRow("9") << 0x1B1A9000u << u"9"_s;
    QTest::newRow("10") << 0x1B1AA000u << u"a"_s;
    QTest::newRow("11") << 0x1B1AB000u << u"b"_s;
    QTest::newRow("12") << 0x1B1AC000u << u"c"_s;
    QTest::newRow("13") << 0x1B1AD000u << u"d"_s;
    QTest::newRow("14") << 0x1B1AE000u << u"e"_s;
}

void tst_p6::unknownTypesAreNotAnswered()
{
    QFETCH(quint32, identifier);
    QFETCH(QString, number);
    beginTransfer();
    const QStringList before = state();
    call("processP6CanMessage", frame(identifier, "0008102700000000"));
    QCOMPARE(eventsButDebug(),
             QStringList{u"warning |processP6CanCommand: P6 Message Type received that is "
                         "unknown:  \"%1\"|"_s.arg(number)});
    QCOMPARE(state(), before);
}

void tst_p6::errorFrameIsDropped()
{
    QCanBusFrame error = errorFrame();
    error.setFrameId(0x1B1A0000);
    call("processP6CanMessage", error);
    QCOMPARE(events(), transcript(R"(
        debug |processP6CanCommand: Received P6 Frame srcID:  0  destID:  0  p6Type:  0 cmdResp:  0|
    )"));
}

void tst_p6::senderPacksItsFields_data()
{
    QTest::addColumn<QList<quint32>>("fields");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("record with wrong CRC") << QList<quint32>{26, 24, 3, 0, 186} << transcript(R"(
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  186 frameId:  "1b5830ba"|
        sent 1b5830ba ext []
        debug |writeFrame: Frame sent with ID: "1b5830ba"|
    )");
    QTest::newRow("response number too large")
        << QList<quint32>{26, 24, 0, 0, 1024} << transcript(R"(
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  0  cmdResp:  0  responseNum:  1024 frameId:  "1b580000"|
        sent 1b580000 ext []
        debug |writeFrame: Frame sent with ID: "1b580000"|
    )");
    QTest::newRow("command/response bit") << QList<quint32>{26, 24, 4, 1, 0} << transcript(R"(
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  1  responseNum:  0 frameId:  "1b584400"|
        sent 1b584400 ext []
        debug |writeFrame: Frame sent with ID: "1b584400"|
    )");
    QTest::newRow("one too large for each field")
        << QList<quint32>{32, 32, 16, 2, 1024} << transcript(R"(
        debug |sendP6ResposesMessage: src:  32  dest:  32  p6Type:  16  cmdResp:  2  responseNum:  1024 frameId:  "18000000"|
        sent 18000000 ext []
        debug |writeFrame: Frame sent with ID: "18000000"|
    )");
    QTest::newRow("every bit") << QList<quint32>(5, 4294967295u) << transcript(R"(
        debug |sendP6ResposesMessage: src:  4294967295  dest:  4294967295  p6Type:  4294967295  cmdResp:  4294967295  responseNum:  4294967295 frameId:  "1bfff7ff"|
        sent 1bfff7ff ext []
        debug |writeFrame: Frame sent with ID: "1bfff7ff"|
    )");
}

void tst_p6::senderPacksItsFields()
{
    QFETCH(QList<quint32>, fields);
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP6ResposesMessage",
                                      Q_ARG(quint32, fields[0]), Q_ARG(quint32, fields[1]),
                                      Q_ARG(quint32, fields[2]), Q_ARG(quint32, fields[3]),
                                      Q_ARG(quint32, fields[4]), Q_ARG(QByteArray, QByteArray())));
    QTEST(events(), "expected");
}

void tst_p6::senderPassesThePayloadOn()
{
    const quint32 none = 0;
    QVERIFY(QMetaObject::invokeMethod(manager.get(), "sendP6ResposesMessage", Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(quint32, none), Q_ARG(quint32, none),
                                      Q_ARG(QByteArray, QByteArray::fromHex("00ff0a0d20"))));
    QCOMPARE(sentFrames(), transcript("sent 18000000 ext [00 ff 0a 0d 20]"));
}

// ---- Transfer Info

void tst_p6::transferInfoIsAccepted_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<quint32>("fileType");
    QTest::addColumn<quint32>("fileSize");

    QTest::newRow("six bytes") << QByteArray("000810270000") << 0u << 10000u;
    QTest::newRow("eight bytes") << QByteArray("0008102700000102") << 0u << 10000u;
    QTest::newRow("low bits of the version byte")
        << QByteArray("010b04030201") << 1u << 0x01020304u;
    QTest::newRow("largest numbers") << QByteArray("ff08ffffffff") << 255u << 4294967295u;
    QTest::newRow("most significant byte") << QByteArray("030800000080") << 3u << 0x80000000u;
}

void tst_p6::transferInfoIsAccepted()
{
    QFETCH(QByteArray, payload);
    call("processP6TransferInfoCommand", frame(0x1B1A0000, payload.constData()));
    QTEST(session().fileType, "fileType");
    QTEST(session().fileSize, "fileSize");
    QCOMPARE(sentFrames(), transcript("sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]"));
}

void tst_p6::transferInfoLogsItsSteps()
{
    call("processP6TransferInfoCommand", frame(0x1B1A0000, "000810270000abcd"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6TransferInfoCommand: |
        debug |processP6TransferInfoCommand: Protocol check|
        debug |Payload size: 8 Hex: "000810270000abcd"|
        debug |processP6TransferInfoCommand: Protocol Check Passed|
        debug |processP6TransferInfoCommand: FileSize: 10000 FileType: 0|
        debug |processP6TransferInfoCommand: packing the response data|
        debug |processP6TransferInfoCommand: sending the response|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  0  cmdResp:  0  responseNum:  0 frameId:  "1b580000"|
        sent 1b580000 ext [0a 3f e8 03 e8 03 60 ea]
        debug |writeFrame: Frame sent with ID: "1b580000"|
    )"));
}

void tst_p6::transferInfoIsRejected_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("sizeLine");

    QTest::newRow("empty") << QByteArray("") << u"debug |Payload size: 0 Hex: \"\"|"_s;
    QTest::newRow("one byte") << QByteArray("00") << u"debug |Payload size: 1 Hex: \"00\"|"_s;
    QTest::newRow("five bytes") << QByteArray("0008102700")
                                << u"debug |Payload size: 5 Hex: \"0008102700\"|"_s;
    QTest::newRow("version 3") << QByteArray("000c10270000")
                               << u"debug |Payload size: 6 Hex: \"000c10270000\"|"_s;
    QTest::newRow("version 1") << QByteArray("000710270000")
                               << u"debug |Payload size: 6 Hex: \"000710270000\"|"_s;
    QTest::newRow("version 34") << QByteArray("008810270000")
                                << u"debug |Payload size: 6 Hex: \"008810270000\"|"_s;
}

void tst_p6::transferInfoIsRejected()
{
    QFETCH(QByteArray, payload);
    session().fileType = 2;
    session().fileSize = 77;
    call("processP6TransferInfoCommand", frame(0x1B1A0000, payload.constData()));
    QStringList lines = events();
    QVERIFY(lines.size() > 2);
    QTEST(lines.takeAt(2), "sizeLine");
    QCOMPARE(lines, transcript(R"(
        debug |processP6TransferInfoCommand: |
        debug |processP6TransferInfoCommand: Protocol check|
        debug |processP6TransferInfoCommand: packing the response data|
        debug |processP6TransferInfoCommand: sending the response|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  0  cmdResp:  0  responseNum:  29 frameId:  "1b58001d"|
        sent 1b58001d ext [0a 3f e8 03 e8 03 60 ea]
        debug |writeFrame: Frame sent with ID: "1b58001d"|
    )"));
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().fileSize, 77u);
}

void tst_p6::transferInfoReportsTheReceiverParameters_data()
{
    QTest::addColumn<QList<quint32>>("parameters");
    QTest::addColumn<QString>("sent");

    QTest::newRow("all zero") << QList<quint32>{0, 0, 0, 0, 0}
                              << u"sent 1b58001d ext [08 00 00 00 00 00 00 00]"_s;
    QTest::newRow("flag") << QList<quint32>{0, 0, 0, 0, 1}
                          << u"sent 1b58001d ext [0a 00 00 00 00 00 00 00]"_s;
    QTest::newRow("limit of 256 frames")
        << QList<quint32>{0, 0, 0, 256, 0} << u"sent 1b58001d ext [09 00 00 00 00 00 00 00]"_s;
    QTest::newRow("limit of 511 frames and flag")
        << QList<quint32>{0, 0, 0, 511, 1} << u"sent 1b58001d ext [0b ff 00 00 00 00 00 00]"_s;
    QTest::newRow("limit that does not fit")
        << QList<quint32>{0, 0, 0, 512, 0} << u"sent 1b58001d ext [08 00 00 00 00 00 00 00]"_s;
    QTest::newRow("low 16 bits of the others")
        << QList<quint32>{0xAABB1234, 0xCCDD5678, 0xEEFF9ABC, 0, 0}
        << u"sent 1b58001d ext [08 00 34 12 78 56 bc 9a]"_s;
    QTest::newRow("whole byte of the flag")
        << QList<quint32>{0, 0, 0, 0, 2} << u"sent 1b58001d ext [0c 00 00 00 00 00 00 00]"_s;
}

void tst_p6::transferInfoReportsTheReceiverParameters()
{
    QFETCH(QList<quint32>, parameters);
    QFETCH(QString, sent);
    session().infoParam1 = parameters[0];
    session().infoParam2 = parameters[1];
    session().infoParam3 = parameters[2];
    session().infoFrameLimit = parameters[3];
    session().infoFlag = quint8(parameters[4]);
    call("processP6TransferInfoCommand", frame(0x1B1A0000));
    QCOMPARE(sentFrames(), QStringList{sent});
}

void tst_p6::transferInfoTouchesTypeAndSizeOnly()
{
    session().numberOfBlocks = 9;
    session().outputFilePath = u"kept"_s;
    session().transferInProgress = true;
    call("processP6TransferInfoCommand", frame(0x1B1A0000, "020810270000"));
    QCOMPARE(session().numberOfBlocks, 9u);
    QCOMPARE(session().outputFilePath, u"kept"_s);
    QVERIFY(session().transferInProgress);
    QVERIFY(!session().outputFile.isOpen());
    QCOMPARE(session().infoParam1, 1000u);
    QCOMPARE(session().infoParam3, 60000u);
}

// ---- Initiate Transfer

void tst_p6::initTransferOpensTheFile_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("numbers");

    QTest::newRow("configuration")
        << QByteArray("000800000a000000")
        << u"/media/service/korvane/application/factory/main/systemConfig.json"_s
        << u"debug |Number of Blocks: 10 FileType: 0|"_s;
    QTest::newRow("menu") << QByteArray("0108ffff04030201")
                          << u"/media/service/korvane/application/factory/menu/menu.tar"_s
                          << u"debug |Number of Blocks: 16909060 FileType: 1|"_s;
    QTest::newRow("generic") << QByteArray("0208000000000000")
                             << u"/media/service/korvane/pendingUpdates/file.log"_s
                             << u"debug |Number of Blocks: 0 FileType: 2|"_s;
    QTest::newRow("package") << QByteArray("03080000ffffffff")
                             << u"/media/service/korvane/pendingUpdates/package.tar"_s
                             << u"debug |Number of Blocks: 4294967295 FileType: 3|"_s;
}

void tst_p6::initTransferOpensTheFile()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, path);
    QFETCH(QString, numbers);
    call("processP6InitTransferCommand", frame(0x1B1A1000, payload.constData()));
    QStringList expected = transcript(R"(
        debug |processP6InitTransferCommand: |
        debug |processP6InitTransferCommand: Protocol check - inData.size 8 proto:  2|
        debug |processP6InitTransferCommand: Protocol Check Passed|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  1  cmdResp:  0  responseNum:  0 frameId:  "1b581000"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
        debug |writeFrame: Frame sent with ID: "1b581000"|
    )");
    expected.insert(3, u"info |Successfully initialized output file: \"%1\"|"_s.arg(path));
    expected.insert(4, numbers);
    QCOMPARE(events(), expected);
    QCOMPARE(session().outputFilePath, path);
    QCOMPARE(session().outputFile.fileName(), path);
    QCOMPARE(session().outputFile.openMode(), QIODevice::OpenMode(QIODevice::WriteOnly));
    QCOMPARE(QFileInfo(path).size(), 0);
}

void tst_p6::initTransferOfAnUnknownTypeOpensUnknown()
{
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0408000001000000"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        info |Successfully initialized output file: "Unknown"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
    )"));
    QCOMPARE(session().fileType, 4u);
    QVERIFY(QFile::exists(QDir::current().filePath(u"Unknown"_s)));
    QVERIFY(QFile::remove(u"Unknown"_s));
}

void tst_p6::initTransferIsRejected_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("check");

    const auto check = [](const char *size, const char *version) {
        return u"debug |processP6InitTransferCommand: Protocol check - inData.size %1 proto:  %2|"_s
            .arg(QLatin1StringView(size), QLatin1StringView(version));
    };
    QTest::newRow("empty") << QByteArray("") << check("0", "0");
    QTest::newRow("one byte") << QByteArray("00") << check("1", "0");
    QTest::newRow("two bytes") << QByteArray("0008") << check("2", "2");
    QTest::newRow("seven bytes") << QByteArray("000800000a0000") << check("7", "2");
    QTest::newRow("nine bytes") << QByteArray("000800000a00000000") << check("9", "2");
    QTest::newRow("version 3") << QByteArray("000c00000a000000") << check("8", "3");
    QTest::newRow("version 1") << QByteArray("000700000a000000") << check("8", "1");
    QTest::newRow("version 63") << QByteArray("00ff00000a000000") << check("8", "63");
}

void tst_p6::initTransferIsRejected()
{
    QFETCH(QByteArray, payload);
    QFETCH(QString, check);
    session().fileType = 2;
    session().numberOfBlocks = 5;
    session().outputFilePath = u"kept"_s;
    ServiceTree::write("application/factory/main/systemConfig.json", "kept");
    call("processP6InitTransferCommand", frame(0x1B1A1000, payload.constData()));
    QStringList expected = transcript(R"(
        debug |processP6InitTransferCommand: |
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  1  cmdResp:  0  responseNum:  30 frameId:  "1b58101e"|
        sent 1b58101e ext [00 00 00 00 00 00 00 00]
        debug |writeFrame: Frame sent with ID: "1b58101e"|
    )");
    expected.insert(1, check);
    QCOMPARE(events(), expected);
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().numberOfBlocks, 5u);
    QCOMPARE(session().outputFilePath, u"kept"_s);
    QVERIFY(!session().outputFile.isOpen());
    QCOMPARE(ServiceTree::read("application/factory/main/systemConfig.json"), "kept");
}

void tst_p6::initTransferAcceptsLowBitsOfTheVersionByte()
{
    call("processP6InitTransferCommand", frame(0x1B1A1000, "020b000001000000"));
    QCOMPARE(sentFrames(), transcript("sent 1b581000 ext [00 00 00 00 00 00 00 00]"));
    QVERIFY(session().outputFile.isOpen());
}

void tst_p6::initTransferNeedsNoTransferInfo()
{
    session().fileType = 1;
    session().fileSize = 77;
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
    QCOMPARE(sentFrames(), transcript("sent 1b581000 ext [00 00 00 00 00 00 00 00]"));
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().fileSize, 77u);
}

void tst_p6::initTransferTruncatesAnExistingFile()
{
    ServiceTree::write("pendingUpdates/file.log", "of an earlier transfer");
    for (int turn = 0; turn < 2; ++turn) {
        call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
        QCOMPARE(sentFrames(), transcript("sent 1b581000 ext [00 00 00 00 00 00 00 00]"));
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "");
        session().outputFile.write("of this one");
        session().outputFile.flush();
        QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "of this one");
    }
}

void tst_p6::initTransferReportsAMissingDirectoryInTheLogOnly()
{
    QVERIFY(QDir(ServiceTree::path("pendingUpdates")).removeRecursively());
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000003000000"));
    QCOMPARE(events(), transcript(R"(
        debug |processP6InitTransferCommand: |
        debug |processP6InitTransferCommand: Protocol check - inData.size 8 proto:  2|
        debug |processP6InitTransferCommand: Protocol Check Passed|
        critical |Failed to open output file for writing: "No such file or directory"|
        debug |Number of Blocks: 3 FileType: 2|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  1  cmdResp:  0  responseNum:  0 frameId:  "1b581000"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
        debug |writeFrame: Frame sent with ID: "1b581000"|
    )"));
    QVERIFY(!session().outputFile.isOpen());
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().numberOfBlocks, 3u);
    QCOMPARE(session().outputFilePath, u"/media/service/korvane/pendingUpdates/file.log"_s);
}

void tst_p6::initTransferReportsAReadOnlyDirectoryInTheLogOnly()
{
    const ServiceTree::ReadOnly readOnly("pendingUpdates");
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0308000003000000"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        critical |Failed to open output file for writing: "Read-only file system"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
    )"));
    QVERIFY(!session().outputFile.isOpen());
}

void tst_p6::initTransferClosesTheFileOfAnUnfinishedTransfer()
{
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
    session().outputFile.write("held back");
    events();
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0308000001000000"));
    // The warning is the file object's own.
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |QFile::setFileName: File (/media/service/korvane/pendingUpdates/file.log) already open|
        info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/package.tar"|
        sent 1b581000 ext [00 00 00 00 00 00 00 00]
    )"));
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "held back");
    session().outputFile.write("new");
    session().outputFile.flush();
    QCOMPARE(ServiceTree::read("pendingUpdates/package.tar"), "new");
}

void tst_p6::initTransferLeavesRecordAndDisplay_data()
{
    QTest::addColumn<bool>("transferInProgress");

    QTest::newRow("before a transfer") << false;
    QTest::newRow("during a transfer") << true;
}

void tst_p6::initTransferLeavesRecordAndDisplay()
{
    QFETCH(bool, transferInProgress);
    session().transferInProgress = transferInProgress;
    session().blockDataLength = 3;
    session().blockBuffer = "abc";
    session().expectedFrameNumber = 7;
    session().currentBlockNumber = 6;
    session().framesToFollow = 5;
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
    QVERIFY(events().filter(u"display "_s).isEmpty());
    QCOMPARE(session().transferInProgress, transferInProgress);
    QCOMPARE(session().blockDataLength, 3);
    QCOMPARE(session().blockBuffer, "abc");
    QCOMPARE(session().expectedFrameNumber, 7u);
    QCOMPARE(session().currentBlockNumber, 6u);
    QCOMPARE(session().framesToFollow, 5u);
}

// ---- Transfer Complete

void tst_p6::completeConfigurationIsInstalled()
{
    call("processP6TransferInfoCommand", frame(0x1B1A0000, "000809000000"));
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0008000001000000"));
    session().outputFile.write("123456789");
    session().transferInProgress = true;
    events();
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(events(), transcript(R"(
        display "Received Configuration File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
        info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
        info |processP6TransferCompleteCommand: CRCs match|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/nvParameters.conf*"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/settingsChangeLog.db"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/stats.db"|
        debug |Cleanup Note: File did not exist, skipping: "/media/service/korvane/application/main/eventlog.db"|
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  0  responseNum:  0 frameId:  "1b584000"|
        sent 1b584000 ext [26 39 f4 cb]
        debug |writeFrame: Frame sent with ID: "1b584000"|
        display "Received Configuration File" on "Done" on 1 on
    )"));
    QVERIFY(!session().transferInProgress);
    QVERIFY(!session().outputFile.isOpen());
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "123456789");
    QCOMPARE(ServiceTree::read("application/backup/main/systemConfig.json"), "123456789");
    QCOMPARE(ServiceTree::read("application/factory/main/systemConfig.json"), "123456789");
}

void tst_p6::completeFileOfAnotherTypeIsLeftWhereItIs_data()
{
    QTest::addColumn<quint32>("fileType");
    QTest::addColumn<QString>("word");
    QTest::addColumn<QByteArray>("place");

    QTest::newRow("menu") << 1u << u"Menu"_s << QByteArray("application/factory/menu/menu.tar");
    QTest::newRow("generic") << 2u << u"Generic"_s << QByteArray("pendingUpdates/file.log");
    QTest::newRow("package") << 3u << u"Package"_s << QByteArray("pendingUpdates/package.tar");
    QTest::newRow("unknown") << 255u << u"Unknown"_s << QByteArray("unknown");
}

void tst_p6::completeFileOfAnotherTypeIsLeftWhereItIs()
{
    QFETCH(quint32, fileType);
    QFETCH(QString, word);
    QFETCH(QByteArray, place);
    session().fileType = fileType;
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path(place.constData());
    session().transferInProgress = true;
    ServiceTree::write(place.constData(), "123456789");
    const QStringList before = ServiceTree::list("application/main");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QStringList expected = transcript(R"(
        info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
        info |processP6TransferCompleteCommand: CRCs match|
        info |processP6TransferCompleteCommand: Unkown file type received|
        sent 1b584000 ext [26 39 f4 cb]
    )");
    expected.prepend(u"display \"Received %1 File\" on \"Checking\" on 1 on"_s.arg(word));
    expected.append(u"display \"Received %1 File\" on \"Done\" on 1 on"_s.arg(word));
    QCOMPARE(eventsButDebug(), expected);
    QCOMPARE(ServiceTree::read(place.constData()), "123456789");
    QCOMPARE(ServiceTree::list("application/main"), before);
    QCOMPARE(ServiceTree::list("application/menu"), QStringList());
    QCOMPARE(ServiceTree::list("application/backup/menu"), QStringList());
    QVERIFY(!session().transferInProgress);
}

void tst_p6::completeFileIsOnTheDiskBeforeItsAnswer()
{
    call("processP6TransferInfoCommand", frame(0x1B1A0000, "000809000000"));
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
    session().outputFile.write("123456789");
    events();
    logFsync = true;
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    logFsync = false;
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Generic File" on "Checking" on 1 on
        fsync /media/service/korvane/pendingUpdates/file.log: 9 bytes
        info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
        info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
        info |processP6TransferCompleteCommand: CRCs match|
        info |processP6TransferCompleteCommand: Unkown file type received|
        sent 1b584000 ext [26 39 f4 cb]
        display "Received Generic File" on "Done" on 1 on
    )"));
}

void tst_p6::completeWithWrongCrcInstallsNothing()
{
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path("application/factory/main/systemConfig.json");
    session().transferInProgress = true;
    ServiceTree::write("application/factory/main/systemConfig.json", "123456789");
    ServiceTree::write("application/main/stats.db", "kept");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cc"));
    QCOMPARE(events(), transcript(R"(
        display "Received Configuration File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: Received CRC:  3438557478 Calculated CRC:  3421780262|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  0  responseNum:  186 frameId:  "1b5840ba"|
        sent 1b5840ba ext [26 39 f4 cb]
        debug |writeFrame: Frame sent with ID: "1b5840ba"|
        display "Received Configuration File" on "Done" on 1 on
    )"));
    QVERIFY(!session().transferInProgress);
    QCOMPARE(ServiceTree::list("application/main"), QStringList{u"stats.db"_s});
    QCOMPARE(ServiceTree::read("application/factory/main/systemConfig.json"), "123456789");
}

void tst_p6::completeWithoutACrcCountsAsCrc0_data()
{
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("three bytes") << QByteArray("2639f4");
    QTest::newRow("five bytes") << QByteArray("2639f4cb00");
}

void tst_p6::completeWithoutACrcCountsAsCrc0()
{
    QFETCH(QByteArray, payload);
    session().fileType = 2;
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    ServiceTree::write("pendingUpdates/file.log", "123456789");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, payload.constData()));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Generic File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: Received CRC:  0 Calculated CRC:  3421780262|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        sent 1b5840ba ext [26 39 f4 cb]
        display "Received Generic File" on "Done" on 1 on
    )"));
}

void tst_p6::completeWithoutACrcMatchesCrc0()
{
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "0102030405"));
    QCOMPARE(sentFrames(), transcript("sent 1b584000 ext [00 00 00 00]"));
}

void tst_p6::completeWithoutATransferMatchesCrc0()
{
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "00000000"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Configuration File" on "Checking" on 1 on
        warning |QFSFileEngine::open: No file name specified|
        critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
        info |processP6TransferCompleteCommand: Received CRC:  0 Calculated CRC:  0|
        info |processP6TransferCompleteCommand: CRCs match|
        sync
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
        critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
        sync
        sent 1b584000 ext [00 00 00 00]
        display "Received Configuration File" on "Done" on 1 on
    )"));
}

void tst_p6::completeOfAVanishedFileFails()
{
    session().fileType = 2;
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Generic File" on "Checking" on 1 on
        critical |CalculateCRC32 Error: Failed to open file: "No such file or directory"|
        info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  0|
        critical |processP6TransferCompleteCommand: CRCs dont match!|
        sent 1b5840ba ext [00 00 00 00]
        display "Received Generic File" on "Done" on 1 on
    )"));
}

void tst_p6::completeChecksTheAnnouncedSizeOnly()
{
    session().fileType = 2;
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    ServiceTree::write("pendingUpdates/file.log", "123456789 and more");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(sentFrames(), transcript("sent 1b584000 ext [26 39 f4 cb]"));
}

void tst_p6::completeOfAShortFileChecksWhatIsThere()
{
    session().fileType = 2;
    session().fileSize = 4294967295u;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    ServiceTree::write("pendingUpdates/file.log", "123456789");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    // Where a long has 32 bits, the size is a negative one, of which nothing is read.
    QCOMPARE(sentFrames(),
             sizeof(long) > 4 ? transcript("sent 1b584000 ext [26 39 f4 cb]")
                              : transcript("sent 1b5840ba ext [00 00 00 00]"));
}

void tst_p6::completeOfAnEmptyFile()
{
    session().fileType = 2;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    ServiceTree::write("pendingUpdates/file.log", "");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "00000000"));
    QCOMPARE(sentFrames(), transcript("sent 1b584000 ext [00 00 00 00]"));
}

void tst_p6::completeSucceedsAlthoughTheInstallationFails()
{
    session().fileSize = 9;
    session().outputFilePath = ServiceTree::path("application/factory/main/systemConfig.json");
    ServiceTree::write("application/factory/main/systemConfig.json", "123456789");
    QVERIFY(QDir(ServiceTree::path("application/main")).removeRecursively());
    QVERIFY(QDir(ServiceTree::path("application/backup")).removeRecursively());
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    const QStringList lines = events();
    QCOMPARE(lines.filter(u"critical |Backup Error: Failed to copy file from"_s).size(), 2);
    QVERIFY(lines.contains(u"sent 1b584000 ext [26 39 f4 cb]"_s));
}

void tst_p6::completeMayBeRepeated()
{
    call("processP6TransferInfoCommand", frame(0x1B1A0000, "000809000000"));
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0008000001000000"));
    session().outputFile.write("123456789");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QVERIFY(QFile::remove(ServiceTree::path("application/main/systemConfig.json")));
    events();
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Configuration File" on "Checking" on 1 on
        info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
        info |processP6TransferCompleteCommand: CRCs match|
        sync
        info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
        info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
        sync
        sent 1b584000 ext [26 39 f4 cb]
        display "Received Configuration File" on "Done" on 1 on
    )"));
    QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), "123456789");
}

void tst_p6::completeKeepsTheSessionFields()
{
    session().fileType = 2;
    session().fileSize = 9;
    session().numberOfBlocks = 4;
    session().currentBlockNumber = 3;
    session().blockDataLength = 2;
    session().blockBuffer = "ab";
    session().expectedFrameNumber = 6;
    session().framesToFollow = 7;
    session().outputFilePath = ServiceTree::path("pendingUpdates/file.log");
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(session().fileType, 2u);
    QCOMPARE(session().fileSize, 9u);
    QCOMPARE(session().numberOfBlocks, 4u);
    QCOMPARE(session().currentBlockNumber, 3u);
    QCOMPARE(session().blockDataLength, 2);
    QCOMPARE(session().blockBuffer, "ab");
    QCOMPARE(session().expectedFrameNumber, 6u);
    QCOMPARE(session().framesToFollow, 7u);
    QCOMPARE(session().outputFilePath, ServiceTree::path("pendingUpdates/file.log"));
}

void tst_p6::completeShowsCheckingBeforeAnyFileWork()
{
    call("processP6InitTransferCommand", frame(0x1B1A1000, "0208000001000000"));
    session().fileSize = 9;
    session().outputFile.write("123456789");
    QStringList open;
    connect(manager.get(), &CanBusManager::statusUpdated, this,
            [&](const QString &, bool, const QString &text2) {
                open += text2 + (session().outputFile.isOpen() ? " open"_L1 : " closed"_L1);
            });
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(open, (QStringList{u"Checking open"_s, u"Done closed"_s}));
}

void tst_p6::completeShowsDoneWhileTheTransferIsStillMarked()
{
    session().transferInProgress = true;
    QList<bool> marked;
    connect(manager.get(), &CanBusManager::statusUpdated, this,
            [&] { marked += session().transferInProgress; });
    call("processP6TransferCompleteCommand", frame(0x1B1A4000, "2639f4cb"));
    QCOMPARE(marked, (QList<bool>{true, true}));
    QVERIFY(!session().transferInProgress);
}

QTEST_GUILESS_MAIN(tst_p6)
#include "tst_p6.moc"
