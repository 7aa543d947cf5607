// Many sessions in one process: memory use and open files do not grow.
//
// DOCKHAND_SOAK_SESSIONS and DOCKHAND_SOAK_FRAMES set how many sessions and frames.
#include "faulttest.h"
#include "servicetree.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

qint64 demanded(const char *name, qint64 otherwise)
{
    bool given = false;
    const qint64 value = qEnvironmentVariable(name).toLongLong(&given);
    return given ? value : otherwise;
}

struct Resources
{
    qint64 kilobytes = 0; ///< resident
    qsizetype descriptors = 0;
};

Resources used()
{
    QFile statm(u"/proc/self/statm"_s);
    if (!statm.open(QIODevice::ReadOnly))
        qFatal("No /proc");
    return {statm.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024,
            QDir(u"/proc/self/fd"_s)
                .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
                .size()};
}

qint64 messages = 0;

} // namespace

class tst_Soak : public QObject
{
    Q_OBJECT

private slots:
    void sessionsLeaveMemoryAndDescriptorsAsTheyWere();
};

void tst_Soak::sessionsLeaveMemoryAndDescriptorsAsTheyWere()
{
    if (const QString reason = ServiceTree::unsafe(); !reason.isEmpty())
        qFatal("%s", qUtf8Printable(reason));
    const qint64 sessions = demanded("DOCKHAND_SOAK_SESSIONS", 60);
    const qint64 frames = demanded("DOCKHAND_SOAK_FRAMES", 100'000);

    ServiceTree::reset();
    StartedReceiver receiver;
    // Every log message is built and thrown away.
    QLoggingCategory::setFilterRules(QString());
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &) { ++messages; });
    QElapsedTimer timer;
    timer.start();
    Resources settled;
    qint64 framesDone = 0;
    qint64 sessionsDone = 0;
    qint64 accepted = 0;
    while (sessionsDone < sessions || framesDone < frames) {
        // The sessions differ in length. Their average is such that both numbers are reached
        // at the same time.
        const qint64 size = 400
            + (sessionsDone * 977LL) % (16 * std::max<qint64>(frames / sessions, 100));
        const QByteArray content = QByteArray::number(sessionsDone)
                                       .repeated(size / QByteArray::number(sessionsDone).size());
        ToolFrames::List session = ToolFrames::configurationDownload(content);
        session += ToolFrames::setSerialNumber("SN1234567890");
        session += ToolFrames::transfer(2, content.first(std::min<qsizetype>(content.size(), 600)));
        // Every eighth session stops halfway.
        const bool abandoned = sessionsDone % 8 == 7;
        if (abandoned)
            session.resize(session.size() / 2);
        const QStringList answers = answersIn(receiver.receive(session));
        if (!abandoned) {
            QVERIFY(answers.contains(acceptanceOf(content)));
            QCOMPARE(ServiceTree::read("application/main/systemConfig.json"), content);
            ++accepted;
        }
        framesDone += session.size();
        ++sessionsDone;
        // After a tenth, the caches are full and the largest session has been played.
        if (sessionsDone == sessions / 10 + 1)
            settled = used();
    }
    const Resources end = used();
    qInstallMessageHandler(nullptr);
    qInfo("%lld frames, %lld log messages, %lld sessions, %lld of them complete, in %lld s; "
          "resident memory %lld kB after a tenth, %lld kB in the end; %lld and %lld file "
          "descriptors",
          framesDone, messages, sessionsDone, accepted, timer.elapsed() / 1000, settled.kilobytes,
          end.kilobytes, qint64(settled.descriptors), qint64(end.descriptors));
    // The abandoned transfer may have left its file open, and no other.
    QVERIFY(end.descriptors <= settled.descriptors + 1);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    const qint64 tolerance = 1024;
    QVERIFY2(end.kilobytes <= settled.kilobytes + tolerance, "memory grows");
#endif
}

QTEST_GUILESS_MAIN(tst_Soak)

#include "tst_soak.moc"
