set(DOCKHAND_SANDBOX "${CMAKE_CURRENT_LIST_DIR}/sandbox")
set(DOCKHAND_TEST_ENVIRONMENT
    QT_QPA_PLATFORM=offscreen
    LC_ALL=C.UTF-8
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
    UBSAN_OPTIONS=print_stacktrace=1
)

# dockhand_add_test(NAME name SOURCES file... [LIBRARIES target...] [VIRTUALBUS]
#                   [TIMEOUT seconds] [ENVIRONMENT name=value...])
#
# Adds a QtTest executable to ctest, which runs it in the sandbox: own /media, stand-ins for the
# clock tools, empty working directory. With VIRTUALBUS a virtual bus replaces CAN. Cross-built
# tests run under the toolchain's emulator.
function(dockhand_add_test)
    cmake_parse_arguments(PARSE_ARGV 0 arg "VIRTUALBUS" "NAME;TIMEOUT" "SOURCES;LIBRARIES;ENVIRONMENT")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "dockhand_add_test: unknown argument ${arg_UNPARSED_ARGUMENTS}")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    qt_add_executable(${arg_NAME} ${arg_SOURCES})
    target_link_libraries(${arg_NAME} PRIVATE Qt6::Test ${arg_LIBRARIES})
    set(bus "")
    if(arg_VIRTUALBUS)
        add_dependencies(${arg_NAME} virtualbus virtualbus_plugin)
        set(bus --virtual-bus "${PROJECT_BINARY_DIR}")
    endif()
    add_test(NAME ${arg_NAME}
        COMMAND "${DOCKHAND_SANDBOX}" ${bus} --
            ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${arg_NAME}>)
    dockhand_test_properties(${arg_NAME} ${arg_TIMEOUT} ${arg_ENVIRONMENT})
endfunction()

# dockhand_test_properties(NAME TIMEOUT [name=value...]): sets the environment of a test, and its
# folder as its label.
function(dockhand_test_properties name timeout)
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME label)
    set(unset QT_LOGGING_RULES QT_MESSAGE_PATTERN QT_PLUGIN_PATH QT_QUICK_BACKEND LANGUAGE
        VIRTUALBUS_FAULTS DOCKHAND_STAND_IN_LOG SHIPWRIGHT_BITRATE SHIPWRIGHT_DESTINATION
        SHIPWRIGHT_INTERFACE SHIPWRIGHT_PLUGIN SHIPWRIGHT_RETRIES SHIPWRIGHT_SLOT SHIPWRIGHT_TIMEOUT)
    list(TRANSFORM unset APPEND "=unset:")
    set_tests_properties(${name} PROPERTIES
        LABELS ${label}
        TIMEOUT ${timeout}
        ENVIRONMENT_MODIFICATION "${unset}"
        ENVIRONMENT "${DOCKHAND_TEST_ENVIRONMENT};${ARGN}")
endfunction()
