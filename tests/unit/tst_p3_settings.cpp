#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

/// Simple commands that set something: the clock and the serial number.
class tst_p3_settings : public ReceiverTest
{
    Q_OBJECT

private:
    /// The clock tools started so far, sorted by name, as they are not ordered against each other.
    static QByteArray standIns()
    {
        QFile log(u"stand-ins"_s);
        if (!log.open(QIODevice::ReadOnly))
            return {};
        QList<QByteArray> lines = log.readAll().split('\n');
        std::sort(lines.begin(), lines.end());
        return lines.join(' ').trimmed();
    }

private slots:
    void init()
    {
        startReceiver();
        QFile::remove(u"stand-ins"_s);
    }

    // ---- Date and time

    void dateTimeSetsBothClocks()
    {
        play(Handlers, uR"(
            receive 0F1A02C1#1803050E0709
            debug |processP3SetDateTimeResponse: Updated Linux system UTC time to: "2024-03-05 14:07:09 UTC"|
            display "Received Date Time Command" on "dateString" on 0 off
            sent 0F584000#1803050E0709
            changed nothing
        )"_s);
        QTRY_COMPARE(standIns(),
                     "hwclock\t--systohc timedatectl\tset-time\t2024-03-05 14:07:09 UTC");
    }

    /// The board's own time zone does not matter. An impossible time of day counts as midnight.
    void dateTimeIsTakenAsUtc()
    {
        qputenv("TZ", "Europe/Berlin");
        const auto restore = qScopeGuard([] { qunsetenv("TZ"); });
        const std::pair<QString, QString> dates[] = {
            {u"000101000000"_s, u"2000-01-01 00:00:00"_s},
            {u"FF0C1F173B3B"_s, u"2255-12-31 23:59:59"_s},
            {u"18021D010203"_s, u"2024-02-29 01:02:03"_s},
            {u"00021D010203"_s, u"2000-02-29 01:02:03"_s},
            {u"18031F021E00"_s, u"2024-03-31 02:30:00"_s}, // which summer time skips
            {u"180305180709"_s, u"2024-03-05 00:00:00"_s},
            {u"1803050E3C09"_s, u"2024-03-05 00:00:00"_s},
            {u"1803050E073C"_s, u"2024-03-05 00:00:00"_s},
            {u"180305FFFFFF"_s, u"2024-03-05 00:00:00"_s},
        };
        for (const auto &[payload, text] : dates) {
            QFile::remove(u"stand-ins"_s);
            play(Handlers, uR"(
                receive 0F1A02C1#%1
                debug |processP3SetDateTimeResponse: Updated Linux system UTC time to: "%2 UTC"|
                display "Received Date Time Command" on "dateString" on 0 off
                sent 0F584000#%1
            )"_s.arg(payload, text));
            QTRY_COMPARE(standIns(),
                         "hwclock\t--systohc timedatectl\tset-time\t" + text.toLatin1() + " UTC");
        }
    }

    void impossibleDateTimeIsRejected()
    {
        const QStringList payloads{
            QString(),         u"1803050E07"_s,   u"1803050E070900"_s, u"1803050E07090000"_s,
            u"1800050E0709"_s, u"180D050E0709"_s, u"1803000E0709"_s,   u"18041F0E0709"_s,
            u"17021D0E0709"_s, u"64021D0E0709"_s, u"1803FF0E0709"_s,
        };
        for (const QString &payload : payloads) {
            play(Handlers, uR"(
                receive 0F1A02C1#%1
                sent 0F5840BA#%1
                changed nothing
            )"_s.arg(payload));
        }
        // Tools started for these would have come before those of the next.
        receive(u"0F1A02C1#000101000000"_s);
        QTRY_VERIFY(standIns().contains("hwclock") && standIns().contains("timedatectl"));
        QTest::qWait(20);
        QCOMPARE(standIns(), "hwclock\t--systohc timedatectl\tset-time\t2000-01-01 00:00:00 UTC");
    }

