#pragma once

#include <QLatin1StringView>

/// The fixed places in the appliance's service tree. Directories end in "/", so that a file name
/// can be appended.
namespace Paths {

inline constexpr QLatin1StringView serialNumber{"/media/service/korvane/serialNumber"};

inline constexpr QLatin1StringView factoryConfig{
    "/media/service/korvane/application/factory/main/systemConfig.json"};
inline constexpr QLatin1StringView backupConfig{
    "/media/service/korvane/application/backup/main/systemConfig.json"};
inline constexpr QLatin1StringView liveConfig{
    "/media/service/korvane/application/main/systemConfig.json"};
inline constexpr QLatin1StringView liveConfigDir{"/media/service/korvane/application/main/"};

inline constexpr QLatin1StringView factoryMenuDir{
    "/media/service/korvane/application/factory/menu/"};
inline constexpr QLatin1StringView backupMenuDir{"/media/service/korvane/application/backup/menu/"};
inline constexpr QLatin1StringView liveMenuDir{"/media/service/korvane/application/menu/"};
inline constexpr QLatin1StringView menuArchive{"menu.tar"}; ///< its name in each of the three
inline constexpr QLatin1StringView factoryMenu{
    "/media/service/korvane/application/factory/menu/menu.tar"};

inline constexpr QLatin1StringView genericFile{"/media/service/korvane/pendingUpdates/file.log"};
inline constexpr QLatin1StringView package{"/media/service/korvane/pendingUpdates/package.tar"};

} // namespace Paths
