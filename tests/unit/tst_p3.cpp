#include "receivertest.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

/// Simple commands: what a transcript cannot show of the clock and the serial number.
class tst_p3 : public ReceiverTest
{
    Q_OBJECT

private:
    /// The clock tools started so far, sorted by name, as they are not ordered against each other.
    static QByteArray standIns()
    {
        QByteArrayList lines = ServiceTree::read("tools").split('\n');
        lines.removeAll("(no file)");
        std::sort(lines.begin(), lines.end());
        return lines.join(' ').trimmed();
    }

private slots:
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
            QFile::remove(ServiceTree::path("tools"));
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

QTEST_GUILESS_MAIN(tst_p3)
#include "tst_p3.moc"
