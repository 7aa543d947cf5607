// Tables of comma-separated values.

#include "csv.h"

#include "fixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class CsvTest : public QObject
{
    Q_OBJECT

private slots:
    void cells_data()
    {
        QTest::addColumn<QByteArray>("table");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("plain") << QByteArray("a,b\nc,d\n") << QStringList{u"1:a|b"_s, u"2:c|d"_s};
        QTest::newRow("of another system, without an end") << QByteArray("\xEF\xBB\xBF"
                                                                         "a,b\r\nc,d")
                                                           << QStringList{u"1:a|b"_s, u"2:c|d"_s};
        QTest::newRow("quoted") << QByteArray("\"a,b\",\"say \"\"c\"\"\"\n")
                                << QStringList{u"1:a,b|say \"c\""_s};
        QTest::newRow("a cell of two lines")
            << QByteArray("\"a\nb\",c\n\nk,l\n") << QStringList{u"1:a\nb|c"_s, u"4:k|l"_s};
        QTest::newRow("empty cells")
            << QByteArray("a,,\n,\"\",\n") << QStringList{u"1:a||"_s, u"2:||"_s};
        QTest::newRow("nothing") << QByteArray() << QStringList();
    }

    void cells()
    {
        QFETCH(QByteArray, table);
        QFETCH(QStringList, expected);
        QStringList rows;
        for (const CsvRow &row : parseCsv(table, u"t.csv"_s))
            rows += u"%1:%2"_s.arg(row.line).arg(row.cells.join(u'|'));
        QCOMPARE(rows, expected);
    }

    void linesThatAreNoTableAreNamed_data()
    {
        QTest::addColumn<QByteArray>("table");
        QTest::addColumn<QString>("message");
        QTest::newRow("too few cells")
            << QByteArray("a,b\nc\n") << u"t.csv, line 2: it has 1 cell, the header 2."_s;
        QTest::newRow("open quotation mark")
            << QByteArray("a\n\"b\nc\n") << u"t.csv, line 2: a quotation mark is not closed."_s;
        QTest::newRow("text behind a quotation mark")
            << QByteArray("a\n\"b\"c\n")
            << u"t.csv, line 2: text behind the closing quotation mark of a cell."_s;
        QTest::newRow("quotation mark in a cell")
            << QByteArray("a\nb\"c\n")
            << u"t.csv, line 2: a quotation mark in a cell that does not start with one."_s;
        QTest::newRow("not UTF-8") << QByteArray("a\n\xC4\n") << u"t.csv is not in UTF-8."_s;
    }

    void linesThatAreNoTableAreNamed()
    {
        QFETCH(QByteArray, table);
        QFETCH(QString, message);
        const Failure failure = failureOf([&table] { parseCsv(table, u"t.csv"_s); });
        QCOMPARE(failure.message, message);
        QCOMPARE(failure.exit, Exit::Usage);
    }
};

QTEST_GUILESS_MAIN(CsvTest)
#include "tst_csv.moc"
