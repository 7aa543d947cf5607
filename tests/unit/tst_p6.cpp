#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

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

private:
    /// A configuration of the nine digits, "123456789", up to its end.
    static inline const QString digits =
        u"1B1A0000#000809000000 1B1A1000#0008000001000000 1B1A2000#0201000000 "
        "1B1AF000#3132333435363738 1B1AF010#39 1B1A3000#2639F4CB"_s;
    /// The same as a generic file.
    static inline const QString genericDigits = QString(digits).replace(u"#0008"_s, u"#0208"_s);

private slots:
    // ---- Dispatch and sender

    void messagesAreDispatchedByType()
    {
        play(Everything, uR"(
            call processP6CanMessage 1B1A0000#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  0 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Transfer Info received|
            debug |processP6TransferInfoCommand: |
            debug |processP6TransferInfoCommand: Protocol check|
            debug |Payload size: 0 Hex: ""|
            debug |processP6TransferInfoCommand: packing the response data|
            debug |processP6TransferInfoCommand: sending the response|
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  0  cmdResp:  0  responseNum:  29 frameId:  "1b58001d"|
            sent 1B58001D#0A3FE803E80360EA
            debug |writeFrame: Frame sent with ID: "1b58001d"|

            call processP6CanMessage 1B1A1000#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  1 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Initiate Transfer received|
            debug |processP6InitTransferCommand: |
            debug |processP6InitTransferCommand: Protocol check - inData.size 0 proto:  0|
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  1  cmdResp:  0  responseNum:  30 frameId:  "1b58101e"|
            sent 1B58101E#0000000000000000
            debug |writeFrame: Frame sent with ID: "1b58101e"|

            call processP6CanMessage 1B1A2000#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  2 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Record Start received|
            debug |processP6RecordStartCommand: |
            display "Receiving Configuration File" on "Empty String" off nan on

            call processP6CanMessage 1B1A3000#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  3 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Record End received|
            debug |processP6RecordEndCommand: Caclulated CRC: 0 Received CRC: 0|
            critical |Cannot write block data; output file is not open!|
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  0 frameId:  "1b583000"|
            sent 1B583000#00
            debug |writeFrame: Frame sent with ID: "1b583000"|

            call processP6CanMessage 1B1A4000#01000000
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  4 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Transfer Complete received|
            display "Received Configuration File" on "Checking" on 1 on
            warning |QFSFileEngine::open: No file name specified|
            critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
            info |processP6TransferCompleteCommand: Received CRC:  1 Calculated CRC:  0|
            critical |processP6TransferCompleteCommand: CRCs dont match!|
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  0  responseNum:  186 frameId:  "1b5840ba"|
            sent 1B5840BA#00000000
            debug |writeFrame: Frame sent with ID: "1b5840ba"|
            display "Received Configuration File" on "Done" on 1 on

            call processP6CanMessage 1B1AF000#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  15 cmdResp:  0|
            info |processP6CanCommand: P6 Message Type Data Frame received|
            debug |processP6DataFrameCommand: Frame Number:  0 Payload Size:  0|
        )"_s);
    }

    void secondDestinationIsServedAlike()
    {
        play(uR"(
            receive 1B0E0000#0008102700000000
            sent 1B580000#0A3FE803E80360EA
            changed fileSize 10000
        )"_s);
    }

    /// Bits 11, 10 (command/response) and 9 to 0; in a Data Frame 9 to 4 are its number.
    void bitsWithoutMeaningAreNotLookedAt()
    {
        play(Everything, uR"(
            call processP6CanMessage 1B1A5C00#
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  26  p6Type:  5 cmdResp:  1|
            warning |processP6CanCommand: P6 Message Type received that is unknown:  "5"|
        )"_s);
        play(uR"(
            receive 1B1A0FFF#000810270000
            sent 1B580000#0A3FE803E80360EA
            receive 1B1A2BFF#0105000000
            display "Receiving Configuration File" on "Empty String" off inf on
            receive 1B1AFC0F#3132333435363738
            state expectedFrameNumber 1
            receive 1B1A3BFF#01000000
            sent 1B5830BA#01
            receive 1B1A4BFF#01000000
            display "Received Configuration File" on "Checking" on 1 on
            warning |QFSFileEngine::open: No file name specified|
            critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
            info |processP6TransferCompleteCommand: Received CRC:  1 Calculated CRC:  0|
            critical |processP6TransferCompleteCommand: CRCs dont match!|
            sent 1B5840BA#00000000
            display "Received Configuration File" on "Done" on 1 on
            receive 1B1A1BFF#0208000001000000
            info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/file.log"|
            sent 1B581000#0000000000000000
        )"_s);
    }

    void foreignMessagesAreDropped()
    {
        play(Everything, uR"(
            call processP6CanMessage 1AFA0000#0008102700000000
            debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  26  p6Type:  0 cmdResp:  0|
            changed nothing
            call processP6CanMessage 1B190000#0008102700000000
            debug |processP6CanCommand: Received P6 Frame srcID:  24  destID:  25  p6Type:  0 cmdResp:  0|
            changed nothing
            call processP6CanMessage 1AEE0000#0008102700000000
            debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  14  p6Type:  0 cmdResp:  0|
            changed nothing
            call processP6CanMessage 1AFA5400#0008102700000000
            debug |processP6CanCommand: Received P6 Frame srcID:  23  destID:  26  p6Type:  5 cmdResp:  1|
            changed nothing
            call processP6CanMessage 1B1A0000#E
            debug |processP6CanCommand: Received P6 Frame srcID:  0  destID:  0  p6Type:  0 cmdResp:  0|
            changed nothing
        )"_s);
    }

    void unknownTypesAreNotAnswered()
    {
        receive(u"1B1A1000#0208000009000000 1B1A2000#0302000000 1B1AF000#4142"_s);
        events();
        for (const QChar type : u"56789abcde"_s) {
            play(Handlers, uR"(
                receive 1B1A%1000#0008102700000000
                warning |processP6CanCommand: P6 Message Type received that is unknown:  "%1"|
                changed nothing
            )"_s.replace(u"%1"_s, type));
        }
    }

    void senderPacksItsFields()
    {
        play(Everything, uR"(
            send sendP6ResposesMessage 26 24 3 0 186 #
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  3  cmdResp:  0  responseNum:  186 frameId:  "1b5830ba"|
            sent 1B5830BA#
            debug |writeFrame: Frame sent with ID: "1b5830ba"|
            send sendP6ResposesMessage 26 24 4 1 1024 #
            debug |sendP6ResposesMessage: src:  26  dest:  24  p6Type:  4  cmdResp:  1  responseNum:  1024 frameId:  "1b584400"|
            sent 1B584400#
            debug |writeFrame: Frame sent with ID: "1b584400"|
            # One too large for each field.
            send sendP6ResposesMessage 32 32 16 2 1024 #
            debug |sendP6ResposesMessage: src:  32  dest:  32  p6Type:  16  cmdResp:  2  responseNum:  1024 frameId:  "18000000"|
            sent 18000000#
            debug |writeFrame: Frame sent with ID: "18000000"|
            # Every bit.
            send sendP6ResposesMessage 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF 0xFFFFFFFF #
            debug |sendP6ResposesMessage: src:  4294967295  dest:  4294967295  p6Type:  4294967295  cmdResp:  4294967295  responseNum:  4294967295 frameId:  "1bfff7ff"|
            sent 1BFFF7FF#
            debug |writeFrame: Frame sent with ID: "1bfff7ff"|
        )"_s);
    }

    void senderPassesThePayloadOn()
    {
        play(uR"(
            send sendP6ResposesMessage 0 0 0 0 0 #00FF0A0D20
            sent 18000000#00FF0A0D20
            send sendP6ResposesMessage 0 0 0 0 0 #0102030405060708090A0B0C
            sent 18000000#0102030405060708090A0B0C fd
        )"_s);
    }

    // ---- Transfer Info

    void transferInfoIsAccepted()
    {
        play(Handlers, uR"(
            receive 1B1A0000#000810270000ABCD
            debug |processP6TransferInfoCommand: |
            debug |processP6TransferInfoCommand: Protocol check|
            debug |Payload size: 8 Hex: "000810270000abcd"|
            debug |processP6TransferInfoCommand: Protocol Check Passed|
            debug |processP6TransferInfoCommand: FileSize: 10000 FileType: 0|
            debug |processP6TransferInfoCommand: packing the response data|
            debug |processP6TransferInfoCommand: sending the response|
            sent 1B580000#0A3FE803E80360EA
            changed fileSize 10000
        )"_s);
        // Six bytes are enough; the low bits of the version's byte are not looked at.
        play(uR"(
            receive 1B1A0000#010B04030201
            sent 1B580000#0A3FE803E80360EA
            changed fileSize 16909060, fileType 1
            receive 1B1A0000#FF08FFFFFFFF
            sent 1B580000#0A3FE803E80360EA
            changed fileSize 4294967295, fileType 255
            receive 1B1A0000#030800000080
            sent 1B580000#0A3FE803E80360EA
            changed fileSize 2147483648, fileType 3
        )"_s);
    }

    /// Too short, or of another version: 3, 1 or 34.
    void transferInfoIsRejected()
    {
        receive(u"1B1A0000#02084D000000"_s);
        events();
        for (const QString &payload : {u""_s, u"00"_s, u"0008102700"_s, u"000c10270000"_s,
                                       u"000710270000"_s, u"008810270000"_s}) {
            play(Handlers,
                 uR"(
                receive 1B1A0000#%1
                debug |processP6TransferInfoCommand: |
                debug |processP6TransferInfoCommand: Protocol check|
                debug |Payload size: %2 Hex: "%1"|
                debug |processP6TransferInfoCommand: packing the response data|
                debug |processP6TransferInfoCommand: sending the response|
                sent 1B58001D#0A3FE803E80360EA
                changed nothing
            )"_s.arg(payload)
                     .arg(payload.size() / 2));
        }
    }

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

    // ---- Initiate Transfer

    void initTransferOpensTheFile()
    {
        play(Handlers, uR"(
            receive 1B1A1000#000800000A000000
            debug |processP6InitTransferCommand: |
            debug |processP6InitTransferCommand: Protocol check - inData.size 8 proto:  2|
            debug |processP6InitTransferCommand: Protocol Check Passed|
            info |Successfully initialized output file: "/media/service/korvane/application/factory/main/systemConfig.json"|
            debug |Number of Blocks: 10 FileType: 0|
            sent 1B581000#0000000000000000
            changed outputFile "/media/service/korvane/application/factory/main/systemConfig.json", outputFileMode 2, outputFilePath "/media/service/korvane/application/factory/main/systemConfig.json", numberOfBlocks 10
            file application/factory/main/systemConfig.json ""
        )"_s);
        for (const auto &[payload, place, numbers] :
             {std::tuple(u"0108FFFF04030201"_s, u"application/factory/menu/menu.tar"_s,
                         u"16909060 FileType: 1"_s),
              std::tuple(u"0208000000000000"_s, u"pendingUpdates/file.log"_s, u"0 FileType: 2"_s),
              std::tuple(u"030B0000FFFFFFFF"_s, u"pendingUpdates/package.tar"_s,
                         u"4294967295 FileType: 3"_s)}) {
            play(Handlers, uR"(
                restart
                receive 1B1A1000#%1
                debug |processP6InitTransferCommand: |
                debug |processP6InitTransferCommand: Protocol check - inData.size 8 proto:  2|
                debug |processP6InitTransferCommand: Protocol Check Passed|
                info |Successfully initialized output file: "/media/service/korvane/%2"|
                debug |Number of Blocks: %3|
                sent 1B581000#0000000000000000
                state outputFile "/media/service/korvane/%2", outputFileMode 2
                file %2 ""
            )"_s.arg(payload, place, numbers));
        }
    }

    void initTransferOfAnUnknownTypeOpensUnknown()
    {
        play(uR"(
            receive 1B1A1000#0408000001000000
            info |Successfully initialized output file: "Unknown"|
            sent 1B581000#0000000000000000
            changed outputFile "Unknown", outputFileMode 2, outputFilePath "Unknown", fileType 4, numberOfBlocks 1
        )"_s);
        QVERIFY(QFile::remove(QDir::current().filePath(u"Unknown"_s)));
    }

    /// Of another size, or of another version: 3, 1 or 63.
    void initTransferIsRejected()
    {
        ServiceTree::write("application/factory/main/systemConfig.json", "kept");
        for (const auto &[payload, check] :
             {std::pair(QString(), u"0 proto:  0"_s), std::pair(u"00"_s, u"1 proto:  0"_s),
              std::pair(u"0008"_s, u"2 proto:  2"_s),
              std::pair(u"000800000A0000"_s, u"7 proto:  2"_s),
              std::pair(u"000800000A00000000"_s, u"9 proto:  2"_s),
              std::pair(u"000C00000A000000"_s, u"8 proto:  3"_s),
              std::pair(u"000700000A000000"_s, u"8 proto:  1"_s),
              std::pair(u"00FF00000A000000"_s, u"8 proto:  63"_s)}) {
            play(Handlers, uR"(
                receive 1B1A1000#%1
                debug |processP6InitTransferCommand: |
                debug |processP6InitTransferCommand: Protocol check - inData.size %2|
                sent 1B58101E#0000000000000000
                changed nothing
                file application/factory/main/systemConfig.json "kept"
            )"_s.arg(payload, check));
        }
    }

    /// Neither the type nor the size that a Transfer Info announced is compared or changed.
    void initTransferNeedsNoTransferInfo()
    {
        play(uR"(
            given 1B1A0000#01084D000000
            receive 1B1A1000#0208000001000000
            info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/file.log"|
            sent 1B581000#0000000000000000
            state fileSize 77, fileType 2
        )"_s);
    }

    void initTransferTruncatesAnExistingFile()
    {
        ServiceTree::write("pendingUpdates/file.log", "of an earlier transfer");
        play(uR"(
            given 1B1A1000#0208000001000000
            file pendingUpdates/file.log ""
            given 1B1A2000#0101000000 1B1AF000#4142434445464748 1B1A3000#1CB6DC68
            file pendingUpdates/file.log "ABCDEFGH"
            # The warning is the file object's own: the file is still open.
            receive 1B1A1000#0208000001000000
            warning |QFile::setFileName: File (/media/service/korvane/pendingUpdates/file.log) already open|
            info |Successfully initialized output file: "/media/service/korvane/pendingUpdates/file.log"|
            sent 1B581000#0000000000000000
            file pendingUpdates/file.log ""
        )"_s);
    }

    void initTransferReportsAFailedOpenInTheLogOnly()
    {
        {
            const ServiceTree::ReadOnly readOnly("pendingUpdates");
            play(uR"(
                receive 1B1A1000#0308000003000000
                critical |Failed to open output file for writing: "Read-only file system"|
                sent 1B581000#0000000000000000
                state outputFileMode 0
            )"_s);
        }
        QVERIFY(QDir(ServiceTree::path("pendingUpdates")).removeRecursively());
        play(Handlers, uR"(
            receive 1B1A1000#0208000002000000
            debug |processP6InitTransferCommand: |
            debug |processP6InitTransferCommand: Protocol check - inData.size 8 proto:  2|
            debug |processP6InitTransferCommand: Protocol Check Passed|
            critical |Failed to open output file for writing: "No such file or directory"|
            debug |Number of Blocks: 2 FileType: 2|
            sent 1B581000#0000000000000000
            changed outputFile "/media/service/korvane/pendingUpdates/file.log", outputFilePath "/media/service/korvane/pendingUpdates/file.log", fileType 2, numberOfBlocks 2
        )"_s);
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

    // ---- Transfer Complete

    void completeConfigurationIsInstalled()
    {
        play(Handlers, uR"(
            given %1
            receive 1B1A4000#2639F4CB
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
            sent 1B584000#2639F4CB
            display "Received Configuration File" on "Done" on 1 on
            changed outputFileMode 0, outputFilePosition 0, transferInProgress false
            file application/main/systemConfig.json "123456789"
            file application/backup/main/systemConfig.json "123456789"
            file application/factory/main/systemConfig.json "123456789"
        )"_s.arg(digits));
        QVERIFY(QFile::remove(ServiceTree::path("application/main/systemConfig.json")));
        // Repeated, it does all but the close again.
        play(uR"(
            receive 1B1A4000#2639F4CB
            display "Received Configuration File" on "Checking" on 1 on
            info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
            info |processP6TransferCompleteCommand: CRCs match|
            sync
            info |Success! File safely backed up to: "/media/service/korvane/application/backup/main/systemConfig.json"|
            info |Success! File safely backed up to: "/media/service/korvane/application/main/systemConfig.json"|
            sync
            sent 1B584000#2639F4CB
            display "Received Configuration File" on "Done" on 1 on
            changed nothing
            file application/main/systemConfig.json "123456789"
        )"_s);
    }

    void completeFileOfAnotherTypeIsLeftWhereItIs()
    {
        for (const auto &[type, word, place] :
             {std::tuple(u"01"_s, u"Menu"_s, u"application/factory/menu/menu.tar"_s),
              std::tuple(u"02"_s, u"Generic"_s, u"pendingUpdates/file.log"_s),
              std::tuple(u"03"_s, u"Package"_s, u"pendingUpdates/package.tar"_s),
              std::tuple(u"FF"_s, u"Unknown"_s, QString())}) {
            play(Handlers, uR"(
                restart
                given %1
                receive 1B1A4000#2639F4CB
                display "Received %2 File" on "Checking" on 1 on
                info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
                info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
                info |processP6TransferCompleteCommand: CRCs match|
                info |processP6TransferCompleteCommand: Unkown file type received|
                sent 1B584000#2639F4CB
                display "Received %2 File" on "Done" on 1 on
                changed outputFileMode 0, outputFilePosition 0, transferInProgress false
            )"_s.arg(QString(digits).replace(u"#0008"_s, u'#' + type + u"08"_s), word));
            QCOMPARE(ServiceTree::files(),
                     place.isEmpty() ? QByteArrayList() : QByteArrayList{place.toLatin1()});
            if (!place.isEmpty())
                QCOMPARE(ServiceTree::read(place.toLatin1()), "123456789");
        }
        QVERIFY(QFile::remove(u"Unknown"_s));
    }

    void completeFileIsOnTheDiskBeforeItsAnswer()
    {
        receive(u"1B1A0000#020809000000 1B1A1000#0208000001000000"_s);
        session().outputFile.write("123456789");
        events();
        logFsync = true;
        const auto restore = qScopeGuard([] { logFsync = false; });
        play(uR"(
            receive 1B1A4000#2639F4CB
            display "Received Generic File" on "Checking" on 1 on
            fsync /media/service/korvane/pendingUpdates/file.log: 9 bytes
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  3421780262|
            info |processP6TransferCompleteCommand: CRCs match|
            info |processP6TransferCompleteCommand: Unkown file type received|
            sent 1B584000#2639F4CB
            display "Received Generic File" on "Done" on 1 on
        )"_s);
    }

    void completeWithWrongCrcInstallsNothing()
    {
        ServiceTree::write("application/main/stats.db", "kept");
        play(Handlers, uR"(
            given %1
            receive 1B1A4000#2639F4CC
            display "Received Configuration File" on "Checking" on 1 on
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            info |processP6TransferCompleteCommand: Received CRC:  3438557478 Calculated CRC:  3421780262|
            critical |processP6TransferCompleteCommand: CRCs dont match!|
            sent 1B5840BA#2639F4CB
            display "Received Configuration File" on "Done" on 1 on
            changed outputFileMode 0, outputFilePosition 0, transferInProgress false
            file application/factory/main/systemConfig.json "123456789"
        )"_s.arg(digits));
        QCOMPARE(ServiceTree::list("application/main"), QStringList{u"stats.db"_s});
    }

    void completeWithoutACrcCountsAsCrc0()
    {
        for (const QString &payload : {u""_s, u"2639F4"_s, u"2639F4CB00"_s}) {
            play(uR"(
                restart
                given %1
                receive 1B1A4000#%2
                display "Received Generic File" on "Checking" on 1 on
                info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
                info |processP6TransferCompleteCommand: Received CRC:  0 Calculated CRC:  3421780262|
                critical |processP6TransferCompleteCommand: CRCs dont match!|
                sent 1B5840BA#2639F4CB
                display "Received Generic File" on "Done" on 1 on
            )"_s.arg(genericDigits, payload));
        }
    }

    /// A file that cannot be read has the CRC 0, and a configuration is the type at first.
    void completeWithoutATransferMatchesCrc0()
    {
        for (const QString &payload : {u"00000000"_s, u"0102030405"_s}) {
            play(uR"(
                receive 1B1A4000#%1
                display "Received Configuration File" on "Checking" on 1 on
                warning |QFSFileEngine::open: No file name specified|
                critical |CalculateCRC32 Error: Failed to open file: "No file name specified"|
                info |processP6TransferCompleteCommand: Received CRC:  0 Calculated CRC:  0|
                info |processP6TransferCompleteCommand: CRCs match|
                sync
                critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/backup/main/systemConfig.json"|
                critical |Backup Error: Failed to copy file from "/media/service/korvane/application/factory/main/systemConfig.json" to "/media/service/korvane/application/main/systemConfig.json"|
                sync
                sent 1B584000#00000000
                display "Received Configuration File" on "Done" on 1 on
            )"_s.arg(payload));
        }
    }

    void completeOfAVanishedFileFails()
    {
        receive(genericDigits);
        events();
        QVERIFY(QFile::remove(ServiceTree::path("pendingUpdates/file.log")));
        play(uR"(
            receive 1B1A4000#2639F4CB
            display "Received Generic File" on "Checking" on 1 on
            info |processP6TransferCompleteCommand: File transfer complete. Output file closed cleanly.|
            critical |CalculateCRC32 Error: Failed to open file: "No such file or directory"|
            info |processP6TransferCompleteCommand: Received CRC:  3421780262 Calculated CRC:  0|
            critical |processP6TransferCompleteCommand: CRCs dont match!|
            sent 1B5840BA#00000000
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

    void completeSucceedsAlthoughTheInstallationFails()
    {
        QVERIFY(QDir(ServiceTree::path("application/main")).removeRecursively());
        QVERIFY(QDir(ServiceTree::path("application/backup")).removeRecursively());
        receive(digits + u" 1B1A4000#2639F4CB"_s);
        const QStringList lines = events();
        QCOMPARE(lines.filter(u"critical |Backup Error: Failed to copy file from"_s).size(), 2);
        QVERIFY(lines.contains(u"sent 1B584000#2639F4CB"_s));
    }

    /// "Checking" before any file work, and "Done" while the transfer is still marked.
    void completeShowsWhatItDoesInOrder()
    {
        receive(genericDigits);
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
        receive(genericDigits);
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
