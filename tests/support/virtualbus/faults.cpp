#include "faults.h"

#include <QFile>
#include <QFileInfo>

#include <utility>

FaultFile::FaultFile()
    : m_path(qEnvironmentVariable("VIRTUALBUS_FAULTS"))
{
    if (m_path.isEmpty())
        return;
    // The folder reports new and removed files, the file reports its changes.
    m_watcher = std::make_unique<QFileSystemWatcher>(QStringList{QFileInfo(m_path).absolutePath()});
    connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, this, &FaultFile::read);
    connect(m_watcher.get(), &QFileSystemWatcher::fileChanged, this, &FaultFile::read);
    read();
}

void FaultFile::read()
{
    static const QByteArrayList known{"create", "connect", "write", "error", "disconnect", "batch"};
    const QByteArrayList before = std::exchange(m_faults, {});
    QFile file(m_path);
    if (file.open(QIODevice::ReadOnly)) {
        m_watcher->addPath(m_path);
        const QByteArrayList lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const QByteArray fault = line.split('#').constFirst().simplified();
            if (fault.isEmpty())
                continue;
            if (!known.contains(fault.split(' ').constFirst()))
                qFatal("virtualbus: unknown fault \"%s\"", fault.constData());
            m_faults.append(fault);
        }
    }
    emit changed(before);
}

qsizetype FaultFile::batch() const
{
    for (const QByteArray &fault : m_faults) {
        if (fault.startsWith("batch "))
            return fault.mid(6).toLongLong();
    }
    return 0;
}
