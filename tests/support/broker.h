#pragma once

#include <QProcess>
#include <QTemporaryDir>

/// A virtual bus of a test's own, which becomes the bus of its can0.
class Broker
{
public:
    explicit Broker(const QString &path = {})
        : m_path(path.isEmpty() ? m_directory.filePath(QStringLiteral("can0")) : path)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(VIRTUALBUS_EXECUTABLE), {m_path});
        m_process.waitForReadyRead();
        qputenv("VIRTUALBUS_SOCKET", QFile::encodeName(m_path));
    }
    ~Broker() { stop(); }

    QString path() const { return m_path; }

    bool stop()
    {
        m_process.terminate();
        return m_process.waitForFinished();
    }

private:
    QTemporaryDir m_directory;
    const QString m_path;
    QProcess m_process;
};