    /// The answer comes after the display.
    void dateTimeStartsBothClockToolsBeforeItIsShown()
    {
        QByteArray started;
        connect(manager.get(), &CanBusManager::statusUpdated, this, [&] {
            started = QTest::qWaitFor([] { return standIns().contains("hwclock"); }) ? standIns()
                                                                                     : "none";
        });
        receive(u"0F1A02C1#1803050E0709"_s);
        QVERIFY2(started.contains("hwclock\t--systohc"), started.constData());
        // The next test would take a late one for its own.
        QTRY_VERIFY(standIns().contains("timedatectl"));
    }

    void dateTimeStartsHwclockAfterTheLogLineOnTimedatectl()
    {
        QByteArray before;
        EventLog::watcher = [&before](const QString &line) {
            if (!line.startsWith("debug |processP3SetDateTimeResponse: Updated Linux"_L1))
                return;
            QTRY_VERIFY(!standIns().isEmpty());
            QTest::qWait(300); // for one that must not come
            before = standIns();
        };
        receive(u"0F1A02C1#1803050E0709"_s);
        QCOMPARE(before, "timedatectl\tset-time\t2024-03-05 14:07:09 UTC");
        QTRY_COMPARE(standIns(), "hwclock\t--systohc " + before);
    }

    void dateTimeSucceedsWithoutClockTools()
    {
        const std::pair<QStringList, QByteArray> present[] = {
            {{}, {}},
            {{u"hwclock"_s}, "hwclock\t--systohc"},
            {{u"timedatectl"_s}, "timedatectl\tset-time\t2024-03-05 14:07:09 UTC"},
        };
        const QByteArray path = qgetenv("PATH");
        for (const auto &[tools, started] : present) {
            QFile::remove(u"stand-ins"_s);
            const QTemporaryDir programs;
            for (const QString &tool : tools) {
                QVERIFY(QFile::link(
                    QStandardPaths::findExecutable(tool, {QFile::decodeName(path).split(u':')}),
                    programs.filePath(tool)));
            }
            qputenv("PATH", QFile::encodeName(programs.path()));
            play(Handlers, uR"(
                receive 0F1A02C1#1803050E0709
                debug |processP3SetDateTimeResponse: Updated Linux system UTC time to: "2024-03-05 14:07:09 UTC"|
                display "Received Date Time Command" on "dateString" on 0 off
                sent 0F584000#1803050E0709
            )"_s);
            qputenv("PATH", path);
            QTRY_COMPARE(standIns(), started);
        }
    }

    void dateTimeDoesNotWaitForClockTools()
    {
        // Both tools wait until the test has seen the answer.
        for (const QString &tool : {u"timedatectl"_s, u"hwclock"_s}) {
            replaceProgram(tool,
                           "while ! [ -e answered ]; do sleep 0.01; done\n"
                           "echo ${0##*/} >> \"$DOCKHAND_STAND_IN_LOG\"\nexit 1");
        }
        play(uR"(
            receive 0F1A02C1#1803050E0709
            display "Received Date Time Command" on "dateString" on 0 off
            sent 0F584000#1803050E0709
        )"_s);
        QVERIFY(standIns().isEmpty());
        QFile answered(u"answered"_s);
        QVERIFY(answered.open(QIODevice::WriteOnly));
        QTRY_COMPARE(standIns(), "hwclock timedatectl");
        QCOMPARE(events(), QStringList());
    }

