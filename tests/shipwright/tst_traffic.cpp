#include "candump.h"
#include "failure.h"
#include "traffic.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

namespace {

/// \a log: a frame a line, 1 ms apart.
QString summaryOf(const char *log)
{
    TrafficSummary summary;
    qint64 time = 0;
    for (const QByteArray &line : QByteArray(log).split(' ')) {
        const auto entry = Candump::parse('(' + QByteArray::number(double(++time) / 1e3, 'f', 6)
                                          + ") can0 " + line);
        summary.add(entry->frame, decode(entry->frame));
    }
    return summary.text();
}

} // namespace

class TrafficTest : public QObject
{
    Q_OBJECT

private slots:
    void summary_countsASessionWithARecordSentAgain()
    {
        QCOMPARE(
            summaryOf("0F1A02C0#A55A 0F584000#5AA5 "
                      "1B1A0000#020809000000 1B580000#0A3FE803E80360EA "
                      "1B1A1000#0208000001000000 1B581000#0000000000000000 "
                      "1B1A2000#0100000000 1B1AF000#3132333435363738 1B1A3000#59A7DA48 1B5830BA#01 "
                      "1B1A2000#0200000000 1B1AF000#3132333435363738 1B1AF010#39 1B1A3000#2639F4CB "
                      "1B583000#00 1B1A4000#2639F4CB 1B584000#2639F4CB 0F1A02C4# 0F584000#"),
            u"19 frames in 0.0 s: 1 session, 1 file of 9 bytes at 643 B/s, 1 record sent again, "
            "1 refusal."_s);
    }

    void summary_takesAFileThatWasConfirmedOnly()
    {
        // Another version is announced and refused, the file's CRC-32 differs.
        QCOMPARE(
            summaryOf("0F1A02C0#A55B 0F5840BA# "
                      "1B1A0000#020809000000 1B580000#0A3FE803E80360EA "
                      "1B1A0000#020CFF000000 1B58001D#0A3FE803E80360EA "
                      "1B1A1000#0208000000000000 1B581000#0000000000000000 "
                      "1B1A4000#2639F4CB 1B5840BA#00000000"),
            u"10 frames in 0.0 s: 0 sessions, 0 files of 0 bytes at 0 B/s, 0 records sent again, "
            "3 refusals."_s);
    }

    void filter_choosesFrames_data()
    {
        QTest::addColumn<QStringList>("filters");
        QTest::addColumn<QByteArrayList>("frames");
        QTest::newRow("message") << QStringList{u"message=RECORD-end"_s}
                                 << QByteArrayList{"1B1A3000#2639F4CB", "1B5830BA#01"};
        QTest::newRow("sender or addressee")
            << QStringList{u"node=14"_s} << QByteArrayList{"0F0E02C4#", "0DC00000#"};
        QTest::newRow("result by number")
            << QStringList{u"result=186"_s} << QByteArrayList{"1B5830BA#01"};
        QTest::newRow("success") << QStringList{u"result=success"_s} << QByteArrayList{"0F584000#"};
        QTest::newRow("failure") << QStringList{u"result=failure"_s}
                                 << QByteArrayList{"1B58001D#0A3FE803E80360EA", "1B5830BA#01"};
        QTest::newRow("one of a key's values")
            << QStringList{u"result=0"_s, u"result=29"_s}
            << QByteArrayList{"0F584000#", "1B58001D#0A3FE803E80360EA"};
        QTest::newRow("all keys") << QStringList{u"result=failure"_s, u"message=info"_s}
                                  << QByteArrayList{"1B58001D#0A3FE803E80360EA"};
        QTest::newRow("none given")
            << QStringList{}
            << QByteArrayList{
                   "0F0E02C4#",         "0DC00000#",   "0F584000#", "1B58001D#0A3FE803E80360EA",
                   "1B1A3000#2639F4CB", "1B5830BA#01", "123#11"};
    }

    void filter_choosesFrames()
    {
        QFETCH(QStringList, filters);
        QFETCH(QByteArrayList, frames);
        FrameFilter filter;
        for (const QString &text : filters)
            filter.add(text);
        QByteArrayList passed;
        for (const char *frame :
             {"0F0E02C4#", "0DC00000#", "0F584000#", "1B58001D#0A3FE803E80360EA",
              "1B1A3000#2639F4CB", "1B5830BA#01", "123#11"}) {
            const auto entry = Candump::parse(QByteArray("(1.000000) can0 ") + frame);
            if (filter.passes(entry->frame, decode(entry->frame)))
                passed += frame;
        }
        QCOMPARE(passed, frames);
    }

    void filter_refusesWhatItDoesNotKnow_data()
    {
        QTest::addColumn<QString>("text");
        for (const char *text : {"record-end", "message=", "node=32", "node=Dockhand",
                                 "result=1024", "result=good", "size=8"})
            QTest::newRow(text) << QString::fromLatin1(text);
    }

    void filter_refusesWhatItDoesNotKnow()
    {
        QFETCH(QString, text);
        FrameFilter filter;
        QVERIFY_THROWS_EXCEPTION(Failure, filter.add(text));
    }
};

QTEST_APPLESS_MAIN(TrafficTest)
#include "tst_traffic.moc"
