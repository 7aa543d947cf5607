// What has happened, and what has not, when a log line appears.
#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString awaited;
std::function<void()> look;

void takeMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (text.startsWith(awaited))
        look();
}

/// Whether this process has the file \a path below the service tree's root open.
bool isOpen(const char *path)
{
    const QDir descriptors(u"/proc/self/fd"_s);
    const QStringList names = descriptors.entryList(QDir::AllEntries | QDir::System
                                                    | QDir::NoDotAndDotDot);
    return std::any_of(names.cbegin(), names.cend(), [&](const QString &name) {
        return QFile::symLinkTarget(descriptors.filePath(name)) == ServiceTree::path(path);
    });
}

} // namespace

class tst_logtiming : public ReceiverTest
{
    Q_OBJECT

private slots:
    void serialNumberIsStoredWhenTheLogSaysSo();
    void outputFileIsClosedWhenTheLogSaysSo();
    void recordIsFlushedAfterItsLogLine();
    void hwclockIsStartedAfterTheLogLineOnTimedatectl();
};

void tst_logtiming::serialNumberIsStoredWhenTheLogSaysSo()
{
    QByteArray stored;
    awaited = u"processP3SetSerialResponse: Successfully wrote serial number to storage:"_s;
    bool open = true;
    look = [&] {
        open = isOpen("serialNumber");
        stored = ServiceTree::read("serialNumber");
    };
    qInstallMessageHandler(takeMessage);
    receive({frame(0x0F1A02C2, "03 41 42 43")});
    QCOMPARE(stored, "ABC\n");
    QVERIFY(!open);
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

void tst_logtiming::recordIsFlushedAfterItsLogLine()
{
    receive({frame(0x1B1A1000, "02 08 00 00 01 00 00 00"), frame(0x1B1A2000, "01 00 00 00 00"),
             frame(0x1B1AF000, "03")});
    QByteArray stored = "no log line";
    awaited = u"Successfully appended"_s;
    look = [&stored] { stored = ServiceTree::read("pendingUpdates/file.log"); };
    qInstallMessageHandler(takeMessage);
    receive({frame(0x1B1A3000, "37 BE 0B 4B")});
    QCOMPARE(stored, "");
    QCOMPARE(ServiceTree::read("pendingUpdates/file.log"), "\x03");
}

void tst_logtiming::hwclockIsStartedAfterTheLogLineOnTimedatectl()
{
    const auto started = [] {
        QFile log(u"stand-ins"_s);
        return log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
    };
    QFile::remove(u"stand-ins"_s);
    QByteArray before;
    awaited = u"processP3SetDateTimeResponse: Updated Linux system UTC time to:"_s;
    look = [&] {
        QTRY_VERIFY(!started().isEmpty());
        QTest::qWait(300); // for one that must not come
        before = started();
    };
    qInstallMessageHandler(takeMessage);
    receive({frame(0x0F1A02C1, "18 03 05 0E 07 09")});
    QCOMPARE(before, "timedatectl\tset-time\t2024-03-05 14:07:09 UTC\n");
    QTRY_COMPARE(started(), before + "hwclock\t--systohc\n");
}

QTEST_GUILESS_MAIN(tst_logtiming)

#include "tst_logtiming.moc"
