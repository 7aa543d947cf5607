#include "receiverprocess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {
// Builds with QML debugging write it before there is a message pattern.
constexpr QByteArrayView qmlDebugging =
    "QML debugging is enabled. Only use this in a safe environment.";
} // namespace

ReceiverProcess::ReceiverProcess(const QString &program, const QStringList &arguments)
{
    QDir(m_directory.path()).mkdir(u"work"_s);
    m_process.setProgram(program);
    m_process.setArguments(arguments);
    m_process.setWorkingDirectory(directory());
    m_process.setStandardErrorFile(m_directory.filePath(u"log"_s));
    m_process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    setVariable(u"QT_MESSAGE_PATTERN"_s, u"%{type}|%{category}|%{message}"_s);
    setVariable(u"XDG_RUNTIME_DIR"_s, m_directory.path()); // only its owner may read it
    // The receiver keeps its CAN device until the process ends: not a leak.
    setVariable(u"LSAN_OPTIONS"_s, u"detect_leaks=0"_s);
}

ReceiverProcess::~ReceiverProcess()
{
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished();
}

void ReceiverProcess::setVariable(const QString &name, const QString &value)
{
    QProcessEnvironment environment = m_process.processEnvironment();
    environment.insert(name, value);
    m_process.setProcessEnvironment(environment);
}

void ReceiverProcess::hide(const QString &directory)
{
    m_process.setArguments(QStringList{u"--mount"_s, u"--"_s, u"sh"_s, u"-c"_s,
                                       u"mount -t tmpfs tmpfs \"$0\" && exec \"$@\""_s, directory,
                                       m_process.program()}
                           + m_process.arguments());
    m_process.setProgram(u"unshare"_s);
}

bool ReceiverProcess::start()
{
    m_process.start();
    return m_process.waitForStarted()
        && waitForLog("info|default|canStateChanged: New CAN State QCanBusDevice::ConnectedState");
}

bool ReceiverProcess::run()
{
    m_process.start();
    return m_process.waitForFinished(20'000);
}

bool ReceiverProcess::isRunning()
{
    return !m_process.waitForFinished(0) && m_process.state() == QProcess::Running;
}

int ReceiverProcess::exitCode() const
{
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QByteArrayList ReceiverProcess::log() const
{
    QByteArrayList lines = output();
    lines.removeAll(qmlDebugging);
    return lines;
}

bool ReceiverProcess::announcesQmlDebugging() const
{
    return output().value(0) == qmlDebugging;
}

/// Each complete line of standard error.
QByteArrayList ReceiverProcess::output() const
{
    QFile file(m_directory.filePath(u"log"_s));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArrayList lines = file.readAll().split('\n');
    lines.removeLast(); // empty, or not complete yet
    return lines;
}

bool ReceiverProcess::waitForLog(const QByteArray &line)
{
    QElapsedTimer timer;
    timer.start();
    while (!log().contains(line)) {
        if (timer.hasExpired(10'000))
            return false;
        QThread::msleep(5);
    }
    return true;
}
