#pragma once

#include <QByteArray>
#include <QString>

#include <limits>
#include <optional>
#include <sys/types.h>
#include <vector>

// The files of this computer. All calls throw a Failure that names the file, and end with one when
// a signal comes while they wait.
namespace Shipwright {

/// A file whatever it is called: symbolic links and hard links lead to the same one.
struct FileIdentity
{
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity &) const = default;
};

/// The identity of what \a descriptor has open, if it keeps what is written: a file or a pipe.
std::optional<FileIdentity> storedFile(int descriptor);

/// Something to read: a file, a pipe, or standard input, which is called "-" or /dev/stdin.
class Input
{
public:
    explicit Input(const QString &name);
    ~Input();
    Q_DISABLE_COPY_MOVE(Input)

    /// The next bytes, as soon as there are some; nothing at the end.
    QByteArray read();
    /// All of it, as it was at one moment. Refuses directories, devices, files that change while
    /// they are read, and more than \a most bytes: the wire's sizes have 32 bits.
    QByteArray readAll(qint64 most = std::numeric_limits<quint32>::max());

    /// How messages call it.
    QString shownName() const { return m_shownName; }
    bool isStandardInput() const { return m_isStandardInput; }
    std::optional<FileIdentity> identity() const { return storedFile(m_descriptor); }

private:
    [[noreturn]] void fail(int error) const;

    QString m_shownName;
    int m_descriptor = -1;
    bool m_isStandardInput;
};

/// Writes all of \a bytes, however long that takes; returns 0 or the number of the error, EINTR when
/// a signal came while it waited. Throws nothing.
int writeAll(int descriptor, const QByteArray &bytes);

/// A file to write.
class Output
{
public:
    /// \a what names the file's purpose in messages. Refuses a file that is one of \a inputs.
    Output(const QString &what, const QString &path, const std::vector<FileIdentity> &inputs);
    ~Output();
    Q_DISABLE_COPY_MOVE(Output)

    /// Empties the file, which until then is as it was.
    void start();
    void write(const QByteArray &bytes);

private:
    [[noreturn]] void fail(int error) const;

    QString m_shownName;
    int m_descriptor = -1;
};

} // namespace Shipwright
