#include "faultfs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <linux/fs.h>

namespace {

constexpr std::string_view watched = "/media/service/korvane/";
constexpr char environmentName[] = "FAULTFS_CONTROL";

FaultFs::Control *block = nullptr;
std::array<bool, 1024> ours{}; // file descriptors of files below the root

FaultFs::Control *map(const char *file, int flags)
{
    using Open = int (*)(const char *, int, ...);
    // Not with the functions below: they use the control block.
    static const auto openFile = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open"));
    const int fd = openFile(file, flags, 0600);
    if (fd < 0 || ftruncate(fd, sizeof(FaultFs::Control)) != 0)
        std::abort();
    void *const address = mmap(nullptr, sizeof(FaultFs::Control), PROT_READ | PROT_WRITE,
                               MAP_SHARED, fd, 0);
    if (address == MAP_FAILED)
        std::abort();
    close(fd);
    return static_cast<FaultFs::Control *>(address);
}

/// The C library's own function of that name.
template<typename Function>
Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) static const auto next = real<decltype(&(name))>(#name)

/// \a path resolved from the directory \a at, as far as needed.
std::string absolute(int at, const char *path)
{
    if (!path || *path == '/')
        return path ? path : "";
    std::array<char, 4096> directory{};
    const std::string place = at == AT_FDCWD ? "/proc/self/cwd"
                                             : "/proc/self/fd/" + std::to_string(at);
    REAL(readlink);
    const ssize_t length = next(place.c_str(), directory.data(), directory.size());
    return std::string(directory.data(), length > 0 ? size_t(length) : 0) + '/' + path;
}

bool isOurs(std::string_view path)
{
    return path.starts_with(watched);
}

bool isOurs(int fd)
{
    return fd >= 0 && size_t(fd) < ours.size() && ours[size_t(fd)];
}

/// Notes the first path outside of the tree that the process is about to change.
void watch(int at, const char *path)
{
    FaultFs::Control &control = FaultFs::control();
    if (!control.watch || !path || control.strayed[0] != '\0')
        return;
    const std::string_view name(path);
    if (name == "Unknown" || isOurs(absolute(at, path)))
        return;
    name.copy(control.strayed, sizeof control.strayed - 1);
}

/// Counts an operation and returns the action to take.
FaultFs::Action count()
{
    FaultFs::Control &control = FaultFs::control();
    const uint32_t number = ++control.operations;
    if (control.at == 0 || number < control.at || (number > control.at && !control.lasting))
        return FaultFs::Action::None;
    ++control.struck;
    return control.action;
}

[[noreturn]] void die()
{
    kill(0, SIGKILL);
    pause();
    std::abort();
}

/// For operations that cannot be done by half: whether this one fails; then sets errno.
bool fails()
{
    switch (count()) {
    case FaultFs::Action::Error:
        errno = FaultFs::control().error;
        return true;
    case FaultFs::Action::Kill:
        die();
    case FaultFs::Action::None:
    case FaultFs::Action::Short:
        break;
    }
    return false;
}

bool fails(int at, const char *path)
{
    return isOurs(absolute(at, path)) && fails();
}

size_t half(size_t size)
{
    return std::max<size_t>(size / 2, std::min<size_t>(size, 1));
}

/// Reads or writes size bytes, or only fewer.
template<typename Next>
ssize_t transfer(Next some, size_t size, size_t fewer)
{
    switch (count()) {
    case FaultFs::Action::Error:
        errno = FaultFs::control().error;
        return -1;
    case FaultFs::Action::Short:
        return some(fewer);
    case FaultFs::Action::Kill:
        some(fewer);
        die();
    case FaultFs::Action::None:
        break;
    }
    return some(size);
}

int openedAs(int fd, const std::string &path)
{
    if (fd >= 0 && size_t(fd) < ours.size())
        ours[size_t(fd)] = isOurs(path);
    return fd;
}

template<typename Next>
int openAt(Next next, int at, const char *path, int flags)
{
    const std::string full = absolute(at, path);
    if ((flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0 && full != "/dev/null")
        watch(at, path);
    if (isOurs(full) && fails())
        return -1;
    return openedAs(next(), full);
}

mode_t modeOf(int flags, va_list arguments)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

FaultFs::Control &FaultFs::control()
{
    if (!block) {
        if (const char *file = std::getenv(environmentName)) {
            block = map(file, O_RDWR | O_CLOEXEC);
        } else {
            static Control own{};
            block = &own;
        }
    }
    return *block;
}

void FaultFs::share(const char *file)
{
    block = map(file, O_RDWR | O_CREAT | O_CLOEXEC);
    Dl_info info{};
    dladdr(reinterpret_cast<void *>(&FaultFs::share), &info);
    setenv(environmentName, file, 1);
    setenv("LD_PRELOAD", info.dli_fname, 1);
}

extern "C" {

#define OPEN_FUNCTION(name)                                                            \
    int name(const char *path, int flags, ...)                                         \
    {                                                                                  \
        va_list arguments;                                                             \
        va_start(arguments, flags);                                                    \
        const mode_t mode = modeOf(flags, arguments);                                  \
        va_end(arguments);                                                             \
        REAL(name);                                                                    \
        return openAt([&] { return next(path, flags, mode); }, AT_FDCWD, path, flags); \
    }
OPEN_FUNCTION(open)
OPEN_FUNCTION(open64)

#define OPENAT_FUNCTION(name)                                                        \
    int name(int at, const char *path, int flags, ...)                               \
    {                                                                                \
        va_list arguments;                                                           \
        va_start(arguments, flags);                                                  \
        const mode_t mode = modeOf(flags, arguments);                                \
        va_end(arguments);                                                           \
        REAL(name);                                                                  \
        return openAt([&] { return next(at, path, flags, mode); }, at, path, flags); \
    }
OPENAT_FUNCTION(openat)
OPENAT_FUNCTION(openat64)

// A fortified program calls these instead.
int __open_2(const char *path, int flags)
{
    return open(path, flags);
}

int __openat_2(int at, const char *path, int flags)
{
    return openat(at, path, flags);
}

DIR *opendir(const char *path)
{
    REAL(opendir);
    return fails(AT_FDCWD, path) ? nullptr : next(path);
}

int close(int fd)
{
    REAL(close);
    if (!isOurs(fd))
        return next(fd);
    ours[size_t(fd)] = false;
    const bool failed = fails();
    const int error = errno;
    // A descriptor is gone even if closing it reports an error.
    const int result = next(fd);
    if (!failed)
        return result;
    errno = error;
    return -1;
}

ssize_t write(int fd, const void *data, size_t size)
{
    REAL(write);
    const auto some = [&](size_t count) { return next(fd, data, count); };
    return isOurs(fd) ? transfer(some, size, half(size)) : some(size);
}

ssize_t read(int fd, void *data, size_t size)
{
    REAL(read);
    const auto some = [&](size_t count) { return next(fd, data, count); };
    return isOurs(fd) ? transfer(some, size, half(size)) : some(size);
}

ssize_t sendfile(int out, int in, off_t *offset, size_t size)
{
    REAL(sendfile);
    const auto some = [&](size_t count) { return next(out, in, offset, count); };
    struct stat status = {};
    if (!isOurs(out))
        return some(size);
    return transfer(some, size, fstat(in, &status) == 0 ? half(size_t(status.st_size)) : 1);
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    REAL(ioctl);
    return request == FICLONE && isOurs(fd) && fails() ? -1 : next(fd, request, argument);
}

int fdatasync(int fd)
{
    REAL(fdatasync);
    return isOurs(fd) && fails() ? -1 : next(fd);
}

int fchmod(int fd, mode_t mode)
{
    REAL(fchmod);
    return isOurs(fd) && fails() ? -1 : next(fd, mode);
}

#define TRUNCATE_FUNCTION(name, offset_type)                \
    int name(int fd, offset_type size) noexcept             \
    {                                                       \
        REAL(name);                                         \
        return isOurs(fd) && fails() ? -1 : next(fd, size); \
    }
TRUNCATE_FUNCTION(ftruncate, off_t)
TRUNCATE_FUNCTION(ftruncate64, off64_t)

int access(const char *path, int mode) noexcept
{
    REAL(access);
    return fails(AT_FDCWD, path) ? -1 : next(path, mode);
}

int statx(int at, const char *path, int flags, unsigned int mask, struct statx *status) noexcept
{
    REAL(statx);
    const bool touches = *path == '\0' ? isOurs(at) : isOurs(absolute(at, path));
    return touches && fails() ? -1 : next(at, path, flags, mask, status);
}

// Those that change the tree; the last two arguments say what is changed.
#define CHANGING_FUNCTION(name, parameters, arguments, at, changed) \
    int name parameters noexcept                                    \
    {                                                               \
        REAL(name);                                                 \
        watch(at, changed);                                         \
        return fails(at, changed) ? -1 : next arguments;            \
    }
CHANGING_FUNCTION(unlink, (const char *path), (path), AT_FDCWD, path)
CHANGING_FUNCTION(unlinkat, (int at, const char *path, int flags), (at, path, flags), at, path)
CHANGING_FUNCTION(rmdir, (const char *path), (path), AT_FDCWD, path)
CHANGING_FUNCTION(mkdir, (const char *path, mode_t mode), (path, mode), AT_FDCWD, path)
CHANGING_FUNCTION(mkdirat, (int at, const char *path, mode_t mode), (at, path, mode), at, path)
CHANGING_FUNCTION(chmod, (const char *path, mode_t mode), (path, mode), AT_FDCWD, path)
CHANGING_FUNCTION(link, (const char *from, const char *to), (from, to), AT_FDCWD, to)
CHANGING_FUNCTION(linkat, (int fromAt, const char *from, int at, const char *to, int flags),
                  (fromAt, from, at, to, flags), at, to)
CHANGING_FUNCTION(symlinkat, (const char *target, int at, const char *path), (target, at, path), at,
                  path)

int rename(const char *from, const char *to) noexcept
{
    REAL(rename);
    watch(AT_FDCWD, from);
    watch(AT_FDCWD, to);
    return fails(AT_FDCWD, to) ? -1 : next(from, to);
}

int renameat2(int fromAt, const char *from, int toAt, const char *to, unsigned int flags) noexcept
{
    REAL(renameat2);
    watch(fromAt, from);
    watch(toAt, to);
    return fails(toAt, to) ? -1 : next(fromAt, from, toAt, to, flags);
}

} // extern "C"
