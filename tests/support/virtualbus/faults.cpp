#include "faults.h"

#include <QDebug>
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
    connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, this, &FaultFile::reread);
    connect(m_watcher.get(), &QFileSystemWatcher::fileChanged, this, &FaultFile::reread);
    read();
}

void FaultFile::reread()
{
    const Faults before = m_faults;
    read();
    emit changed(before);
}

void FaultFile::read()
{
    m_faults = {};
    QFile file(m_path);
    if (!file.exists())
        return;
    m_watcher->addPath(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning() << "virtualbus:" << m_path << file.errorString();
        return;
    }

    const std::pair<QByteArray, bool &> flags[] = {
        {"create", m_faults.create}, {"connect", m_faults.connect},       {"write", m_faults.write},
        {"error", m_faults.error},   {"disconnect", m_faults.disconnect},
    };
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray fault = line.split('#').constFirst().simplified();
        if (fault.isEmpty())
            continue;
        bool known = false;
        if (fault.startsWith("batch "))
            m_faults.batch = fault.mid(6).toLongLong(&known);
        for (const auto &[name, flag] : flags) {
            if (fault == name)
                flag = known = true;
        }
        if (!known)
            qWarning() << "virtualbus: unknown fault" << fault << "in" << m_path;
    }
}
