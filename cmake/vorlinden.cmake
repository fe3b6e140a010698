# Packages, and the one call by which every target gets its flags.

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS json url)
find_package(OpenSSL REQUIRED)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
pkg_check_modules(FUSE3 REQUIRED IMPORTED_TARGET fuse3)

find_program(VORLINDEN_MOLD mold)

# The precompiled header, made once and shared by all targets, since all have the same flags.
function(vorlinden_precompiled)
  file(WRITE ${CMAKE_BINARY_DIR}/precompiled.cpp "// Gives the precompiled header a target to belong to.\n")
  add_library(VorlindenPrecompiled OBJECT ${CMAKE_BINARY_DIR}/precompiled.cpp)
  target_compile_options(VorlindenPrecompiled PRIVATE ${VORLINDEN_FLAGS})
  target_link_libraries(VorlindenPrecompiled PRIVATE Threads::Threads Boost::boost)
  target_precompile_headers(VorlindenPrecompiled PRIVATE ${PROJECT_SOURCE_DIR}/cmake/precompiled.h)
endfunction()

set(VORLINDEN_FLAGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# Optimising, g++ 12 takes the frame allocator of Asio's coroutines for two that don't match.
list(APPEND VORLINDEN_FLAGS -Wno-mismatched-new-delete)
if(VORLINDEN_WARNINGS_AS_ERRORS)
  list(APPEND VORLINDEN_FLAGS -Werror)
endif()
if(VORLINDEN_PCH)
  vorlinden_precompiled()
endif()

# Flags, include root and precompiled header for one of this project's targets.
function(vorlinden_target target)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE ${VORLINDEN_FLAGS})
  if(VORLINDEN_MOLD)
    target_link_options(${target} PRIVATE -fuse-ld=mold)
  endif()
  if(VORLINDEN_PCH)
    target_precompile_headers(${target} REUSE_FROM VorlindenPrecompiled)
  endif()
endfunction()

# All test binaries that run threads of their own; the thread sanitizer's run builds only these.
add_custom_target(threaded-tests)

# vorlinden_test(NAME [THREADED] FILES...): a GoogleTest binary; every case becomes a CTest test. THREADED marks a
# binary worth running under the thread sanitizer.
function(vorlinden_test target)
  cmake_parse_arguments(TEST "THREADED" "" "" ${ARGN})
  add_executable(${target} ${TEST_UNPARSED_ARGUMENTS})
  vorlinden_target(${target})
  target_link_libraries(${target} PRIVATE VorlindenTestSupport)
  set(label unit)
  if(TEST_THREADED)
    set(label threaded)
    add_dependencies(threaded-tests ${target})
  endif()
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300 LABELS ${label})
endfunction()
