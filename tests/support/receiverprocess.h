#pragma once

#include <QByteArrayList>
#include <QProcess>
#include <QTemporaryDir>

/// The receiver as a separate process, in its own working directory.
class ReceiverProcess
{
public:
    explicit ReceiverProcess(const QString &program = QStringLiteral(DOCKHAND_EXECUTABLE),
                             const QStringList &arguments = {});
    ~ReceiverProcess();

    void setVariable(const QString &name, const QString &value);
    /// Hides \a directory from the receiver, which sees an empty one there.
    void hide(const QString &directory);

    /// Starts the receiver and waits until it is on the bus.
    bool start();
    /// Starts a receiver that must end by itself, and waits for its end.
    bool run();
    bool isRunning();
    pid_t processId() const { return pid_t(m_process.processId()); }
    /// The exit status; -1 after a crash.
    int exitCode() const;

    /// The log: "level|category|text" in each line.
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
