#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using EventLog::transcript;

/// Simple commands that set something: the clock and the serial number.
class tst_p3_settings : public ReceiverTest
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void dateTimeSetsBothClocks();
    void dateTimeIsTakenAsUtc_data();
    void dateTimeIsTakenAsUtc();
    void impossibleDateTimeIsRejected_data();
    void impossibleDateTimeIsRejected();
    void dateTimeStartsBothClockToolsBeforeItIsShown();
    void dateTimeSucceedsWithoutClockTools_data();
    void dateTimeSucceedsWithoutClockTools();
    void dateTimeDoesNotWaitForClockTools();
    void dateTimeDetachesTheClockTools();

    void settingsAreShownDuringATransferToo_data();
    void settingsAreShownDuringATransferToo();

    void shortSerialIsStoredAtOnce();
    void serialOfSevenBytesNeedsOneFrame();
    void serialOfEightBytesNeedsTwoFrames();
    void longSerialComesInTwoFrames();
    void repeatedSerialExtAppendsAgain();
    void serialFrameTooShortForALongNumberFails();
    void serialFrameTooShortForAShortNumberStoresThePreviousOne();
    void emptySerialFrameStoresThePreviousNumber();
    void serialOfNoBytesIsEmpty();
    void serialBytesBeyondTheLengthAreIgnored_data();
    void serialBytesBeyondTheLengthAreIgnored();
    void serialIsUtf8_data();
    void serialIsUtf8();
    void serialOfTwentyBytesCannotBeCompleted();
    void serialExtAfterACompleteNumberAppendsSevenBytes();
    void serialExtTooShortAfterACompleteNumberStoresItAgain();
    void serialExtBeforeAnySerialTakesSevenBytes();
    void serialExtTooShortStoresTheFirstPart();
    void newSerialReplacesTheFile();
    void serialLengthIsAByte();
    void serialWithoutItsDirectoryFails_data();
    void serialWithoutItsDirectoryFails();
    void serialInReadOnlyDirectoryFails();
    void serialOnAFullDiskCountsAsStored();

private:
    QByteArray standIns() const;
    void replaceClockTools(const QByteArray &script) const;

    QByteArray m_path;
};

void tst_p3_settings::init()
{
    startReceiver();
    m_path = qgetenv("PATH");
    QFile::remove(u"stand-ins"_s);
}

void tst_p3_settings::cleanup()
{
    qputenv("PATH", m_path);
    stopReceiver();
}

