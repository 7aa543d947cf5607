#include "candump.h"
#include "decoder.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

static QCanBusFrame parsed(const char *frame)
{
    const auto entry = Candump::parse(QByteArray("(1.000000) can0 ") + frame + '\n');
    return entry ? entry->frame : QCanBusFrame(QCanBusFrame::InvalidFrame);
}

static QString lineOf(const char *frame)
{
    return decodedLine(parsed(frame), decode(parsed(frame)), 0);
}

class DecoderTest : public QObject
{
    Q_OBJECT

private slots:
    void line_tellsTheMessage_data()
    {
        QTest::addColumn<QString>("text");
        const auto row = [](const char *frame, const QString &text) {
            QTest::newRow(frame) << text;
        };
        const QString there = u"Shipwright > Dockhand  "_s;
        const QString back = u"Dockhand > Shipwright  "_s;

        row("0F1A02C0#A55A", there + u"P3 Start Configuration: slot 0"_s);
        row("0F0E12C0#A55A0011", u"Shipwright > node 14  P3 Start Configuration: slot 2"_s);
        row("0F1A02C0#5AA5", there + u"P3 Start Configuration: slot 0  ! no handshake A5 5A"_s);
        row("0F1A02C1#1803050E0709",
            there + u"P3 Set Date Time: slot 0, 2024-03-05 14:07:09 UTC"_s);
        row("0F1A02C1#170D1D000000",
            there + u"P3 Set Date Time: slot 0, 2023-13-29 00:00:00 UTC  ! no such day"_s);
        row("0F1A02C1#1803", there + u"P3 Set Date Time: slot 0  ! 2 bytes, 6 expected"_s);
        row("0F1A02C2#0C534E3132333435",
            there + u"P3 Set Serial: slot 0, 12 bytes in all, \"SN12345\""_s);
        row("0F1A02C2#0C4142",
            there
                + u"P3 Set Serial: slot 0, 12 bytes in all, \"AB\"  ! 3 bytes, at least 8 expected"_s);
        row("0F1A02C2#", there + u"P3 Set Serial: slot 0  ! 0 bytes, at least 1 expected"_s);
        row("0F1A02C3#3637383930", there + u"P3 Set Serial Ext: slot 0, \"67890\""_s);
        // U+009B starts an escape sequence in one character, U+202E reverses the text direction.
        row("0F1A02C2#071B5B33316D0A41",
            there + u"P3 Set Serial: slot 0, 7 bytes in all, \"\\u001b[31m\\nA\""_s);
        row("0F1A02C3#C29BE280AE", there + u"P3 Set Serial Ext: slot 0, \"\\u009b\\u202e\""_s);
        row("0F1A02C4#", there + u"P3 End Configuration: slot 0"_s);
        row("0F1A02C5#", there + u"P3 command: slot 0, operation 5  ! unknown operation"_s);
        row("0F1A0280#", there + u"P3 command: slot 0, interface 10, operation 0"_s);
        row("0F584000#5AA5", back + u"P3 response: slot 0, code 0 (success), handshake 5A A5"_s);
        row("0F5858BA#", back + u"P3 response: slot 3, code 186 (failure)"_s);
        row("0F583FFF#", back + u"P3 event: number 16383"_s);
        row("14000000#01", u"node 0 > node 0  P5 message"_s);
        row("10000000#", u"node 0 > node 0  protocol type 4"_s);
        row("1B1A0000#020810270000",
            there + u"P6 Transfer Info: file type 2 (generic), 10000 bytes, version 2"_s);
        row("1B1A0000#040C10270000",
            there
                + u"P6 Transfer Info: file type 4 (unknown), 10000 bytes, version 3  "
                  "! version 2 expected"_s);
        row("1B1A0000#0208102700", there + u"P6 Transfer Info  ! 5 bytes, at least 6 expected"_s);
        row("1B580000#0A3FE803E80360EA",
            back
                + u"P6 Transfer Info answer: code 0 (success), version 2, flag 1, frame limit 63, "
                  "parameters 1000, 1000, 60000"_s);
        row("1B58001D#0A3FE803E80360EA",
            back
                + u"P6 Transfer Info answer: code 29 (Transfer Info rejected), version 2, flag 1, frame "
                  "limit 63, parameters 1000, 1000, 60000"_s);
        row("1B1A1000#030800000A000000",
            there + u"P6 Initiate Transfer: file type 3 (package), 10 records, version 2"_s);
        row("1B1A1000#0308", there + u"P6 Initiate Transfer  ! 2 bytes, 8 expected"_s);
        row("1B58101E#0000000000000000",
            back + u"P6 Initiate Transfer answer: code 30 (Initiate Transfer rejected)"_s);
        row("1B1A2000#0305000000", there + u"P6 Record Start: record 5, 3 frames"_s);
        row("1B1A2000#4105000000",
            there + u"P6 Record Start: record 5, 65 frames  ! at most 64 frames can be numbered"_s);
        row("1B1AF3F0#0102030405060708", there + u"P6 Data Frame: frame 63"_s);
        row("1B1A3000#2639F4CB", there + u"P6 Record End: CRC-32 0xcbf43926"_s);
        row("1B583000#00", back + u"P6 Record End answer: code 0 (success), CRC-32 matches"_s);
        row("1B5830BA#01", back + u"P6 Record End answer: code 186 (failure), CRC-32 differs"_s);
        row("1B1A4000#2639F4CB", there + u"P6 Transfer Complete: CRC-32 0xcbf43926"_s);
        row("1B584000#2639F4CB",
            back
                + u"P6 Transfer Complete answer: code 0 (success), receiver's CRC-32 0xcbf43926"_s);
        row("1B1A5000#", there + u"P6 type 5  ! unknown type"_s);
        row("1B582000#", back + u"P6 type 2 answer: code 0 (success)  ! a type without answer"_s);
        row("123#01", u"11-bit frame"_s);
        row("00000123#R", u"remote frame"_s);
        row("20000020#0000000000000000", u"bus error  ! no acknowledgement"_s);
    }

