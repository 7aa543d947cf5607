#pragma once

#include <QProcess>
#include <QTemporaryDir>

/// A virtual bus of a test's own.
class Broker
{
public:
    explicit Broker(const QStringList &options = {})
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(VIRTUALBUS_EXECUTABLE), options + QStringList{path()});
        m_process.waitForReadyRead();
        m_greeting = m_process.readLine();
        qputenv("VIRTUALBUS_SOCKET", QFile::encodeName(path()));
    }
    ~Broker() { stop(); }

    QString path() const { return m_directory.filePath(QStringLiteral("bus")); }
    QByteArray greeting() const { return m_greeting; }
    QProcess &process() { return m_process; }

    bool stop()
    {
        m_process.terminate();
        return m_process.waitForFinished();
    }

private:
    QTemporaryDir m_directory;
    QProcess m_process;
    QByteArray m_greeting;
};
