#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>

/// The files below /media/service/korvane, for tests that run in the sandbox.
namespace ServiceTree {

/// Why it is not safe to write to /media or to start the clock tools; empty in the sandbox.
QString unsafe();

/// Empties the tree and creates the directories that an appliance has.
void reset();

/// \a path below the root of the tree.
QString path(const QByteArray &path);
/// Replaces the file \a path below the root, or makes it and its directories.
void write(const QByteArray &path, const QByteArray &content);
/// Content of the file \a path below the root; "(no file)" if there is none.
QByteArray read(const QByteArray &path);
/// Names in the directory \a path below the root, sorted; directories end in "/".
QStringList list(const QByteArray &path);
/// Paths below the root of the files that this process has open.
QStringList openFiles();
/// All files of the tree, as paths below the root, sorted.
QByteArrayList files();

/// Makes the directory \a path below the root read-only, for root too, during its lifetime.
class ReadOnly
{
public:
    explicit ReadOnly(const QByteArray &path);
    ~ReadOnly();
    Q_DISABLE_COPY_MOVE(ReadOnly)

private:
    const QByteArray m_path;
};

/// Mounts an empty file system of \a bytes (rounded up to pages) at the directory \a path below the
/// root, during its lifetime.
class SmallFileSystem
{
public:
    SmallFileSystem(const QByteArray &path, int bytes);
    ~SmallFileSystem();
    Q_DISABLE_COPY_MOVE(SmallFileSystem)

private:
    const QByteArray m_path;
};

} // namespace ServiceTree
