#pragma once

#include <QString>

namespace Shipwright {

/// Reserves a CAN interface for one process of this computer, across users. The kernel releases it
/// when the process ends, even by a crash.
class InterfaceLock
{
public:
    /// Throws a Failure if another process holds the lock \a name. Like the kernel's interfaces,
    /// each network namespace has its own names.
    InterfaceLock(const QByteArray &name, const QString &interfaceName);
    ~InterfaceLock();
    Q_DISABLE_COPY_MOVE(InterfaceLock)

private:
    int m_socket;
};

} // namespace Shipwright
