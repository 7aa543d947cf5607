#pragma once

#include <QString>

#include <optional>

namespace Shipwright {

/// The names of the file types on the command line and in messages.
QString fileTypeName(quint32 fileType);
std::optional<quint32> fileTypeFromName(const QString &name);

} // namespace Shipwright