    void line_tellsTheMessage()
    {
        QFETCH(QString, text);
        const QString line = lineOf(QTest::currentDataTag());
        QCOMPARE(line.mid(47), text);
    }

    void line_startsWithTimeIdentifierAndBytes()
    {
        const auto entry = Candump::parse("(1436509052.249713) can0 1B1A3000#2639F4CB\n");
        QVERIFY(entry);
        QCOMPARE(
            decodedLine(entry->frame, decode(entry->frame), 1436509051'249'700),
            u"  1.000013  1B1A3000  26 39 F4 CB              Shipwright > Dockhand  P6 Record End: "
            "CRC-32 0xcbf43926"_s);
    }

    void object_carriesTheFields()
    {
        const QJsonObject expected{
            {u"timestamp"_s, 1.0},
            {u"id"_s, u"1B1A2000"_s},
            {u"data"_s, u"4105000000"_s},
            {u"from"_s, u"Shipwright"_s},
            {u"to"_s, u"Dockhand"_s},
            {u"message"_s, u"P6 Record Start"_s},
            {u"fields"_s, QJsonObject{{u"record"_s, 5}, {u"frames"_s, 65}}},
            {u"fault"_s, u"at most 64 frames can be numbered"_s},
        };
        QCOMPARE(
            decodedObject(parsed("1B1A2000#4105000000"), decode(parsed("1B1A2000#4105000000"))),
            expected);
    }

    void log_blanksInTheInterfacesNameBecomeUnderscores()
    {
        const auto entry = Candump::parse("(1.000000) can0 123#01\n");
        QVERIFY(entry);
        const QByteArray line = Candump::format(u"my can 0"_s, entry->frame);
        QCOMPARE(line, QByteArrayLiteral("(1.000000) my_can_0 123#01\n"));
        QVERIFY(Candump::parse(line));
    }

    void log_timesAreReadInEveryForm_data()
    {
        QTest::addColumn<QByteArray>("time");
        QTest::addColumn<qint64>("microSeconds");
        QTest::newRow("microseconds")
            << QByteArrayLiteral("1436509052.249713") << qint64(1436509052249713);
        QTest::newRow("nanoseconds")
            << QByteArrayLiteral("1436509052.249713999") << qint64(1436509052249713);
        QTest::newRow("milliseconds") << QByteArrayLiteral("12.345") << qint64(12345000);
        QTest::newRow("differences that go back") << QByteArrayLiteral("-0.000250") << qint64(-250);
    }