    /// In sessions of their own, whose identifier stands in the sixth field of the state.
    void dateTimeDetachesTheClockTools()
    {
        for (const QString &tool : {u"timedatectl"_s, u"hwclock"_s}) {
            replaceProgram(tool,
                           "read -r _ _ _ _ _ session _ < /proc/self/stat\n"
                           "echo \"${0##*/} $session\" >> \"$DOCKHAND_STAND_IN_LOG\"");
        }
        QFile own(u"/proc/self/stat"_s);
        QVERIFY(own.open(QIODevice::ReadOnly));
        const QByteArray session = own.readAll().split(' ').value(5);
        QVERIFY(!session.isEmpty());
        receive(u"0F1A02C1#1803050E0709"_s);
        QTRY_VERIFY(standIns().contains("hwclock ") && standIns().contains("timedatectl "));
        const QByteArrayList words = standIns().split(' ');
        QCOMPARE(words.size(), 4);
        QVERIFY2(words[1] != session, "hwclock");
        QVERIFY2(words[3] != session, "timedatectl");
    }

    void settingsAreShownDuringATransferToo()
    {
        play(uR"(
            given 1B1A1000#0208000002000000 1B1A2000#0101000000 0F1A02C2#0841424344454647
            receive 0F1A02C1#1803050E0709
            display "Received Date Time Command" on "dateString" on 0 off
            sent 0F584000#1803050E0709
            changed nothing
            receive 0F1A02C3#48
            display "Received Serial Command" on "ABCDEFGH" on 0 off
            sent 0F584000#
            changed serialNumber ABCDEFGH
            receive 0F1A02C2#0141
            display "Received Serial Command" on "A" on 0 off
            sent 0F584000#
            changed serialNumber A, serialNumberLength 1
        )"_s);
    }

    // ---- Serial number

    void shortSerialIsStoredAtOnce()
    {
        play(Handlers, uR"(
            receive 0F1A02C2#054142434445
            debug |processP3SetSerialResponse: received  5 bytes of  5 : rcvSerialNumber  "ABCDE"|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "ABCDE"|
            display "Received Serial Command" on "ABCDE" on 0 off
            sent 0F584000#
            changed serialNumber ABCDE, serialNumberLength 5
            file serialNumber "ABCDE\n"
            # Seven bytes are the most that one frame holds.
            receive 0F1A02C2#0731323334353637
            debug |processP3SetSerialResponse: received  7 bytes of  7 : rcvSerialNumber  "1234567"|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "1234567"|
            display "Received Serial Command" on "1234567" on 0 off
            sent 0F584000#
            file serialNumber "1234567\n"
            receive 0F1A02C2#00
            debug |processP3SetSerialResponse: received  0 bytes of  0 : rcvSerialNumber  ""|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: ""|
            display "Received Serial Command" on "" on 0 off
            sent 0F584000#
            file serialNumber "\n"
        )"_s);
    }

    void longSerialComesInTwoFrames()
    {
        play(Handlers, uR"(
            receive 0F1A02C2#0C534E3132333435
            debug |processP3SetSerialResponse: received  7 bytes of  12 : rcvSerialNumber  "SN12345"|
            sent 0F584000#
            changed serialNumber SN12345, serialNumberLength 12
            file serialNumber (no file)
            receive 0F1A02C3#3637383930
            debug |processP3SetSerialExtResponse: received  5 bytes of  12 : rcvSerialNumber  "SN1234567890"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "SN1234567890"|
            display "Received Serial Command" on "SN1234567890" on 0 off
            sent 0F584000#
            changed serialNumber SN1234567890
            file serialNumber "SN1234567890\n"
            # Repeated, the second frame appends again.
            receive 0F1A02C3#3637383930
            debug |processP3SetSerialExtResponse: received  5 bytes of  12 : rcvSerialNumber  "SN123456789067890"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "SN123456789067890"|
            display "Received Serial Command" on "SN123456789067890" on 0 off
            sent 0F584000#
            changed serialNumber SN123456789067890
            file serialNumber "SN123456789067890\n"
        )"_s);
    }

    void serialOfEightBytesNeedsTwoFrames()
    {
        play(uR"(
            receive 0F1A02C2#0841424344454647
            sent 0F584000#
            file serialNumber (no file)
            receive 0F1A02C3#48
            display "Received Serial Command" on "ABCDEFGH" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEFGH\n"
        )"_s);
    }

