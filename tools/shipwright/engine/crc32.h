#pragma once

#include <QByteArray>

namespace Shipwright {

/// The CRC-32 of \a data, or of what \a crc is the CRC-32 of followed by \a data.
quint32 crc32Of(const QByteArray &data, quint32 crc = 0);

} // namespace Shipwright