/// The clock tools started so far, sorted by name, as they are not ordered against each other.
QByteArray tst_p3_settings::standIns() const
{
    QFile log(u"stand-ins"_s);
    if (!log.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> lines = log.readAll().split('\n');
    std::sort(lines.begin(), lines.end());
    return lines.join(' ').trimmed();
}

/// Puts \a script in the place of both clock tools until the test function has ended.
void tst_p3_settings::replaceClockTools(const QByteArray &script) const
{
    QVERIFY(QDir().mkpath(u"programs"_s));
    for (const QString &tool : {u"timedatectl"_s, u"hwclock"_s}) {
        QFile program(u"programs/"_s + tool);
        QVERIFY(program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\n" + script);
        QVERIFY(program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    qputenv("PATH", QFile::encodeName(QDir(u"programs"_s).absolutePath()) + ":" + m_path);
}

// ---- Date and time

void tst_p3_settings::dateTimeSetsBothClocks()
{
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "1803050e0709"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3SetDateTimeResponse: Updated Linux system UTC time to: "2024-03-05 14:07:09 UTC"|
        display "Received Date Time Command" on "dateString" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext [18 03 05 0e 07 09]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QTRY_COMPARE(standIns(), "hwclock\t--systohc timedatectl\tset-time\t2024-03-05 14:07:09 UTC");
}

void tst_p3_settings::dateTimeIsTakenAsUtc_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("first of all") << QByteArray("000101000000")
                                  << QByteArray("2000-01-01 00:00:00");
    QTest::newRow("last of all") << QByteArray("ff0c1f173b3b") << QByteArray("2255-12-31 23:59:59");
    QTest::newRow("leap day") << QByteArray("18021d010203") << QByteArray("2024-02-29 01:02:03");
    QTest::newRow("leap day of a century")
        << QByteArray("00021d010203") << QByteArray("2000-02-29 01:02:03");
    QTest::newRow("hour that summer time skips")
        << QByteArray("18031f021e00") << QByteArray("2024-03-31 02:30:00");
    QTest::newRow("hour 24") << QByteArray("180305180709") << QByteArray("2024-03-05 00:00:00");
    QTest::newRow("minute 60") << QByteArray("1803050e3c09") << QByteArray("2024-03-05 00:00:00");
    QTest::newRow("second 60") << QByteArray("1803050e073c") << QByteArray("2024-03-05 00:00:00");
    QTest::newRow("largest time") << QByteArray("180305ffffff")
                                  << QByteArray("2024-03-05 00:00:00");
}

void tst_p3_settings::dateTimeIsTakenAsUtc()
{
    QFETCH(QByteArray, payload);
    QFETCH(QByteArray, text);
    // The board's own time zone does not matter.
    qputenv("TZ", "Europe/Berlin");
    const auto restore = qScopeGuard([] { qunsetenv("TZ"); });
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, payload.constData()));
    QCOMPARE(
        eventsButDebug(),
        (QStringList{u"display \"Received Date Time Command\" on \"dateString\" on 0 off"_s,
                     u"sent 0f584000 ext ["_s
                         + QString::fromLatin1(QByteArray::fromHex(payload).toHex(' ')) + u']'}));
    QTRY_COMPARE(standIns(), "hwclock\t--systohc timedatectl\tset-time\t" + text + " UTC");
}

void tst_p3_settings::impossibleDateTimeIsRejected_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("sent");

    QTest::newRow("empty") << QByteArray("") << u"sent 0f5840ba ext []"_s;
    QTest::newRow("5 bytes") << QByteArray("1803050e07") << u"sent 0f5840ba ext [18 03 05 0e 07]"_s;
    QTest::newRow("7 bytes") << QByteArray("1803050e070900")
                             << u"sent 0f5840ba ext [18 03 05 0e 07 09 00]"_s;
    QTest::newRow("8 bytes") << QByteArray("1803050e07090000")
                             << u"sent 0f5840ba ext [18 03 05 0e 07 09 00 00]"_s;
    QTest::newRow("month 0") << QByteArray("1800050e0709")
                             << u"sent 0f5840ba ext [18 00 05 0e 07 09]"_s;
    QTest::newRow("month 13") << QByteArray("180d050e0709")
                              << u"sent 0f5840ba ext [18 0d 05 0e 07 09]"_s;
    QTest::newRow("day 0") << QByteArray("1803000e0709")
                           << u"sent 0f5840ba ext [18 03 00 0e 07 09]"_s;
    QTest::newRow("day 31 in April")
        << QByteArray("18041f0e0709") << u"sent 0f5840ba ext [18 04 1f 0e 07 09]"_s;
    QTest::newRow("29 February 2023")
        << QByteArray("17021d0e0709") << u"sent 0f5840ba ext [17 02 1d 0e 07 09]"_s;
    QTest::newRow("29 February 2100")
        << QByteArray("64021d0e0709") << u"sent 0f5840ba ext [64 02 1d 0e 07 09]"_s;
    QTest::newRow("day 255") << QByteArray("1803ff0e0709")
                             << u"sent 0f5840ba ext [18 03 ff 0e 07 09]"_s;
}

