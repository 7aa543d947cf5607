# dockhand_add_resources(TARGET): compiles the display into TARGET at the root of the
# resource tree (:/main.qml) and the catalogues below :/i18n/.
function(dockhand_add_resources target)
    set(qml_dir "${PROJECT_SOURCE_DIR}/qml")
    set(names main.qml ProgressIndicator.qml Theme.qml)
    foreach(name IN LISTS names)
        set_source_files_properties("${qml_dir}/${name}" PROPERTIES QT_RESOURCE_ALIAS "${name}")
        list(APPEND files "${qml_dir}/${name}")
    endforeach()
    qt_add_qml_module(${target}
        URI Dockhand
        VERSION 1.0
        RESOURCE_PREFIX /
        NO_RESOURCE_TARGET_PATH
        OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/${target}_qml"
        QML_FILES ${files}
    )
    qt_add_translations(${target}
        TS_FILES "${PROJECT_SOURCE_DIR}/i18n/Dockhand_en_US.ts"
        RESOURCE_PREFIX /i18n
    )
endfunction()
