#pragma once

#include <QString>

#include <optional>

namespace Shipwright {

/// The names that file types have on the command line and in print.
QString fileTypeName(quint32 fileType);
std::optional<quint32> fileTypeFromName(const QString &name);

} // namespace Shipwright