void tst_p3_settings::impossibleDateTimeIsRejected()
{
    QFETCH(QByteArray, payload);
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, payload.constData()));
    QStringList lines = events();
    QCOMPARE(lines.size(), 3);
    QTEST(lines.takeAt(1), "sent");
    QCOMPARE(lines, transcript(R"(
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )"));

    // Tools started for this command would have come before those of the next.
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "000101000000"));
    QTRY_VERIFY(standIns().contains("hwclock") && standIns().contains("timedatectl"));
    QTest::qWait(20);
    QCOMPARE(standIns(), "hwclock\t--systohc timedatectl\tset-time\t2000-01-01 00:00:00 UTC");
}

void tst_p3_settings::dateTimeStartsBothClockToolsBeforeItIsShown()
{
    // The answer comes after the display.
    QByteArray started;
    connect(manager.get(), &CanBusManager::statusUpdated, this, [&] {
        started = QTest::qWaitFor([&] { return standIns().contains("hwclock"); }) ? standIns()
                                                                                  : "none";
    });
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "1803050e0709"));
    QVERIFY2(started.contains("hwclock\t--systohc"), started.constData());
    // The next test would take a late one for its own.
    QTRY_VERIFY(standIns().contains("timedatectl"));
}

void tst_p3_settings::dateTimeSucceedsWithoutClockTools_data()
{
    QTest::addColumn<QStringList>("tools");
    QTest::addColumn<QByteArray>("started");

    QTest::newRow("none") << QStringList() << QByteArray();
    QTest::newRow("hwclock only") << QStringList{u"hwclock"_s} << QByteArray("hwclock\t--systohc");
    QTest::newRow("timedatectl only")
        << QStringList{u"timedatectl"_s}
        << QByteArray("timedatectl\tset-time\t2024-03-05 14:07:09 UTC");
}

void tst_p3_settings::dateTimeSucceedsWithoutClockTools()
{
    QFETCH(QStringList, tools);
    QFETCH(QByteArray, started);
    const QTemporaryDir programs;
    for (const QString &tool : tools)
        QVERIFY(QFile::link(QStandardPaths::findExecutable(tool), programs.filePath(tool)));
    qputenv("PATH", QFile::encodeName(programs.path()));
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "1803050e0709"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3SetDateTimeResponse: Updated Linux system UTC time to: "2024-03-05 14:07:09 UTC"|
        display "Received Date Time Command" on "dateString" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext [18 03 05 0e 07 09]
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QTRY_COMPARE(standIns(), started);
}

void tst_p3_settings::dateTimeDoesNotWaitForClockTools()
{
    // Both tools wait until the test has seen the answer.
    replaceClockTools("while ! [ -e answered ]; do sleep 0.01; done\n"
                      "echo ${0##*/} >> \"$DOCKHAND_STAND_IN_LOG\"\nexit 1\n");
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "1803050e0709"));
    QCOMPARE(sentFrames(), QStringList{u"sent 0f584000 ext [18 03 05 0e 07 09]"_s});
    QVERIFY(standIns().isEmpty());
    QFile answered(u"answered"_s);
    QVERIFY(answered.open(QIODevice::WriteOnly));
    QTRY_COMPARE(standIns(), "hwclock timedatectl");
    QCOMPARE(events(), QStringList());
}

void tst_p3_settings::dateTimeDetachesTheClockTools()
{
    // Both tools log their session, which stands in the sixth field.
    replaceClockTools("read -r _ _ _ _ _ session _ < /proc/self/stat\n"
                      "echo \"${0##*/} $session\" >> \"$DOCKHAND_STAND_IN_LOG\"\n");
    QFile own(u"/proc/self/stat"_s);
    QVERIFY(own.open(QIODevice::ReadOnly));
    const QByteArray session = own.readAll().split(' ').value(5);
    QVERIFY(!session.isEmpty());
    call("processP3SetDateTimeResponse", frame(0x0F1A02C1, "1803050e0709"));
    QTRY_VERIFY(standIns().contains("hwclock ") && standIns().contains("timedatectl "));
    const QByteArrayList words = standIns().split(' ');
    QCOMPARE(words.size(), 4);
    QVERIFY2(words[1] != session, "hwclock");
    QVERIFY2(words[3] != session, "timedatectl");
}

