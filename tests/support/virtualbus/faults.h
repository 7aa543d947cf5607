#pragma once

#include <QByteArrayList>
#include <QFileSystemWatcher>
#include <QObject>

#include <memory>

/// Watches the file that the environment variable VIRTUALBUS_FAULTS names; README.md says what
/// each line does.
class FaultFile : public QObject
{
    Q_OBJECT

public:
    FaultFile();

    bool has(const char *fault) const { return m_faults.contains(fault); }
    /// How many received frames make a batch.
    qsizetype batch() const;

signals:
    void changed(const QByteArrayList &before);

private:
    void read();

    const QString m_path;
    std::unique_ptr<QFileSystemWatcher> m_watcher;
    QByteArrayList m_faults;
};
