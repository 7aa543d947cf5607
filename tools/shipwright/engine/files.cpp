#include "files.h"

#include "failure.h"
#include "interruption.h"
#include "text.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype chunkSize = 1 << 16;

QString errorText(int error)
{
    return qt_error_string(error);
}

/// Waits until \a descriptor can be read or written; false when a signal comes instead.
bool await(int descriptor, short event)
{
    pollfd watched[] = {{descriptor, event, 0}, {Interruption::descriptor(), POLLIN, 0}};
    while (!Interruption::hasCome() && poll(watched, std::size(watched), -1) < 0
           && errno == EINTR) {}
    return !Interruption::hasCome();
}

bool isUnchanged(const struct stat &before, const struct stat &after)
{
    return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec
        && before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
}

} // namespace

std::optional<FileIdentity> storedFile(int descriptor)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode)))
        return std::nullopt;
    return FileIdentity{status.st_dev, status.st_ino};
}

Input::Input(const QString &name)
    : m_isStandardInput(name == u"-" || name == u"/dev/stdin")
{
    if (m_isStandardInput) {
        m_shownName = u"standard input"_s;
        m_descriptor = STDIN_FILENO;
    } else {
        m_shownName = printable(name);
        const QByteArray path = QFile::encodeName(name);
        struct stat status = {};
        if (stat(path.constData(), &status) != 0)
            fail(errno);
        // Checked before it is opened: opening some devices has effects.
        if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode))
            throw Failure(Exit::LocalFile, u"%1 is a device, not a file."_s.arg(m_shownName));
        // Without blocking: a signal must be able to end the wait for a pipe without a writer.
        m_descriptor = open(path.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (m_descriptor < 0)
            fail(errno);
    }
    struct stat status = {};
    if (fstat(m_descriptor, &status) != 0)
        fail(errno);
    if (S_ISDIR(status.st_mode)) {
        throw Failure(Exit::LocalFile, u"%1 is a directory."_s.arg(m_shownName));
    }
}

Input::~Input()
{
    if (!m_isStandardInput && m_descriptor >= 0)
        close(m_descriptor);
}

void Input::fail(int error) const
{
    throw Failure(Exit::LocalFile, u"%1 cannot be read: %2."_s.arg(m_shownName, errorText(error)));
}

QByteArray Input::read()
{
    QByteArray bytes(chunkSize, Qt::Uninitialized);
    for (;;) {
        if (!await(m_descriptor, POLLIN))
            Interruption::check();
        const ssize_t count = ::read(m_descriptor, bytes.data(), static_cast<size_t>(bytes.size()));
        if (count >= 0) {
            bytes.truncate(count);
            return bytes;
        }
        if (errno != EINTR && errno != EAGAIN)
            fail(errno);
    }
}

QByteArray Input::readAll(qint64 most)
{
    struct stat before = {};
    if (fstat(m_descriptor, &before) != 0)
        fail(errno);
    if ((S_ISCHR(before.st_mode) || S_ISBLK(before.st_mode)) && isatty(m_descriptor) == 0) {
        throw Failure(Exit::LocalFile, u"%1 is a device, not a file."_s.arg(m_shownName));
    }
    if (S_ISREG(before.st_mode) && before.st_size > most) {
        throw Failure(Exit::LocalFile,
                      u"%1 has %2 bytes; the protocol allows %3."_s.arg(m_shownName)
                          .arg(before.st_size)
                          .arg(most));
    }
    QByteArray all;
    for (QByteArray part = read(); !part.isEmpty(); part = read()) {
        all += part;
        if (all.size() > most) {
            throw Failure(
                Exit::LocalFile,
                u"%1 has more than the %2 bytes that the protocol allows."_s.arg(m_shownName)
                    .arg(most));
        }
    }
    struct stat after = {};
    if (fstat(m_descriptor, &after) != 0)
        fail(errno);
    if (S_ISREG(before.st_mode) && !isUnchanged(before, after)) {
        throw Failure(Exit::LocalFile, u"%1 changed while it was read."_s.arg(m_shownName),
                      u"Wait until the file is complete, then start again."_s);
    }
    return all;
}

int writeAll(int descriptor, const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(descriptor, bytes.constData() + written,
                                      static_cast<size_t>(bytes.size() - written));
        if (count >= 0)
            written += count;
        else if (errno != EINTR && errno != EAGAIN)
            return errno;
        else if (errno == EINTR ? Interruption::hasCome() : !await(descriptor, POLLOUT))
            return EINTR;
    }
    return 0;
}

[[noreturn]] static void failToWrite(const QString &name, const QString &reason)
{
    throw Failure(Exit::LocalFile, u"%1 cannot be written: %2."_s.arg(name, reason));
}

Output::Output(const QString &what, const QString &path, const std::vector<FileIdentity> &inputs)
    : m_shownName(what + u' ' + printable(path))
{
    m_descriptor = open(QFile::encodeName(path).constData(),
                        O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    if (m_descriptor < 0)
        fail(errno);
    const std::optional<FileIdentity> file = identity();
    if (file && std::find(inputs.begin(), inputs.end(), *file) != inputs.end()) {
        close(m_descriptor);
        throw Failure(Exit::Usage,
                      u"%1 is also an input: it would be overwritten."_s.arg(m_shownName));
    }
}

Output::~Output()
{
    close(m_descriptor);
}

void Output::fail(int error) const
{
    failToWrite(m_shownName, errorText(error));
}

void Output::start()
{
    // Pipes and devices have nothing to empty.
    if (ftruncate(m_descriptor, 0) != 0 && errno != EINVAL)
        fail(errno);
}

void Output::reserve(qint64 size)
{
    struct stat status = {};
    if (fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode)
        && fallocate(m_descriptor, FALLOC_FL_KEEP_SIZE, status.st_size, size) != 0
        && errno != EOPNOTSUPP)
        fail(errno);
}

void Output::writeLine(const QByteArray &line)
{
    write(line + '\n');
    // Pipes and devices have no disk.
    if (fdatasync(m_descriptor) != 0 && errno != EINVAL)
        fail(errno);
}

void Output::write(const QByteArray &bytes)
{
    const int error = writeAll(m_descriptor, bytes);
    if (error == EINTR)
        Interruption::check();
    if (error != 0)
        fail(error);
}

WholeOutput::WholeOutput(const QString &what, const QString &path,
                         const std::vector<FileIdentity> &used)
    : m_shownName(what + u' ' + printable(path)),
      m_file(path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) == 0
        && (!S_ISREG(status.st_mode)
            || std::find(used.begin(), used.end(), FileIdentity{status.st_dev, status.st_ino})
                != used.end())) {
        m_stream.emplace(what, path, used);
        return;
    }
    // Without a buffer, so that each write tells whether it succeeded: commit() does not.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        failToWrite(m_shownName, m_file.errorString());
}

void WholeOutput::write(const QByteArray &content)
{
    if (m_stream)
        m_stream->write(content);
    else if (m_file.write(content) != content.size() || !m_file.commit())
        failToWrite(m_shownName, m_file.errorString());
}

} // namespace Shipwright
