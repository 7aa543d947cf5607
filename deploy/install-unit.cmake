# Runs at installation: writes and installs the files that contain full paths.
include(GNUInstallDirs)
foreach(directory IN ITEMS BINDIR DATADIR SYSCONFDIR)
    GNUInstallDirs_get_absolute_install_dir(
        CMAKE_INSTALL_FULL_${directory} CMAKE_INSTALL_${directory} ${directory})
endforeach()
configure_file("${source}/dockhand.service.in" "${build}/dockhand.service" @ONLY)
configure_file("${source}/dockhand.default.in" "${build}/default/dockhand" @ONLY)
file(INSTALL "${build}/dockhand.service" DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
file(INSTALL "${build}/default/dockhand" DESTINATION "${CMAKE_INSTALL_FULL_SYSCONFDIR}/default")
