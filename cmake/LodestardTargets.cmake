# The ways this project makes a target: same warnings, same include root, everywhere.

# Debian's interpreter: its packages (GObject introspection, gps) belong to it and to no other.
set(LODESTARD_PYTHON /usr/bin/python3 CACHE FILEPATH "Interpreter of the tests and tools")

add_library(lodestard-build-options INTERFACE)
target_compile_options(lodestard-build-options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
    -Woverloaded-virtual -Wnon-virtual-dtor)
target_compile_definitions(lodestard-build-options INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_FOREACH QT_NO_CAST_TO_ASCII)
target_include_directories(lodestard-build-options INTERFACE ${PROJECT_SOURCE_DIR}/src)

# Off by default: a build that reads what each file includes itself finds a missing include, and a
# compiler cache serves other checkouts. `run-tests` switches it on where it saves time.
option(LODESTARD_PRECOMPILE "Precompile the headers of Qt for all targets" OFF)

if(LODESTARD_PRECOMPILE)
    # Some libraries ask for it; what is precompiled must have been read the same way everywhere.
    target_compile_options(lodestard-build-options INTERFACE -pthread)
endif()

# lodestard_precompile(<target> <name> MODULES <Qt module>...)
# The first call for a name precompiles the umbrella headers of the modules, later ones reuse them.
function(lodestard_precompile target name)
    cmake_parse_arguments(ARG "" "" "MODULES" ${ARGN})
    if(NOT LODESTARD_PRECOMPILE)
        return()
    endif()
    if(NOT TARGET lodestard-precompiled-${name})
        file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/precompiled/${name}.cpp CONTENT "")
        add_library(lodestard-precompiled-${name} OBJECT ${PROJECT_BINARY_DIR}/precompiled/${name}.cpp)
        set_target_properties(lodestard-precompiled-${name} PROPERTIES AUTOMOC OFF)
        list(TRANSFORM ARG_MODULES PREPEND Qt6:: OUTPUT_VARIABLE links)
        list(TRANSFORM ARG_MODULES REPLACE "(.+)" "<Qt\\1/Qt\\1>" OUTPUT_VARIABLE headers)
        target_link_libraries(lodestard-precompiled-${name} PRIVATE ${links} lodestard-build-options)
        if(name STREQUAL tests)
            lodestard_test_options(lodestard-precompiled-${name})
        endif()
        target_precompile_headers(lodestard-precompiled-${name} PRIVATE ${headers} <chrono> <memory> <optional> <vector>)
    endif()
    target_precompile_headers(${target} REUSE_FROM lodestard-precompiled-${name})
endfunction()

# The sanitizers multiply what an optimiser has to read, and a test is too short to gain by it.
function(lodestard_test_options target)
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=address")
        target_compile_options(${target} PRIVATE -O0)
    endif()
endfunction()

option(LODESTARD_CHECK_HEADERS "Compile every header of the daemon on its own" OFF)

# Each header in a source of its own: it must name everything it needs.
function(lodestard_check_headers folder)
    set(stubs)
    foreach(header ${ARGN})
        set(stub ${CMAKE_CURRENT_BINARY_DIR}/headers/${header}.cpp)
        file(CONFIGURE OUTPUT ${stub} CONTENT "#include \"${folder}/${header}\"\n")
        list(APPEND stubs ${stub})
    endforeach()
    add_library(lodestard-${folder}-headers OBJECT ${stubs})
    target_link_libraries(lodestard-${folder}-headers PRIVATE lodestard-${folder})
    set_target_properties(lodestard-${folder}-headers PROPERTIES AUTOMOC OFF)
endfunction()

# lodestard_add_library(<folder> SOURCES ... [LINKS ...])
# One static library a folder: target lodestard-<folder>.
function(lodestard_add_library folder)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    if(ARG_SOURCES)
        add_library(lodestard-${folder} STATIC ${ARG_SOURCES})
        target_link_libraries(lodestard-${folder} PUBLIC lodestard-build-options ${ARG_LINKS})
        lodestard_precompile(lodestard-${folder} daemon MODULES Core DBus Positioning)
        if(LODESTARD_CHECK_HEADERS)
            list(FILTER ARG_SOURCES INCLUDE REGEX "\\.h$")
            lodestard_check_headers(${folder} ${ARG_SOURCES})
        endif()
    else()
        add_library(lodestard-${folder} INTERFACE)
        target_link_libraries(lodestard-${folder} INTERFACE lodestard-build-options ${ARG_LINKS})
    endif()
