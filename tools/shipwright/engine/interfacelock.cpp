#include "interfacelock.h"

#include "failure.h"
#include "text.h"

#include <QCryptographicHash>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

/// The process that listens at \a address; 0 if unknown.
pid_t ownerOf(const sockaddr *address, socklen_t size)
{
    ucred owner = {};
    socklen_t ownerSize = sizeof owner;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connect(socket, address, size) != 0
        || getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &owner, &ownerSize) != 0)
        owner.pid = 0;
    close(socket);
    return owner.pid;
}

} // namespace

InterfaceLock::InterfaceLock(const QByteArray &name, const QString &interfaceName)
    : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    // An abstract address needs no folder and no permissions, and disappears with the socket.
    const QByteArray abstractName = '\0' + QByteArrayLiteral("shipwright-")
        + QCryptographicHash::hash(name, QCryptographicHash::Sha256).toHex();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(abstractName.begin(), abstractName.end(), address.sun_path);
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path)
                                             + static_cast<size_t>(abstractName.size()));
    if (bind(m_socket, generic, size) == 0 && listen(m_socket, 1) == 0)
        return;

    const int error = errno;
    const pid_t owner = error == EADDRINUSE ? ownerOf(generic, size) : 0;
    close(m_socket);
    if (error != EADDRINUSE) {
        throw Failure(Exit::Interface,
                      u"The interface \"%1\" cannot be reserved: %2."_s.arg(
                          printable(interfaceName), qt_error_string(error)));
    }
    throw Failure(
        Exit::InUse,
        u"Another shipwright%1 uses the interface \"%2\"; nothing was sent."_s.arg(
            owner > 0 ? u" (process %1)"_s.arg(owner) : QString(), printable(interfaceName)),
        u"Wait until it ends: two tools at once would mix their frames."_s);
}

InterfaceLock::~InterfaceLock()
{
    close(m_socket);
}

} // namespace Shipwright
