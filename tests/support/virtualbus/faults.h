#pragma once

#include <QFileSystemWatcher>
#include <QObject>

#include <memory>

/// The active faults; README.md says what each does.
struct Faults
{
    bool create = false;
    bool connect = false;
    bool write = false;
    bool error = false;
    bool disconnect = false;
    qsizetype batch = 0;
};

/// Watches the file that the environment variable VIRTUALBUS_FAULTS names.
class FaultFile : public QObject
{
    Q_OBJECT

public:
    FaultFile();

    const Faults &faults() const { return m_faults; }

signals:
    void changed(const Faults &before);

private:
    void read();
    void reread();

    const QString m_path;
    std::unique_ptr<QFileSystemWatcher> m_watcher;
    Faults m_faults;
};