    void serialFrameThatIsTooShortStoresThePreviousNumber()
    {
        play(Handlers, uR"(
            # Of a long number it stores nothing and fails.
            receive 0F1A02C2#0C4142
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  3|
            sent 0F5840BA#
            changed serialNumberLength 12
            file serialNumber (no file)
            receive 0F1A02C2#
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  0|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "NotReceived"|
            display "Received Serial Command" on "NotReceived" on 0 off
            sent 0F584000#
            changed serialNumberLength 0
            file serialNumber "NotReceived\n"
            receive 0F1A02C2#0541424344
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  5|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "NotReceived"|
            display "Received Serial Command" on "NotReceived" on 0 off
            sent 0F584000#
            changed serialNumberLength 5
            file serialNumber "NotReceived\n"
        )"_s);
    }

    /// The second frame's line counts its payload, not what is taken of it.
    void serialBytesBeyondTheLengthAreIgnored()
    {
        play(Handlers, uR"(
            receive 0F1A02C2#0441424344454647
            debug |processP3SetSerialResponse: received  4 bytes of  4 : rcvSerialNumber  "ABCD"|
            debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "ABCD"|
            display "Received Serial Command" on "ABCD" on 0 off
            sent 0F584000#
            file serialNumber "ABCD\n"
            given 0F1A02C2#0941424344454647
            receive 0F1A02C3#48495A5A5A
            debug |processP3SetSerialExtResponse: received  5 bytes of  9 : rcvSerialNumber  "ABCDEFGHI"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABCDEFGHI"|
            display "Received Serial Command" on "ABCDEFGHI" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEFGHI\n"
            given 0F1A02C2#0F41424344454647
            receive 0F1A02C3#48494A4B4C4D4E4F
            debug |processP3SetSerialExtResponse: received  8 bytes of  15 : rcvSerialNumber  "ABCDEFGHIJKLMNO"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABCDEFGHIJKLMNO"|
            display "Received Serial Command" on "ABCDEFGHIJKLMNO" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEFGHIJKLMNO\n"
        )"_s);
    }

    /// Each frame is decoded by itself.
    void serialIsUtf8()
    {
        play(uR"(
            receive 0F1A02C2#04C3A4C39F
            display "Received Serial Command" on "äß" on 0 off
            sent 0F584000#
            file serialNumber "\xC3\xA4\xC3\x9F\n"
            given 0F1A02C2#0941424344454647
            receive 0F1A02C3#C3A4
            display "Received Serial Command" on "ABCDEFGä" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEFG\xC3\xA4\n"
            given 0F1A02C2#08414243444546C3
            receive 0F1A02C3#A4
            display "Received Serial Command" on "ABCDEF��" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEF\xEF\xBF\xBD\xEF\xBF\xBD\n"
        )"_s);
    }

    void secondSerialFrameThatIsTooShortStoresTheFirstPart()
    {
        play(Handlers, uR"(
            given 0F1A02C2#0C534E3132333435
            receive 0F1A02C3#36373839
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  4|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "SN12345"|
            display "Received Serial Command" on "SN12345" on 0 off
            sent 0F584000#
            changed nothing
            file serialNumber "SN12345\n"
            # No frame holds the rest of 20 bytes.
            given 0F1A02C2#1441424344454647
            receive 0F1A02C3#48494A4B4C4D4E4F
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  8|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABCDEFG"|
            display "Received Serial Command" on "ABCDEFG" on 0 off
            sent 0F584000#
            changed nothing
            file serialNumber "ABCDEFG\n"
        )"_s);
    }

