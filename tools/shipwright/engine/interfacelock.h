#pragma once

#include <QString>

namespace Shipwright {

/// Keeps a CAN interface for one process of this computer, whoever started it. The kernel releases
/// it when the process ends, in whatever way.
class InterfaceLock
{
public:
    /// Throws a Failure when another process has the lock called \a name. Like the interfaces of
    /// the kernel, names are a network namespace's own.
    InterfaceLock(const QByteArray &name, const QString &interfaceName);
    ~InterfaceLock();
    Q_DISABLE_COPY_MOVE(InterfaceLock)

private:
    int m_socket;
};

} // namespace Shipwright
