#include "receiver.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {
// Written before there is a message pattern, by builds with QML debugging.
constexpr QByteArrayView qmlDebugging =
    "QML debugging is enabled. Only use this in a safe environment.";
} // namespace

Receiver::Receiver(const QString &program, const QStringList &arguments)
{
    QDir(m_directory.path()).mkdir(u"work"_s);
    m_process.setProgram(program);
    m_process.setArguments(arguments);
    m_process.setWorkingDirectory(directory());
    m_process.setStandardErrorFile(m_directory.filePath(u"log"_s));
    m_process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    setVariable(u"QT_MESSAGE_PATTERN"_s, u"%{type}|%{category}|%{message}"_s);
    setVariable(u"XDG_RUNTIME_DIR"_s, m_directory.path()); // only its owner may read it
    // The receiver keeps its CAN device until the process ends; that is no leak.
    setVariable(u"LSAN_OPTIONS"_s, u"detect_leaks=0"_s);
}

Receiver::~Receiver()
{
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished();
}

void Receiver::setVariable(const QString &name, const QString &value)
{
    QProcessEnvironment environment = m_process.processEnvironment();
    environment.insert(name, value);
    m_process.setProcessEnvironment(environment);
}

bool Receiver::start()
{
    m_process.start();
    return m_process.waitForStarted()
        && waitForLog("info|default|canStateChanged: New CAN State QCanBusDevice::ConnectedState");
}

bool Receiver::run()
{
    m_process.start();
    return m_process.waitForFinished(20'000);
}

bool Receiver::isRunning()
{
    return !m_process.waitForFinished(0) && m_process.state() == QProcess::Running;
}

int Receiver::exitCode() const
{
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QByteArrayList Receiver::log() const
{
    QByteArrayList lines = output();
    lines.removeAll(qmlDebugging);
    return lines;
}

bool Receiver::announcesQmlDebugging() const
{
    return output().value(0) == qmlDebugging;
}

/// Each complete line of standard error.
QByteArrayList Receiver::output() const
{
    QFile file(m_directory.filePath(u"log"_s));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArrayList lines = file.readAll().split('\n');
    lines.removeLast(); // empty, or not complete yet
    return lines;
}

bool Receiver::waitForLog(const QByteArray &line)
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
