// What a log line says has happened when it appears.
#include "receivertest.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString awaited;
std::function<void()> look;

void takeMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (text.startsWith(awaited))
        look();
}

} // namespace

class tst_logtiming : public ReceiverTest
{
    Q_OBJECT

private slots:
    void serialNumberIsStoredWhenTheLogSaysSo();
    void outputFileIsClosedWhenTheLogSaysSo();
};

void tst_logtiming::serialNumberIsStoredWhenTheLogSaysSo()
{
    QByteArray stored;
    awaited = u"processP3SetSerialResponse: Successfully wrote serial number to storage:"_s;
    look = [&stored] { stored = ServiceTree::read("serialNumber"); };
    qInstallMessageHandler(takeMessage);
    receive({frame(0x0F1A02C2, "03 41 42 43")});
    QCOMPARE(stored, "ABC\n");
}

void tst_logtiming::outputFileIsClosedWhenTheLogSaysSo()
{
    bool seen = false;
    bool open = true;
    awaited = u"processP6TransferCompleteCommand: File transfer complete."_s;
    look = [&] {
        seen = true;
        open = session().outputFile.isOpen();
    };
    receive({frame(0x1B1A1000, "02 08 00 00 01 00 00 00")});
    QVERIFY(session().outputFile.isOpen());
    qInstallMessageHandler(takeMessage);
    receive({frame(0x1B1A4000, "00 00 00 00")});
    QVERIFY(seen);
    QVERIFY(!open);
}

QTEST_GUILESS_MAIN(tst_logtiming)

#include "tst_logtiming.moc"
