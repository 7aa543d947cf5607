#include "fixture.h"

#include "files.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class FilesTest : public QObject
{
    Q_OBJECT

private slots:
    void input_isReadWhole()
    {
        Input input(file(u"plain"_s, pattern(200'000)));
        QCOMPARE(input.readAll(), pattern(200'000));
    }

    void input_thatTellsNoSizeIsReadWhole()
    {
        QFile direct(u"/proc/version"_s);
        QVERIFY(direct.open(QIODevice::ReadOnly));
        Input input(u"/proc/version"_s);
        QCOMPARE(input.readAll(), direct.readAll());
    }

    void input_ofAPipeIsReadToItsEnd()
    {
        std::thread thread = writer(u"pipe"_s, pattern(200'000));
        Input input(path(u"pipe"_s));
        const QByteArray content = input.readAll();
        thread.join();
        QCOMPARE(content, pattern(200'000));
    }

    void input_thatCannotBeReadIsRefused_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("/nonexistent")
            << u"/nonexistent cannot be read: No such file or directory."_s;
        QTest::newRow("/") << u"/ is a directory."_s;
        QTest::newRow("/dev/zero") << u"/dev/zero is a device, not a file."_s;
        QTest::newRow("/proc/self/mem") << u"/proc/self/mem cannot be read: Input/output error."_s;
    }

    void input_thatCannotBeReadIsRefused()
    {
        QFETCH(QString, message);
        const Failure failure = failureOf(
            [] { Input(QString::fromUtf8(QTest::currentDataTag())).readAll(); });
        QCOMPARE(failure.exit, Exit::LocalFile);
        QCOMPARE(failure.message, message);
    }

    void input_tooLargeIsRefusedUnread()
    {
        QFile sparse(path(u"sparse"_s));
        QVERIFY(sparse.open(QIODevice::WriteOnly));
        QVERIFY(sparse.resize(4'294'967'296));
        Input input(sparse.fileName());
        QCOMPARE(failureOf([&input] { input.readAll(); }).message,
                 sparse.fileName() + u" has 4294967296 bytes; the protocol allows 4294967295."_s);
    }

    void input_endlessPipeIsRefusedAtTheLimit()
    {
        std::thread thread = writer(u"endless"_s, pattern(1001));
        Input input(path(u"endless"_s));
        const Failure failure = failureOf([&input] { input.readAll(1000); });
        thread.join();
        QCOMPARE(failure.message,
                 path(u"endless"_s) + u" has more than the 1000 bytes that the protocol allows."_s);
    }

    void input_thatChangesMeanwhileIsRefused()
    {
        // So large that some changes happen while it is read.
        QFile sparse(path(u"changing"_s));
        QVERIFY(sparse.open(QIODevice::ReadWrite));
        QVERIFY(sparse.resize(20'000'000));
        std::atomic<bool> done = false;
        std::thread thread([&] {
            while (!done) {
                [[maybe_unused]] const ssize_t written = pwrite(sparse.handle(), "x", 1, 7);
                usleep(500);
            }
        });
        Input input(sparse.fileName());
        const Failure failure = failureOf([&input] { input.readAll(); });
        done = true;
        thread.join();
        QCOMPARE(failure.message, sparse.fileName() + u" changed while it was read."_s);
    }

    void output_isNeverAnInput_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("the file itself") << u"source"_s;
        QTest::newRow("a symbolic link to it") << u"symbolic"_s;
        QTest::newRow("a hard link to it") << u"hard"_s;
    }

    void output_isNeverAnInput()
    {
        QFETCH(QString, name);
        const QString source = file(u"source"_s, QByteArrayLiteral("precious"));
        QFile::remove(path(u"symbolic"_s));
        QFile::remove(path(u"hard"_s));
        QVERIFY(QFile::link(source, path(u"symbolic"_s)));
        QCOMPARE(::link(QFile::encodeName(source).constData(),
                        QFile::encodeName(path(u"hard"_s)).constData()),
                 0);
        Input input(source);
        const Failure failure = failureOf(
            [&] { const Output output(u"The log"_s, path(name), {*input.identity()}); });
        QCOMPARE(failure.exit, Exit::Usage);
        QCOMPARE(failure.message,
                 u"The log "_s + path(name) + u" is also an input: it would be overwritten."_s);
        QCOMPARE(input.readAll(), QByteArrayLiteral("precious"));
    }

    void output_isEmptiedOnlyWhenItStarts()
    {
        const QString name = file(u"old"_s, QByteArrayLiteral("of yesterday"));
        Output output(u"The log"_s, name, {});
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("of yesterday"));
        output.start();
        output.write(QByteArrayLiteral("new"));
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("new"));
    }

    void output_thatCannotBeWrittenNamesTheCause()
    {
        Output output(u"The log"_s, u"/dev/full"_s, {});
        output.start();
        const Failure failure = failureOf([&output] { output.write(QByteArrayLiteral("x")); });
        QCOMPARE(failure.exit, Exit::LocalFile);
        QCOMPARE(failure.message,
                 u"The log /dev/full cannot be written: No space left on device."_s);
    }

    void wholeOutput_takesItsPlaceAtTheEnd()
    {
        const QString name = file(u"whole"_s, QByteArrayLiteral("old"));
        WholeOutput output(u"The report"_s, name, {});
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("old"));
        output.write(QByteArrayLiteral("new"));
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("new"));
    }

    void wholeOutput_thatCannotBeWrittenLeavesWhatWasThere()
    {
        const QString name = file(u"kept"_s, QByteArrayLiteral("old"));
        const qsizetype files = QDir(m_directory.path()).entryList(QDir::Files).size();
        {
            WholeOutput output(u"The report"_s, name, {});
            rlimit before = {};
            getrlimit(RLIMIT_FSIZE, &before);
            const auto handler = std::signal(SIGXFSZ, SIG_IGN);
            const rlimit tight{5, before.rlim_max};
            setrlimit(RLIMIT_FSIZE, &tight);
            const Failure failure = failureOf(
                [&] { output.write(QByteArrayLiteral("0123456789")); });
            setrlimit(RLIMIT_FSIZE, &before);
            std::signal(SIGXFSZ, handler);
            QCOMPARE(failure.exit, Exit::LocalFile);
        }
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("old"));
        QCOMPARE(QDir(m_directory.path()).entryList(QDir::Files).size(), files);
        const Failure failure = failureOf(
            [] { WholeOutput(u"The report"_s, u"/nonexistent/report"_s, {}); });
        QCOMPARE(failure.message,
                 u"The report /nonexistent/report cannot be written: No such file or directory."_s);
    }

    void wholeOutput_isNeverAFileInUse()
    {
        const QString name = file(u"used"_s, QByteArrayLiteral("old"));
        const FileIdentity identity = *Input(name).identity();
        const Failure failure = failureOf([&] { WholeOutput(u"The report"_s, name, {identity}); });
        QCOMPARE(failure.exit, Exit::Usage);
        QCOMPARE(Input(name).readAll(), QByteArrayLiteral("old"));
    }

    void wholeOutput_mayBeADevice()
    {
        WholeOutput(u"The report"_s, u"/dev/null"_s, {}).write(QByteArrayLiteral("new"));
        WholeOutput full(u"The report"_s, u"/dev/full"_s, {});
        QCOMPARE(failureOf([&] { full.write(QByteArrayLiteral("new")); }).message,
                 u"The report /dev/full cannot be written: No space left on device."_s);
    }

private:
    QString path(const QString &name) const { return m_directory.filePath(name); }

    QString file(const QString &name, const QByteArray &content) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write the test's own file");
        return file.fileName();
    }
    /// A pipe called \a name; a thread writes \a content when it is read.
    std::thread writer(const QString &name, const QByteArray &content) const
    {
        const QByteArray pipe = QFile::encodeName(path(name));
        if (mkfifo(pipe.constData(), 0600) != 0)
            qFatal("cannot make the test's own pipe");
        return std::thread([pipe, content] {
            const int descriptor = open(pipe.constData(), O_WRONLY | O_CLOEXEC);
            (void)writeAll(descriptor, content);
            close(descriptor);
        });
    }

    QTemporaryDir m_directory;
};

QTEST_GUILESS_MAIN(FilesTest)
#include "tst_files.moc"