// ---- The display during a transfer

void tst_p3_settings::settingsAreShownDuringATransferToo_data()
{
    QTest::addColumn<QCanBusFrame>("command");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("date and time") << frame(0x0F1A02C1, "1803050e0709") << transcript(R"(
        info |processP3CanCommand: Set Date Time Command Received|
        display "Received Date Time Command" on "dateString" on 0 off
        sent 0f584000 ext [18 03 05 0e 07 09]
    )");
    QTest::newRow("serial number") << frame(0x0F1A02C2, "0141") << transcript(R"(
        info |processP3CanCommand: Set Serial Command Received|
        display "Received Serial Command" on "A" on 0 off
        sent 0f584000 ext []
    )");
    QTest::newRow("rest of the serial number") << frame(0x0F1A02C3, "42") << transcript(R"(
        info |processP3CanCommand: Set Serial Ext Command Received|
        display "Received Serial Command" on "NotReceivedB" on 0 off
        sent 0f584000 ext []
    )");
}

void tst_p3_settings::settingsAreShownDuringATransferToo()
{
    QFETCH(QCanBusFrame, command);
    session().transferInProgress = true;
    manager->serialNumberLength = 8;
    call("processP3CanCommand", command);
    QTEST(eventsButDebug(), "expected");
    QVERIFY(session().transferInProgress);
}

// ---- Serial number

void tst_p3_settings::shortSerialIsStoredAtOnce()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "054142434445"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3SetSerialResponse: received  5 bytes of  5 : rcvSerialNumber  "ABCDE"|
        debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "ABCDE"|
        display "Received Serial Command" on "ABCDE" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(manager->serialNumber, u"ABCDE"_s);
    QCOMPARE(manager->serialNumberLength, 5u);
    QCOMPARE(ServiceTree::read("serialNumber"), "ABCDE\n");
}

void tst_p3_settings::serialOfSevenBytesNeedsOneFrame()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0731323334353637"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Serial Command" on "1234567" on 0 off
        sent 0f584000 ext []
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "1234567\n");
}

void tst_p3_settings::serialOfEightBytesNeedsTwoFrames()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0841424344454647"));
    QCOMPARE(eventsButDebug(), transcript("sent 0f584000 ext []"));
    QCOMPARE(ServiceTree::read("serialNumber"), "(no file)");

    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "48"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Serial Command" on "ABCDEFGH" on 0 off
        sent 0f584000 ext []
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "ABCDEFGH\n");
}

void tst_p3_settings::longSerialComesInTwoFrames()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0c534e3132333435"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3SetSerialResponse: received  7 bytes of  12 : rcvSerialNumber  "SN12345"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(manager->serialNumber, u"SN12345"_s);
    QCOMPARE(ServiceTree::read("serialNumber"), "(no file)");

    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "3637383930"));
    QCOMPARE(events(), transcript(R"(
        debug |processP3SetSerialExtResponse: received  5 bytes of  12 : rcvSerialNumber  "SN1234567890"|
        debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "SN1234567890"|
        display "Received Serial Command" on "SN1234567890" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(manager->serialNumber, u"SN1234567890"_s);
    QCOMPARE(manager->serialNumberLength, 12u);
    QCOMPARE(ServiceTree::read("serialNumber"), "SN1234567890\n");
}

void tst_p3_settings::repeatedSerialExtAppendsAgain()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0c534e3132333435"));
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "3637383930"));
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "3637383930"));
    QCOMPARE(manager->serialNumber, u"SN123456789067890"_s);
    QCOMPARE(ServiceTree::read("serialNumber"), "SN123456789067890\n");
    QCOMPARE(eventsButDebug(), transcript(R"(
        sent 0f584000 ext []
        display "Received Serial Command" on "SN1234567890" on 0 off
        sent 0f584000 ext []
        display "Received Serial Command" on "SN123456789067890" on 0 off
        sent 0f584000 ext []
    )"));
}

