#pragma once

#include <QByteArray>
#include <QSaveFile>
#include <QString>

#include <limits>
#include <optional>
#include <sys/types.h>
#include <vector>

// Local files. All calls throw a Failure that names the file, also when a signal interrupts them.
namespace Shipwright {

/// Identifies a file: all its links compare equal.
struct FileIdentity
{
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity &) const = default;
};

/// The identity of the file or pipe open in \a descriptor; nothing for a terminal or a device.
std::optional<FileIdentity> storedFile(int descriptor);

/// A file, a pipe, or standard input ("-" or /dev/stdin) to read.
class Input
{
public:
    explicit Input(const QString &name);
    ~Input();
    Q_DISABLE_COPY_MOVE(Input)

    /// Waits for the next bytes; empty at the end.
    QByteArray read();
    /// The whole content. Refuses directories, devices, files that change while
    /// they are read, and more than \a most bytes: the protocol's file size has 32 bits.
    QByteArray readAll(qint64 most = std::numeric_limits<quint32>::max());

    /// Its name in messages.
    QString shownName() const { return m_shownName; }
    bool isStandardInput() const { return m_isStandardInput; }
    std::optional<FileIdentity> identity() const { return storedFile(m_descriptor); }

private:
    [[noreturn]] void fail(int error) const;

    QString m_shownName;
    int m_descriptor = -1;
    bool m_isStandardInput;
};

/// Writes all of \a bytes, however long that takes. Returns 0 or errno, EINTR if a signal
/// interrupted it. Throws nothing.
int writeAll(int descriptor, const QByteArray &bytes);

/// A file to write.
class Output
{
public:
    /// \a what names the file's purpose in messages. Refuses a file that is one of \a inputs.
    Output(const QString &what, const QString &path, const std::vector<FileIdentity> &inputs);
    ~Output();
    Q_DISABLE_COPY_MOVE(Output)

    /// The name in messages.
    QString shownName() const { return m_shownName; }
    std::optional<FileIdentity> identity() const { return storedFile(m_descriptor); }

    /// Empties the file; until then it keeps its content.
    void start();
    /// Makes room for \a size bytes at the end of the file, where the file system can tell.
    void reserve(qint64 size);
    void write(const QByteArray &bytes);
    /// Writes a line in one go, whoever else writes there too, and brings it to the disk.
    void writeLine(const QByteArray &line);

private:
    [[noreturn]] void fail(int error) const;

    QString m_shownName;
    int m_descriptor = -1;
};

/// A file that is written whole or not at all. What is there stays until then.
class WholeOutput
{
public:
    /// Like Output's. A pipe or a device is written as it is.
    WholeOutput(const QString &what, const QString &path, const std::vector<FileIdentity> &used);

    void write(const QByteArray &content);

private:
    QString m_shownName;
    QSaveFile m_file;
    std::optional<Output> m_stream; ///< in place of the file
};

} // namespace Shipwright
