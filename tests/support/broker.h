#pragma once

#include <QProcess>
#include <QTemporaryDir>

/// A virtual bus of a test's own, which becomes the bus of its can0.
class Broker
{
public:
    explicit Broker(const QStringList &options = {}, const QString &path = {})
        : m_path(path.isEmpty() ? m_directory.filePath(QStringLiteral("can0")) : path)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(VIRTUALBUS_EXECUTABLE), options + QStringList{m_path});
        m_process.waitForReadyRead();
        m_greeting = m_process.readLine();
        qputenv("VIRTUALBUS_SOCKET", QFile::encodeName(m_path));
    }
    ~Broker() { stop(); }

    QString path() const { return m_path; }
    QByteArray greeting() const { return m_greeting; }
    QProcess &process() { return m_process; }

    bool stop()
    {
        m_process.terminate();
        return m_process.waitForFinished();
    }

private:
    QTemporaryDir m_directory;
    const QString m_path;
    QProcess m_process;
    QByteArray m_greeting;
};