void tst_p3_settings::serialFrameTooShortForALongNumberFails()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0c4142"));
    QCOMPARE(events(), transcript(R"(
        warning |processP3SetSerialResponse: Not enough data to parse serial string:  3|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )"));
    QCOMPARE(manager->serialNumber, u"NotReceived"_s);
    QCOMPARE(manager->serialNumberLength, 12u);
    QCOMPARE(ServiceTree::read("serialNumber"), "(no file)");
}

void tst_p3_settings::serialFrameTooShortForAShortNumberStoresThePreviousOne()
{
    manager->serialNumber = u"previous"_s;
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0541424344"));
    QCOMPARE(events(), transcript(R"(
        warning |processP3SetSerialResponse: Not enough data to parse serial string:  5|
        debug |processP3SetSerialResponse: Successfully wrote serial number to storage: "previous"|
        display "Received Serial Command" on "previous" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(manager->serialNumberLength, 5u);
    QCOMPARE(ServiceTree::read("serialNumber"), "previous\n");
}

void tst_p3_settings::emptySerialFrameStoresThePreviousNumber()
{
    manager->serialNumberLength = 9;
    call("processP3SetSerialResponse", frame(0x0F1A02C2));
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |processP3SetSerialResponse: Not enough data to parse serial string:  0|
        display "Received Serial Command" on "NotReceived" on 0 off
        sent 0f584000 ext []
    )"));
    QCOMPARE(manager->serialNumberLength, 0u);
    QCOMPARE(ServiceTree::read("serialNumber"), "NotReceived\n");
}

void tst_p3_settings::serialOfNoBytesIsEmpty()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "00"));
    QCOMPARE(events().mid(0, 3), transcript(R"(
        debug |processP3SetSerialResponse: received  0 bytes of  0 : rcvSerialNumber  ""|
        debug |processP3SetSerialResponse: Successfully wrote serial number to storage: ""|
        display "Received Serial Command" on "" on 0 off
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "\n");
}

void tst_p3_settings::serialBytesBeyondTheLengthAreIgnored_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("rest");
    QTest::addColumn<QByteArray>("stored");

    QTest::newRow("in the first frame")
        << QByteArray("0441424344454647") << QByteArray() << QByteArray("ABCD\n");
    QTest::newRow("in the second frame")
        << QByteArray("0941424344454647") << QByteArray("48495a5a5a") << QByteArray("ABCDEFGHI\n");
    QTest::newRow("fifteen bytes, all of two frames")
        << QByteArray("0f41424344454647") << QByteArray("48494a4b4c4d4e4f")
        << QByteArray("ABCDEFGHIJKLMNO\n");
}

void tst_p3_settings::serialBytesBeyondTheLengthAreIgnored()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, rest);
    call("processP3SetSerialResponse", frame(0x0F1A02C2, first.constData()));
    if (!rest.isEmpty()) {
        QCOMPARE(ServiceTree::read("serialNumber"), "(no file)");
        call("processP3SetSerialExtResponse", frame(0x0F1A02C3, rest.constData()));
        // The line counts the payload, not what was taken of it.
        QVERIFY(events().contains(
            u"debug |processP3SetSerialExtResponse: received  %1 bytes of  %2 : rcvSerialNumber  \"%3\"|"_s
                .arg(rest.size() / 2)
                .arg(manager->serialNumberLength)
                .arg(manager->serialNumber)));
    }
    QTEST(ServiceTree::read("serialNumber"), "stored");
}

