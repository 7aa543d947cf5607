#pragma once

#include <QDir>
#include <QDirIterator>
#include <QFile>

/// The service tree of the sandbox that the test runs in.
namespace ServiceTree {

inline QString path(const QString &name)
{
    return QStringLiteral("/media/service/korvane/") + name;
}

/// Removes all files and leaves the directories.
inline void clear()
{
    QDirIterator files(path({}), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        QFile::remove(files.next());
}

/// All files, by name.
inline QStringList files()
{
    QStringList result;
    QDirIterator found(path({}), QDir::Files, QDirIterator::Subdirectories);
    while (found.hasNext())
        result.append(QDir(path({})).relativeFilePath(found.next()));
    result.sort();
    return result;
}

/// A file's content; a null array if there is none, an empty one if it is empty.
inline QByteArray read(const QString &name)
{
    QFile file(path(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.readAll();
    return content.isEmpty() ? QByteArray("") : content;
}

inline bool write(const QString &name, const QByteArray &content)
{
    QFile file(path(name));
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
}

} // namespace ServiceTree
