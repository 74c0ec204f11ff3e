# SPDX-License-Identifier: MIT
# Functions for this project's targets: one set of warnings and sanitizers for all, and a target
# graph in which the core cannot reach a host.

set(RA_SANITIZE "" CACHE STRING "Sanitizers for everything, e.g. address,undefined or thread")
option(RA_WERROR "Let warnings stop the build, as ./test does: other compilers and libraries warn of more" OFF)
option(RA_COVERAGE "Count which lines and branches are run" OFF)
option(RA_FUZZ "Build the fuzz targets (clang only)" OFF)

find_program(RA_CCACHE ccache)
if(RA_CCACHE)
  # Lets a clone in another folder use what this one compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${RA_CCACHE})
endif()

add_library(ra_options INTERFACE)
target_include_directories(ra_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(ra_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wcast-align -Wnull-dereference -Wformat=2 -fvisibility=hidden)
if(RA_WERROR)
  target_compile_options(ra_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC 12 warns about std::string's own assignment (GCC bug 105651).
  target_compile_options(ra_options INTERFACE -Wno-restrict)
else()
  # Who holds which lock (platform/thread_annotations.h).
  target_compile_options(ra_options INTERFACE -Wthread-safety)
  # PipeWire's headers are made of these.
  target_compile_options(ra_options INTERFACE
    -Wno-gnu-statement-expression -Wno-c99-extensions)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # In a unity build, a source's unnamed namespace is not in the main file, which triggers this
  # warning.
  target_compile_options(ra_options INTERFACE -Wno-subobject-linkage)
endif()
if(RA_SANITIZE)
  target_compile_options(ra_options INTERFACE
    -fsanitize=${RA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(ra_options INTERFACE -fsanitize=${RA_SANITIZE})
  # The sanitizers' own inlining causes false positives here.
  target_compile_options(ra_options INTERFACE -Wno-null-dereference)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(ra_options INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()

if(RA_COVERAGE)
  target_compile_definitions(ra_options INTERFACE RA_COVERAGE)
  target_compile_options(ra_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(ra_options INTERFACE --coverage)
endif()

find_package(Threads REQUIRED)
find_library(RA_LAME_LIBRARY mp3lame REQUIRED)
add_library(ra_lame INTERFACE)
target_link_libraries(ra_lame INTERFACE ${RA_LAME_LIBRARY})

# Much of PipeWire is inline functions in headers. GCC's null pointer warnings are then about lines
# that are not ours.
find_package(PkgConfig REQUIRED)
pkg_check_modules(RA_PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3>=0.3.60)
add_library(ra_pipewire INTERFACE)
target_link_libraries(ra_pipewire INTERFACE PkgConfig::RA_PIPEWIRE)
target_compile_options(ra_pipewire INTERFACE -Wno-null-dereference)

# For a fast ./run: parses the common standard headers only once. The tests' builds do without this,
# so that every source still has to include what it needs.
option(RA_PRECOMPILED_HEADERS "Read the standard library's headers once for all libraries" OFF)
if(RA_PRECOMPILED_HEADERS)
  # All users of the precompiled headers must have the same options.
  target_compile_options(ra_options INTERFACE -pthread)
  file(CONFIGURE OUTPUT precompiled_headers.cpp CONTENT "")
  add_library(ra_precompiled_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/precompiled_headers.cpp)
  target_link_libraries(ra_precompiled_headers PRIVATE ra_options)
  target_precompile_headers(ra_precompiled_headers PRIVATE
    <algorithm> <array> <atomic> <chrono> <cstdint> <filesystem> <functional> <map> <memory> <mutex>
    <optional> <span> <string> <string_view> <thread> <utility> <vector>)
endif()
function(ra_precompile_headers target)
  if(RA_PRECOMPILED_HEADERS)
    target_precompile_headers(${target} REUSE_FROM ra_precompiled_headers)
  endif()
endfunction()

# ra_room(NAME USES ...): rooms.cmake lists them all.
function(ra_room name)
  cmake_parse_arguments(ARG "" "" "USES" ${ARGN})
  set_property(GLOBAL PROPERTY "RA_ROOM_${name}" ${name} ${ARG_USES})
endfunction()
include(rooms)

# Sets `result` to the room of this folder: its own, or the nearest one above it.
function(ra_room_here result)
  file(RELATIVE_PATH room ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  while(room)
    get_property(rooms GLOBAL PROPERTY "RA_ROOM_${room}")
    if(rooms)
      set(${result} ${room} PARENT_SCOPE)
      return()
    endif()
    get_filename_component(room "${room}" DIRECTORY)
  endwhile()
  message(FATAL_ERROR "${CMAKE_CURRENT_SOURCE_DIR} is in no room of cmake/rooms.cmake")
endfunction()

# ra_room_library(NAME SOURCES ... LINKS ... MAY_LINK ...): a library of this folder's room. It links
# libraries of its own room, of the rooms that this one uses, and what MAY_LINK names. Configuring
# fails if it links anything else.
function(ra_room_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;MAY_LINK" ${ARGN})
  ra_room_here(room)
  get_property(usable GLOBAL PROPERTY "RA_ROOM_${room}")
  foreach(link IN LISTS ARG_LINKS)
    get_property(room_of_link GLOBAL PROPERTY "RA_ROOM_OF_${link}")
    if(NOT room_of_link IN_LIST usable AND NOT link IN_LIST ARG_MAY_LINK)
      message(FATAL_ERROR "${name} is in ${room}/ and must not link ${link} (cmake/rooms.cmake)")
    endif()
  endforeach()
  set_property(GLOBAL PROPERTY "RA_ROOM_OF_${name}" ${room})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ra_options ${ARG_LINKS})
  ra_precompile_headers(${name})
endfunction()

# ra_core_library(NAME SOURCES ... LINKS ...): of the core, which links the core and LAME only.
function(ra_core_library name)
  ra_room_library(${name} ${ARGN} MAY_LINK ra_lame)
endfunction()

# ra_host_library(NAME SOURCES ... LINKS ...): of a host. Besides its own room, the ports and the
# suite's interfaces it may link any library that belongs to no room.
function(ra_host_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  set(outside)
  foreach(link IN LISTS ARG_LINKS)
    get_property(room_of_link GLOBAL PROPERTY "RA_ROOM_OF_${link}")
    if(NOT room_of_link)
      list(APPEND outside ${link})
    endif()
  endforeach()
  ra_room_library(${name} SOURCES ${ARG_SOURCES} LINKS ra_platform ${ARG_LINKS} MAY_LINK ${outside})
endfunction()

add_library(ra_test_options INTERFACE)
if(RA_SANITIZE MATCHES undefined)
  # Only the code under test is checked for undefined behaviour; checking the tests' own sources,
  # too, would double their compile time. (Must come last in a test's link list.)
  target_compile_options(ra_test_options INTERFACE -fno-sanitize=undefined)
endif()

# ra_test(NAME SOURCES ... LINKS ... LABELS ... [TIMEOUT s] [ONE_THREAD]): one GoogleTest program,
# one CTest entry. ONE_THREAD: starts no other thread, so a race detector has nothing to find.
function(ra_test name)
  cmake_parse_arguments(ARG "ONE_THREAD" "TIMEOUT" "SOURCES;LINKS;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE
    ra_options ${ARG_LINKS} GTest::gmock GTest::gtest_main ra_test_options)
  if(ARG_ONE_THREAD AND RA_SANITIZE MATCHES thread)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    return()
  endif()
  add_test(NAME ${name} COMMAND ${name})
  # No test may reach a server of the machine on which it runs. The longest tests start first.
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${ARG_TIMEOUT} COST ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
    ENVIRONMENT "PIPEWIRE_REMOTE=no-such-server;DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent;DISPLAY=;WAYLAND_DISPLAY=;TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.suppressions;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.suppressions:print_suppressions=0")
endfunction()