void tst_p3_settings::serialIsUtf8_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("rest");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("stored");

    QTest::newRow("in the first frame") << QByteArray("04c3a4c39f") << QByteArray()
                                        << u"\u00e4\u00df"_s << QByteArray("\xc3\xa4\xc3\x9f\n");
    QTest::newRow("in the second frame") << QByteArray("0941424344454647") << QByteArray("c3a4")
                                         << u"ABCDEFG\u00e4"_s << QByteArray("ABCDEFG\xc3\xa4\n");
    // Each frame is decoded by itself.
    QTest::newRow("split between the frames")
        << QByteArray("08414243444546c3") << QByteArray("a4") << u"ABCDEF\ufffd\ufffd"_s
        << QByteArray("ABCDEF\xef\xbf\xbd\xef\xbf\xbd\n");
}

void tst_p3_settings::serialIsUtf8()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, rest);
    QFETCH(QString, text);
    call("processP3SetSerialResponse", frame(0x0F1A02C2, first.constData()));
    if (!rest.isEmpty())
        call("processP3SetSerialExtResponse", frame(0x0F1A02C3, rest.constData()));
    QCOMPARE(manager->serialNumber, text);
    QTEST(ServiceTree::read("serialNumber"), "stored");
    QVERIFY(
        events().contains(u"display \"Received Serial Command\" on \"%1\" on 0 off"_s.arg(text)));
}

void tst_p3_settings::serialOfTwentyBytesCannotBeCompleted()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "1441424344454647"));
    events();
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "48494a4b4c4d4e4f"));
    QCOMPARE(events(), transcript(R"(
        warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  8|
        debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABCDEFG"|
        display "Received Serial Command" on "ABCDEFG" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "ABCDEFG\n");
}

void tst_p3_settings::serialExtAfterACompleteNumberAppendsSevenBytes()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "03414243"));
    events();
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "3132333435363738"));
    QCOMPARE(events(), transcript(R"(
        warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  8|
        debug |processP3SetSerialExtResponse: received  8 bytes of  3 : rcvSerialNumber  "ABC1234567"|
        debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "ABC1234567"|
        display "Received Serial Command" on "ABC1234567" on 0 off
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  0 frameId:  "f584000"|
        sent 0f584000 ext []
        debug |writeFrame: Frame sent with ID: "f584000"|
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "ABC1234567\n");
}

void tst_p3_settings::serialExtTooShortAfterACompleteNumberStoresItAgain()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0741424344454647"));
    events();
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "313233343536"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  6|
        warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  6|
        display "Received Serial Command" on "ABCDEFG" on 0 off
        sent 0f584000 ext []
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "ABCDEFG\n");
}

void tst_p3_settings::serialExtBeforeAnySerialTakesSevenBytes()
{
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "31323334353637"));
    QCOMPARE(events().mid(0, 4), transcript(R"(
        warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  7|
        debug |processP3SetSerialExtResponse: received  7 bytes of  0 : rcvSerialNumber  "NotReceived1234567"|
        debug |processP3SetSerialExtResponse: Successfully wrote serial number to storage: "NotReceived1234567"|
        display "Received Serial Command" on "NotReceived1234567" on 0 off
    )"));
    QCOMPARE(ServiceTree::read("serialNumber"), "NotReceived1234567\n");
}

void tst_p3_settings::serialExtTooShortStoresTheFirstPart()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0c534e3132333435"));
    events();
    call("processP3SetSerialExtResponse", frame(0x0F1A02C3, "36373839"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  4|
        display "Received Serial Command" on "SN12345" on 0 off
        sent 0f584000 ext []
    )"));
    QCOMPARE(manager->serialNumber, u"SN12345"_s);
    QCOMPARE(manager->serialNumberLength, 12u);
    QCOMPARE(ServiceTree::read("serialNumber"), "SN12345\n");
}

void tst_p3_settings::newSerialReplacesTheFile()
{
    ServiceTree::write("serialNumber", "a longer number of an earlier time\n");
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0158"));
    QCOMPARE(ServiceTree::read("serialNumber"), "X\n");
    QVERIFY(!events().contains(u"sync"_s));
}

