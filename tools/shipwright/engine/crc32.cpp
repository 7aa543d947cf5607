#include "crc32.h"

#include <zlib.h>

namespace Shipwright {

quint32 crc32Of(const QByteArray &data, quint32 crc)
{
    return static_cast<quint32>(::crc32_z(crc, reinterpret_cast<const Bytef *>(data.constData()),
                                          static_cast<z_size_t>(data.size())));
}

} // namespace Shipwright
