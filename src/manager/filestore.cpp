#include "canbusmanager.h"
#include "log.h"
#include "paths.h"
#include "wire.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <array>
#include <cstdio>

#include <unistd.h>
#include <zlib.h>

namespace {

void removeIfPresent(const QString &path)
{
    if (!QFile::exists(path)) {
        qCDebug(logCategory) << "Cleanup Note: File did not exist, skipping:" << path;
    } else if (!QFile::remove(path)) {
        qCCritical(logCategory) << "Cleanup Error: Failed to remove file:" << path;
    } else {
        qCInfo(logCategory) << "Success! Cleaned up file:" << path;
    }
}

/// Copies so that a power cut leaves either the whole copy with its permissions under the new name,
/// or none. QFile::copy() sets the permissions later, leaves temporary files with new names behind,
/// and may use the temporary directory. A file in the way of the copy is removed, not written to: it
/// can be a link.
bool copyDurably(const QString &source, const QString &destination)
{
    const QFileInfo existing(destination);
    QFile original(source);
    QFile copy(destination + QLatin1StringView(".new"));
    if (existing.exists() || existing.isSymLink() || !original.open(QIODevice::ReadOnly))
        return false;
    QFile::remove(copy.fileName());
    if (!copy.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return false;

    std::array<char, 4096> buffer{};
    qint64 count = 0;
    while ((count = original.read(buffer.data(), buffer.size())) > 0) {
        if (copy.write(buffer.data(), count) != count)
            break;
    }
    copy.setPermissions(original.permissions());
    if (count == 0 && ::fsync(copy.handle()) == 0
        && std::rename(QFile::encodeName(copy.fileName()).constData(),
                       QFile::encodeName(destination).constData())
            == 0) {
        return true;
    }
    QFile::remove(copy.fileName());
    return false;
}

/// Replaces \a destination, a backup or the live file; both have the same messages.
void refreshCopy(const QString &source, const QString &destination)
{
    if (QFile::exists(destination) && !QFile::remove(destination))
        qCCritical(logCategory) << "Backup Error: Failed to remove old backup file:" << destination;
    if (copyDurably(source, destination)) {
        qCInfo(logCategory) << "Success! File safely backed up to:" << destination;
    } else {
        qCCritical(logCategory) << "Backup Error: Failed to copy file from" << source << "to"
                                << destination;
    }
}

} // namespace

QString CanBusManager::getFileTypeString(quint32 fileType)
{
    switch (fileType) {
    case Wire::FileType::configuration:
        return QStringLiteral("Configuration");
    case Wire::FileType::menu:
        return QStringLiteral("Menu");
    case Wire::FileType::generic:
        return QStringLiteral("Generic");
    case Wire::FileType::package:
        return QStringLiteral("Package");
    default:
        return QStringLiteral("Unknown");
    }
}

QString CanBusManager::getFilePathString(quint32 fileType)
{
    switch (fileType) {
    case Wire::FileType::configuration:
        return Paths::factoryConfig;
    case Wire::FileType::menu:
        return Paths::factoryMenu;
    case Wire::FileType::generic:
        return Paths::genericFile;
    case Wire::FileType::package:
        return Paths::package;
    default:
        return QStringLiteral("Unknown");
    }
}

quint32 CanBusManager::CalculateCRC32(QByteArray data, long offset, quint32 length)
{
    const auto begin = quint32(offset);
    if (begin + length <= begin || offset < 0 || offset >= data.size())
        return 0;
    // 64 bits: a length above 2 GiB does not fit a 32-bit qsizetype.
    const auto available = std::min<qint64>(length, data.size() - offset);
    return quint32(crc32_z(0, reinterpret_cast<const Bytef *>(data.constData()) + offset,
                           z_size_t(available)));
}

quint32 CanBusManager::CalculateCRC32(QString path, long offset, long length)
{
    std::array<char, 4096> buffer{};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        qCCritical(logCategory) << "CalculateCRC32 Error: Failed to open file:"
                                << file.errorString();
        return 0;
    }
    if (!file.seek(offset)) {
        qCCritical(logCategory) << "CalculateCRC32 Error: Failed to seek to offset:" << offset;
        return 0;
    }

    uLong crc = 0;
    qint64 remaining = length;
    while (remaining > 0 && !file.atEnd()) {
        const qint64 count = file.read(buffer.data(), std::min<qint64>(remaining, buffer.size()));
        if (count < 1)
            break;
        crc = crc32_z(crc, reinterpret_cast<const Bytef *>(buffer.data()), z_size_t(count));
        remaining -= count;
    }
    return quint32(crc);
}

void CanBusManager::processReceivedConfigFile()
{
    // No wildcard: the first name ends in an asterisk.
    for (const QLatin1StringView name :
         {QLatin1StringView("nvParameters.conf*"), QLatin1StringView("settingsChangeLog.db"),
          QLatin1StringView("stats.db"), QLatin1StringView("eventlog.db")}) {
        removeIfPresent(Paths::liveConfigDir + name);
    }
    ::sync();
    refreshCopy(Paths::factoryConfig, Paths::backupConfig);
    refreshCopy(Paths::factoryConfig, Paths::liveConfig);
    ::sync();
}

void CanBusManager::processReceivedMenuFile()
{
    CleanUpMenuDirectory(Paths::factoryMenuDir);
    CleanUpMenuDirectory(Paths::backupMenuDir);
    CleanUpMenuDirectory(Paths::liveMenuDir);

    refreshCopy(Paths::factoryMenu, Paths::backupMenuDir + Paths::menuArchive);
    refreshCopy(Paths::factoryMenu, Paths::liveMenuDir + Paths::menuArchive);
    ::sync();

    DecompressMenuFile(Paths::factoryMenuDir);
    DecompressMenuFile(Paths::backupMenuDir);
    DecompressMenuFile(Paths::liveMenuDir);
    ::sync();
}

void CanBusManager::CleanUpMenuDirectory(QString dir)
{
    for (const QLatin1StringView name :
         {QLatin1StringView("menu.db"), QLatin1StringView("menu.json"),
          QLatin1StringView("images.tar")}) {
        removeIfPresent(dir + name);
    }
    const QString images = dir + QLatin1StringView("images");
    if (QDir imagesDir(images); imagesDir.exists()) {
        if (imagesDir.removeRecursively()) {
            qCInfo(logCategory) << "Success! Recursively removed directory:" << images;
        } else {
            qCCritical(logCategory) << "Cleanup Error: Failed to remove directory:" << images;
        }
    }
    ::sync();
}

void CanBusManager::DecompressMenuFile(QString dir)
{
    const QString archive = dir + Paths::menuArchive;
    if (!QFile::exists(archive)) {
        qCCritical(logCategory) << "Extraction Error: Primary menu.tar missing at:" << archive;
        ::sync();
        return;
    }

    qCInfo(logCategory) << "Extracting" << archive << "into" << dir;
    {
        QProcess tar;
        tar.start(QStringLiteral("tar"),
                  {QStringLiteral("-xf"), archive, QStringLiteral("-C"), dir});
        if (!tar.waitForFinished(-1)) {
            qCCritical(logCategory) << "Tar Error: Process timed out or crashed completely."
                                    << "Error code:" << tar.error();
        } else if (tar.exitCode() == 0) {
            qCInfo(logCategory) << "Success! Uncompressed menu.tar smoothly.";
        } else {
            qCCritical(logCategory)
                << "Tar Error: Extraction failed with exit code:" << tar.exitCode()
                << "Details:" << tar.readAllStandardError().trimmed();
        }
    }
    ::sync();
}