void tst_p3_settings::serialLengthIsAByte()
{
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "ff41424344454647"));
    QCOMPARE(manager->serialNumberLength, 255u);
    QCOMPARE(events().constFirst(),
             u"debug |processP3SetSerialResponse: received  7 bytes of  255 : "
             "rcvSerialNumber  \"ABCDEFG\"|"_s);
    QCOMPARE(ServiceTree::read("serialNumber"), "(no file)");
}

void tst_p3_settings::serialWithoutItsDirectoryFails_data()
{
    QTest::addColumn<QByteArray>("handler");
    QTest::addColumn<quint32>("length");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("first frame") << QByteArray("processP3SetSerialResponse") << 0u
                                 << QByteArray("0141") << transcript(R"(
        debug |processP3SetSerialResponse: received  1 bytes of  1 : rcvSerialNumber  "A"|
        warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("first frame that is too short")
        << QByteArray("processP3SetSerialResponse") << 0u << QByteArray("0241") << transcript(R"(
        warning |processP3SetSerialResponse: Not enough data to parse serial string:  2|
        warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("second frame") << QByteArray("processP3SetSerialExtResponse") << 8u
                                  << QByteArray("4142") << transcript(R"(
        debug |processP3SetSerialExtResponse: received  2 bytes of  8 : rcvSerialNumber  "NotReceivedA"|
        warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("second frame that is too short")
        << QByteArray("processP3SetSerialExtResponse") << 9u << QByteArray("41") << transcript(R"(
        warning |processP3SetSerialExtResponse: Not enough data to parse serial string:  1|
        warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
    QTest::newRow("second frame after a complete number")
        << QByteArray("processP3SetSerialExtResponse") << 3u << QByteArray("31323334353637")
        << transcript(R"(
        warning |processP3SetSerialExtResponse: Something has gone wrong, I have already received the full serial. I should not get this:  7|
        debug |processP3SetSerialExtResponse: received  7 bytes of  3 : rcvSerialNumber  "NotReceived1234567"|
        warning |processP3SetSerialExtResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
        debug |sendP3ResposesMessage: src:  26  dest:  24  slotNum:  0  responseNum:  186 frameId:  "f5840ba"|
        sent 0f5840ba ext []
        debug |writeFrame: Frame sent with ID: "f5840ba"|
    )");
}

void tst_p3_settings::serialWithoutItsDirectoryFails()
{
    QFETCH(QByteArray, handler);
    QFETCH(quint32, length);
    QFETCH(QByteArray, payload);
    QVERIFY(QDir(ServiceTree::path("")).removeRecursively());
    manager->serialNumberLength = length;
    call(handler.constData(), frame(0x0F1A02C2, payload.constData()));
    QTEST(events(), "expected");
    QVERIFY(!QFile::exists(ServiceTree::path("")));
}

void tst_p3_settings::serialInReadOnlyDirectoryFails()
{
    ServiceTree::write("serialNumber", "kept\n");
    {
        const ServiceTree::ReadOnly readOnly("");
        call("processP3SetSerialResponse", frame(0x0F1A02C2, "0141"));
        QCOMPARE(eventsButDebug(), transcript(R"(
            warning |processP3SetSerialResponse: File write failed! Verify directory permissions for path: "/media/service/korvane/serialNumber"|
            sent 0f5840ba ext []
        )"));
    }
    // In memory the number is the new one all the same.
    QCOMPARE(manager->serialNumber, u"A"_s);
    QCOMPARE(ServiceTree::read("serialNumber"), "kept\n");
}

void tst_p3_settings::serialOnAFullDiskCountsAsStored()
{
    QVERIFY(QFile::link(u"/dev/full"_s, ServiceTree::path("serialNumber")));
    call("processP3SetSerialResponse", frame(0x0F1A02C2, "0141"));
    QCOMPARE(eventsButDebug(), transcript(R"(
        display "Received Serial Command" on "A" on 0 off
        sent 0f584000 ext []
    )"));
}

QTEST_GUILESS_MAIN(tst_p3_settings)
#include "tst_p3_settings.moc"
