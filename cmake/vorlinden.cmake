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

# Flags, include root and precompiled headers for one of this project's targets.
function(vorlinden_target target)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(VORLINDEN_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(VORLINDEN_MOLD)
    target_link_options(${target} PRIVATE -fuse-ld=mold)
  endif()
  if(VORLINDEN_PCH)
    target_precompile_headers(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/precompiled.h)
  endif()
endfunction()

# A GoogleTest binary; every case becomes a CTest test of the area's name.
function(vorlinden_test target)
  add_executable(${target} ${ARGN})
  vorlinden_target(${target})
  target_link_libraries(${target} PRIVATE VorlindenTestSupport)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300)
endfunction()