    void secondSerialFrameAfterACompleteNumberAppendsSevenBytes()
    {
        play(Handlers, uR"(
            # Before any number too.
            receive 0F1A02C3#31323334353637
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  7|
            debug |processP3SetSerialExtResponse: received  7 bytes of  0 : rcvSerialNumber  "NotReceived1234567"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "NotReceived1234567"|
            display "Received Serial Command" on "NotReceived1234567" on 0 off
            sent 0F584000#
            file serialNumber "NotReceived1234567\n"
            given 0F1A02C2#03414243
            receive 0F1A02C3#3132333435363738
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  8|
            debug |processP3SetSerialExtResponse: received  8 bytes of  3 : rcvSerialNumber  "ABC1234567"|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABC1234567"|
            display "Received Serial Command" on "ABC1234567" on 0 off
            sent 0F584000#
            file serialNumber "ABC1234567\n"
            given 0F1A02C2#0741424344454647
            receive 0F1A02C3#313233343536
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  6|
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  6|
            debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABCDEFG"|
            display "Received Serial Command" on "ABCDEFG" on 0 off
            sent 0F584000#
            file serialNumber "ABCDEFG\n"
        )"_s);
    }

    void newSerialReplacesTheFile()
    {
        ServiceTree::write("serialNumber", "a longer number of an earlier time\n");
        play(uR"(
            receive 0F1A02C2#0158
            display "Received Serial Command" on "X" on 0 off
            sent 0F584000#
            file serialNumber "X\n"
        )"_s);
    }

    void serialLengthIsAByte()
    {
        play(Handlers, uR"(
            receive 0F1A02C2#FF41424344454647
            debug |processP3SetSerialResponse: received  7 bytes of  255 : rcvSerialNumber  "ABCDEFG"|
            sent 0F584000#
            changed serialNumber ABCDEFG, serialNumberLength 255
            file serialNumber (no file)
        )"_s);
    }

    void serialIsStoredWhenTheLogSaysSo()
    {
        QByteArray stored;
        qsizetype open = -1;
        EventLog::watcher = [&](const QString &line) {
            if (line.contains("Successfully wrote serial number to storage:"_L1)) {
                stored = ServiceTree::read("serialNumber");
                open = ServiceTree::openFiles().size();
            }
        };
        receive(u"0F1A02C2#03414243"_s);
        QCOMPARE(stored, "ABC\n");
        QCOMPARE(open, 0);
    }

    void serialWithoutItsDirectoryFails()
    {
        QVERIFY(QDir(ServiceTree::path("")).removeRecursively());
        play(Handlers, uR"(
            receive 0F1A02C2#0141
            debug |processP3SetSerialResponse: received  1 bytes of  1 : rcvSerialNumber  "A"|
            warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
            receive 0F1A02C2#0241
            warning |processP3SetSerialResponse: Not enough data to parse serial string:  2|
            warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
            given 0F1A02C2#0941424344454647
            receive 0F1A02C3#4849
            debug |processP3SetSerialExtResponse: received  2 bytes of  9 : rcvSerialNumber  "ABCDEFGHI"|
            warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
            receive 0F1A02C3#41
            warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  1|
            warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
            given 0F1A02C2#03414243
            receive 0F1A02C3#31323334353637
            warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  7|
            debug |processP3SetSerialExtResponse: received  7 bytes of  3 : rcvSerialNumber  "ABC1234567"|
            warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
        )"_s);
        QVERIFY(!QFile::exists(ServiceTree::path("")));
    }

    /// In memory the number is the new one all the same.
    void serialInReadOnlyDirectoryFails()
    {
        ServiceTree::write("serialNumber", "kept\n");
        const ServiceTree::ReadOnly readOnly("");
        play(uR"(
            receive 0F1A02C2#0141
            warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0F5840BA#
            changed serialNumber A, serialNumberLength 1
            file serialNumber "kept\n"
        )"_s);
    }

    void serialOnAFullDiskCountsAsStored()
    {
        QVERIFY(QFile::link(u"/dev/full"_s, ServiceTree::path("serialNumber")));
        play(uR"(
            receive 0F1A02C2#0141
            display "Received Serial Command" on "A" on 0 off
            sent 0F584000#
        )"_s);
    }
};

QTEST_GUILESS_MAIN(tst_p3_settings)
#include "tst_p3_settings.moc"
