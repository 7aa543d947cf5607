# dockhand_add_catalogues(TARGET FILE.ts...): compiles translation catalogues into TARGET, below
# :/i18n/. qt_add_translations chooses another place in some versions of Qt.
function(dockhand_add_catalogues target)
    set(catalogues "")
    foreach(translation IN LISTS ARGN)
        cmake_path(ABSOLUTE_PATH translation)
        cmake_path(GET translation STEM name)
        set(catalogue "${CMAKE_CURRENT_BINARY_DIR}/${name}.qm")
        add_custom_command(OUTPUT "${catalogue}"
            COMMAND Qt6::lrelease -silent "${translation}" -qm "${catalogue}"
            DEPENDS "${translation}"
        )
        list(APPEND catalogues "${catalogue}")
    endforeach()
    qt_add_resources(${target} ${target}_catalogues
        PREFIX /i18n
        BASE "${CMAKE_CURRENT_BINARY_DIR}"
        FILES ${catalogues}
    )
endfunction()
