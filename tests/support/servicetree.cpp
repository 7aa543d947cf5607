#include "servicetree.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStandardPaths>

#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

constexpr char root[] = "/media/service/korvane/";

/// Tests cannot continue without their set-up.
void require(bool done, const char *what)
{
    if (!done)
        qFatal("Test set-up: %s: %s", what, std::strerror(errno));
}

bool isMountPoint(const QByteArray &path)
{
    QFile file(u"/proc/self/mountinfo"_s);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> mounts = file.readAll().split('\n');
    return std::any_of(mounts.cbegin(), mounts.cend(), [&path](const QByteArray &mount) {
        // mount identifier, parent, device, root, mount point
        return mount.split(' ').value(4) == path;
    });
}

} // namespace

QString ServiceTree::unsafe()
{
    if (!isMountPoint("/media"))
        return u"/media is the machine's own; run this test in tests/support/sandbox"_s;
    for (const QString &tool : {u"timedatectl"_s, u"hwclock"_s}) {
        if (!QStandardPaths::findExecutable(tool).endsWith("/tests/support/stand-ins/"_L1 + tool))
            return tool + u" is the machine's own; run this test in tests/support/sandbox"_s;
    }
    return {};
}

void ServiceTree::reset()
{
    QDir tree(QString::fromLatin1(root));
    require(!tree.exists() || tree.removeRecursively(), "remove the service tree");
    for (const char *directory :
         {"application/factory/main", "application/factory/menu", "application/backup/main",
          "application/backup/menu", "application/main", "application/menu", "pendingUpdates"}) {
        require(QDir().mkpath(path(directory)), directory);
    }
}

QString ServiceTree::path(const QByteArray &path)
{
    return QString::fromLatin1(root) + QString::fromUtf8(path);
}

void ServiceTree::write(const QByteArray &path, const QByteArray &content)
{
    QFile file(ServiceTree::path(path));
    QDir().mkpath(QFileInfo(file).path());
    require(file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
                && file.flush(),
            path.constData());
}

QByteArray ServiceTree::read(const QByteArray &path)
{
    QFile file(ServiceTree::path(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("(no file)");
}

QStringList ServiceTree::list(const QByteArray &path)
{
    QStringList names;
    const QFileInfoList entries = QDir(ServiceTree::path(path))
                                      .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System
                                                         | QDir::NoDotAndDotDot,
                                                     QDir::Name);
    for (const QFileInfo &entry : entries)
        names.append(entry.isDir() ? entry.fileName() + u'/' : entry.fileName());
    return names;
}

QStringList ServiceTree::openFiles()
{
    QStringList paths;
    const QDir descriptors(u"/proc/self/fd"_s);
    for (const QString &name : descriptors.entryList(QDir::AllEntries | QDir::System)) {
        const QString target = QFile::symLinkTarget(descriptors.filePath(name));
        if (target.startsWith(path("")))
            paths.append(target.sliced(path("").size()));
    }
    return paths;
}

QByteArrayList ServiceTree::files()
{
    const QDir tree(path(""));
    QByteArrayList names;
    QDirIterator found(tree.path(), QDir::Files, QDirIterator::Subdirectories);
    while (found.hasNext())
        names.append(tree.relativeFilePath(found.next()).toUtf8());
    std::sort(names.begin(), names.end());
    return names;
}

ServiceTree::ReadOnly::ReadOnly(const QByteArray &path)
    : m_path(ServiceTree::path(path).toUtf8())
{
    require(mount(m_path, m_path, nullptr, MS_BIND, nullptr) == 0, "bind mount");
    require(mount(nullptr, m_path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0,
            "read-only mount");
}

ServiceTree::ReadOnly::~ReadOnly()
{
    require(umount2(m_path, MNT_DETACH) == 0, "unmount");
}

ServiceTree::SmallFileSystem::SmallFileSystem(const QByteArray &path, int bytes)
    : m_path(ServiceTree::path(path).toUtf8())
{
    const QByteArray options = "size=" + QByteArray::number(bytes);
    require(mount("tmpfs", m_path, "tmpfs", 0, options.constData()) == 0, "mount a file system");
}

ServiceTree::SmallFileSystem::~SmallFileSystem()
{
    require(umount2(m_path, MNT_DETACH) == 0, "unmount");
}