    void log_timesAreReadInEveryForm()
    {
        QFETCH(QByteArray, time);
        QFETCH(qint64, microSeconds);
        const auto entry = Candump::parse('(' + time + ") can0 123#01\n");
        QVERIFY(entry);
        QCOMPARE(Shipwright::microSeconds(entry->frame.timeStamp()), microSeconds);
    }

    void lines_areRead_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("logged"); // the same in the log format
        const auto row = [](const char *name, const char *line, const char *logged) {
            QTest::newRow(name) << QByteArray(line) << QByteArray(logged);
        };
        for (const char *line :
             {"(1436509052.249713) can0 0F1A02C0#A55A\n", "(0.000001) vcan12 1B1A3000#\n",
              "(1.000000) can0 7FF#0102030405060708\n", "(1.000000) can0 00000001#R\n",
              "(1.000000) can0 20000040#0000000000000000\n"})
            row(line, line, line);
        row("with candump -x", "(1.000000) can0 0F1A02C0#A55A T\n",
            "(1.000000) can0 0F1A02C0#A55A\n");
        row("plain", "  can0  0F1A02C0   [2]  A5 5A", "(0.000000) can0 0F1A02C0#A55A\n");
        row("no bytes", "  can0  0F1A02C4   [0] ", "(0.000000) can0 0F1A02C4#\n");
        row("11-bit identifier", "  vcan0       123   [1]  7F", "(0.000000) vcan0 123#7F\n");
        row("absolute time", " (1436509052.249713)  can0  0F1A02C0   [2]  A5 5A",
            "(1436509052.249713) can0 0F1A02C0#A55A\n");
        row("time from zero", " (001.000250)  can0  0F1A02C0   [2]  A5 5A",
            "(1.000250) can0 0F1A02C0#A55A\n");
        row("bytes as text", "  can0  0F1A02C0   [2]  A5 5A    '.Z'",
            "(0.000000) can0 0F1A02C0#A55A\n");
        row("direction and flags", "  can0  RX - -  0F1A02C0   [2]  A5 5A",
            "(0.000000) can0 0F1A02C0#A55A\n");
        row("remote frame", "  can0  00000123   [0]  remote request",
            "(0.000000) can0 00000123#R\n");
        row("error frame", "  can0  20000040   [8]  00 00 00 00 00 00 00 00   ERRORFRAME",
            "(0.000000) can0 20000040#0000000000000000\n");
    }

    void lines_areRead()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, logged);
        const auto entry = Candump::parse(line);
        QVERIFY(entry);
        QCOMPARE(Candump::format(entry->interfaceName, entry->frame), logged);
    }

    void printedDates_areLocalTime()
    {
        const auto entry = Candump::parse(" (2015-07-10 07:50:52.249713)  can0  123   [0] ");
        QVERIFY(entry);
        const QDateTime time(QDate(2015, 7, 10), QTime(7, 50, 52));
        QCOMPARE(entry->frame.timeStamp().seconds(), time.toSecsSinceEpoch());
        QCOMPARE(entry->frame.timeStamp().microSeconds(), 249713);
    }

    void log_otherLinesAreNone_data()
    {
        QTest::addColumn<QByteArray>("line");
        for (const char *line :
             {"", "\n", "can0 123#01", "(noon) can0 123#01", "(1) can0 123#01", "can0 123 [2] 01",
              "can0 123 [9] 01 02 03 04 05 06 07 08 09", "(1.000000) can0 123#0",
              "(1.000000) can0 123##101", "(1.000000) can0 1234#01",
              "(1.000000) can0 123#010203040506070809", "(1.000000) can0 FFF#01",
              "(1.000000) can0 FFFFFFFF#01"}) {
            QTest::addRow("%s", QByteArray(line).trimmed().constData()) << QByteArray(line);
        }
    }

    void log_otherLinesAreNone()
    {
        QFETCH(QByteArray, line);
        QVERIFY(!Candump::parse(line));
    }
};

QTEST_APPLESS_MAIN(DecoderTest)
#include "tst_decoder.moc"
