#pragma once

#include <QByteArray>

namespace Shipwright {

/// The CRC-32 of \a data; \a crc is that of the bytes before it.
quint32 crc32Of(const QByteArray &data, quint32 crc = 0);

} // namespace Shipwright
