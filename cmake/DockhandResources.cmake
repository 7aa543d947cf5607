# dockhand_add_resources(TARGET): compiles the display into TARGET at the root of the
# resource tree (:/main.qml) and the catalogues below :/i18n/.
function(dockhand_add_resources target)
    # Qt names what it generates after the QML file alone: each target gets a directory.
    set(CMAKE_CURRENT_BINARY_DIR "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources")
    set(qml_dir "${PROJECT_SOURCE_DIR}/qml")
    set(files main.qml ProgressIndicator.qml Theme.qml)
    list(TRANSFORM files PREPEND "${qml_dir}/")
    foreach(file IN LISTS files)
        get_filename_component(name "${file}" NAME)
        set_source_files_properties("${file}" PROPERTIES QT_RESOURCE_ALIAS "${name}")
    endforeach()
    # The files find each other as neighbours, so the resources need no qmldir; the QML
    # compiler wants one all the same.
    file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/qmldir" CONTENT "")
    qt_add_qml_module(${target}
        URI Dockhand
        VERSION 1.0
        RESOURCE_PREFIX /
        NO_RESOURCE_TARGET_PATH
        NO_GENERATE_QMLDIR
        OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
        QML_FILES ${files}
    )
    # Our warnings are not for what Qt generates.
    get_target_property(generated ${target} SOURCES)
    list(FILTER generated INCLUDE REGEX "/\\.rcc/.*\\.cpp$")
    set_source_files_properties(${generated} PROPERTIES COMPILE_OPTIONS -w)
    # Without it Qt Quick Controls loads the Fusion style and, as its fallback, Basic too.
    qt_add_resources(${target} ${target}_controls
        PREFIX /
        BASE "${qml_dir}"
        FILES "${qml_dir}/qtquickcontrols2.conf"
    )
    qt_add_translations(${target}
        TS_FILES "${PROJECT_SOURCE_DIR}/i18n/Dockhand_en_US.ts"
        RESOURCE_PREFIX /i18n
    )
endfunction()