endfunction()

# What AUTOMOC does, without its two more compiler and generator runs for each of many small programs:
# <name>.moc for a source that includes it, moc_<name>.cpp for a header with Q_OBJECT.
function(lodestard_moc target)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target}_moc)
    foreach(source ${ARGN})
        if(source MATCHES "^\\$<")
            continue()
        endif()
        cmake_path(ABSOLUTE_PATH source NORMALIZE)
        file(STRINGS ${source} objects REGEX "^[ \t]*Q_OBJECT")
        if(NOT objects)
            continue()
        endif()
        cmake_path(GET source STEM stem)
        if(source MATCHES "\\.h$")
            set(output ${folder}/moc_${stem}.cpp)
        else()
            set(output ${folder}/${stem}.moc)
        endif()
        add_custom_command(OUTPUT ${output} COMMAND Qt6::moc -o ${output} ${source} DEPENDS ${source} VERBATIM)
        target_sources(${target} PRIVATE ${output})
    endforeach()
    file(MAKE_DIRECTORY ${folder})
    target_include_directories(${target} PRIVATE ${folder})
endfunction()

# lodestard_add_test_library(<name> SOURCES ... LINKS ...)
# What tests share: fakes, recorders, benches. Found by "<folder>/<header>" from tests/.
function(lodestard_add_test_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    lodestard_moc(${name} ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} lodestard-build-options PRIVATE Qt6::DBus Qt6::Positioning)
    lodestard_test_options(${name})
    lodestard_precompile(${name} tests MODULES Core DBus Positioning)
endfunction()

# lodestard_add_test(<name> LABEL unit|component SOURCES ... LINKS ... [COMMAND wrapper...])
# A Qt test program; unit tests need neither event loop nor bus, component tests may use both.
# COMMAND puts a wrapper (a private bus, say) in front of the program.
function(lodestard_add_test name)
    cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;LINKS;COMMAND" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    lodestard_moc(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} Qt6::Test lodestard-build-options)
    lodestard_test_options(${name})
    lodestard_precompile(${name} tests MODULES Core DBus Positioning)
    add_test(NAME ${name} COMMAND ${ARG_COMMAND} $<TARGET_FILE:${name}>)
    # What Qt's bus thread had not sent when the program ended is no leak of ours.
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABEL}" TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "LSAN_OPTIONS=suppressions='${PROJECT_SOURCE_DIR}/tests/support/harness/lsan.supp':print_suppressions=0")
endfunction()

# lodestard_add_e2e_test(<name> FILE <test_x.py> [TIMEOUT <seconds>] [BIND <path>...]
#                        [DAEMON <target> STATUS_KEYS <store>])
# End-to-end tests of one file: the daemon just built, in one sandbox. BIND shows more of the host;
# DAEMON is another target than lodestard, which keeps its status keys in another store.
function(lodestard_add_e2e_test name)
    cmake_parse_arguments(ARG "" "FILE;TIMEOUT;DAEMON;STATUS_KEYS" "BIND" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 180)
    endif()
    if(NOT ARG_DAEMON)
        set(ARG_DAEMON lodestard)
        set(ARG_STATUS_KEYS ${LODESTARD_STATUS_KEYS})
    endif()
    set(binds)
    foreach(path ${ARG_BIND})
        list(APPEND binds --bind-ro ${path})
    endforeach()
    cmake_path(ABSOLUTE_PATH ARG_FILE BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    add_test(NAME ${name}
        COMMAND ${LODESTARD_PYTHON} ${PROJECT_SOURCE_DIR}/tests/support/run_e2e.py
                --build ${PROJECT_BINARY_DIR} ${binds} ${ARG_FILE})
    set_tests_properties(${name} PROPERTIES LABELS e2e TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "LODESTARD_BINARY=$<TARGET_FILE:${ARG_DAEMON}>;LODESTARD_STATUS_KEYS=${ARG_STATUS_KEYS}")
endfunction()
