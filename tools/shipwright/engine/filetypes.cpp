#include "filetypes.h"

#include "wire.h"

#include <utility>

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

constexpr std::pair<quint32, QLatin1StringView> fileTypes[] = {
    {Wire::FileType::configuration, QLatin1StringView("configuration")},
    {Wire::FileType::menu, QLatin1StringView("menu")},
    {Wire::FileType::generic, QLatin1StringView("generic")},
    {Wire::FileType::package, QLatin1StringView("package")},
};

} // namespace

QString fileTypeName(quint32 fileType)
{
    for (const auto &[code, name] : fileTypes) {
        if (code == fileType)
            return name;
    }
    return u"unknown"_s;
}

std::optional<quint32> fileTypeFromName(const QString &name)
{
    for (const auto &[code, known] : fileTypes) {
        if (name == known)
            return code;
    }
    return std::nullopt;
}

} // namespace Shipwright
