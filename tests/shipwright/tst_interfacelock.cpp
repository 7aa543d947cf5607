#include "fixture.h"

#include "interfacelock.h"

#include <QTest>

#include <csignal>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace Shipwright;

class InterfaceLockTest : public QObject
{
    Q_OBJECT

private slots:
    void lock_isOneProcessesAtATime()
    {
        const InterfaceLock lock(m_name, u"can0"_s);
        const Failure failure = failureOf(
            [this] { const InterfaceLock second(m_name, u"can0"_s); });
        QCOMPARE(failure.exit, Exit::InUse);
        QCOMPARE(
            failure.message,
            u"Another shipwright (process %1) uses the interface \"can0\"; nothing was sent."_s.arg(
                getpid()));
    }

    void lock_isFreeAfterwards()
    {
        {
            const InterfaceLock lock(m_name, u"can0"_s);
        }
        const InterfaceLock lock(m_name, u"can0"_s);
    }

    void lock_isFreeAfterACrash()
    {
        int pipe[2];
        QCOMPARE(::pipe(pipe), 0);
        const pid_t child = fork();
        if (child == 0) {
            const InterfaceLock lock(m_name, u"can0"_s);
            [[maybe_unused]] const ssize_t written = write(pipe[1], "x", 1);
            for (;;)
                pause();
        }
        char byte = 0;
        QCOMPARE(read(pipe[0], &byte, 1), 1);
        QCOMPARE(failureOf([this] { const InterfaceLock lock(m_name, u"can0"_s); }).exit,
                 Exit::InUse);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const InterfaceLock lock(m_name, u"can0"_s);
    }

    void lock_ofAnotherInterfaceIsAnother()
    {
        const InterfaceLock first(m_name, u"can0"_s);
        const InterfaceLock second(m_name + '1', u"can1"_s);
    }

private:
    // The name of the running test, so that two runs have different locks.
    const QByteArray m_name = "test of interface locks " + QByteArray::number(getpid());
};

QTEST_GUILESS_MAIN(InterfaceLockTest)
#include "tst_interfacelock.moc"
