#pragma once

#include <QByteArrayList>
#include <QProcess>
#include <QTemporaryDir>

/// The receiver as a process of its own, in a working directory of its own.
class ReceiverProcess
{
public:
    explicit ReceiverProcess(const QString &program = QStringLiteral(DOCKHAND_EXECUTABLE),
                             const QStringList &arguments = {});
    ~ReceiverProcess();

    void setVariable(const QString &name, const QString &value);
    /// Lets the receiver see an empty directory in the place of \a directory.
    void hide(const QString &directory);

    /// Starts the receiver and waits until it is on the bus.
    bool start();
    /// Starts a receiver that is expected to end by itself, and waits until it has.
    bool run();
    bool isRunning();
    pid_t processId() const { return pid_t(m_process.processId()); }
    /// What the shell shows as the exit status; -1 after a crash.
    int exitCode() const;

    /// What was logged: "level|category|text" in each line.
    QByteArrayList log() const;
    bool waitForLog(const QByteArray &line);
    /// Whether Qt's first line, which log() leaves out, says that QML can be debugged.
    bool announcesQmlDebugging() const;

    QString directory() const { return m_directory.filePath(QStringLiteral("work")); }

private:
    QByteArrayList output() const;

    QTemporaryDir m_directory;
    QProcess m_process;
};
