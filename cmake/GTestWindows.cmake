# Provides GTest::gtest, GTest::gtest_main, GTest::gmock and GTest::gmock_main
# on every lane, so test targets are written once:
#   - native: find_package(GTest) against Debian's libgtest-dev/libgmock-dev;
#   - cross (mingw-w64): Debian ships GoogleTest only as Linux binaries, so it
#     is compiled from the sources in /usr/src/googletest (package
#     "googletest") into this build tree.
#
# Usage (from the top-level CMakeLists.txt):
#   list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_SOURCE_DIR}/cmake")
#   include(GTestWindows)
#
# QIM_GOOGLETEST_SOURCE_DIR overrides the source location.

include_guard(GLOBAL)

if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
  # CMake < 3.23 has no GTest::gmock targets; fill them in from the same
  # installation so both lanes really offer the same names.
  if(NOT TARGET GTest::gmock)
    find_library(QIM_GMOCK_LIBRARY gmock REQUIRED)
    find_library(QIM_GMOCK_MAIN_LIBRARY gmock_main REQUIRED)
    add_library(GTest::gmock UNKNOWN IMPORTED)
    set_target_properties(GTest::gmock PROPERTIES
      IMPORTED_LOCATION "${QIM_GMOCK_LIBRARY}"
      INTERFACE_LINK_LIBRARIES GTest::gtest)
    add_library(GTest::gmock_main UNKNOWN IMPORTED)
    set_target_properties(GTest::gmock_main PROPERTIES
      IMPORTED_LOCATION "${QIM_GMOCK_MAIN_LIBRARY}"
      INTERFACE_LINK_LIBRARIES GTest::gmock)
  endif()
  return()
endif()

# Discover test cases when ctest runs rather than right after linking: the
# build then never starts wine, and discovery happens inside the test
# environment (xvfb, prepared wine prefix) instead of wherever make runs.
if(NOT DEFINED CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE)
  set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
endif()

set(QIM_GOOGLETEST_SOURCE_DIR "/usr/src/googletest" CACHE PATH
    "GoogleTest source tree to build for cross lanes")
if(NOT EXISTS "${QIM_GOOGLETEST_SOURCE_DIR}/CMakeLists.txt")
  message(FATAL_ERROR
    "GoogleTest sources not found in ${QIM_GOOGLETEST_SOURCE_DIR} "
    "(apt-get install googletest, or set QIM_GOOGLETEST_SOURCE_DIR)")
endif()

# A function scope keeps these settings away from the project itself.
function(_qim_add_googletest)
  # Always static: a shared gtest would need its DLLs beside every test .exe,
  # and gtest's own DLL build has separate import/export quirks.
  set(BUILD_SHARED_LIBS OFF)
  set(BUILD_GMOCK ON)
  set(INSTALL_GTEST OFF)
  set(gtest_build_tests OFF)
  set(gtest_build_samples OFF)
  set(gmock_build_tests OFF)
  # googletest's cmake_minimum_required predates CMP0077, under which its
  # option() calls would ignore the variables above.
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  add_subdirectory("${QIM_GOOGLETEST_SOURCE_DIR}"
                   "${CMAKE_BINARY_DIR}/_deps/googletest" EXCLUDE_FROM_ALL)
endfunction()
_qim_add_googletest()

foreach(_qim_gt gtest gtest_main gmock gmock_main)
  if(NOT TARGET GTest::${_qim_gt})
    add_library(GTest::${_qim_gt} ALIAS ${_qim_gt})
  endif()
  # Third-party code: don't let the project's warning policy fail on it.
  set_target_properties(${_qim_gt} PROPERTIES CXX_CLANG_TIDY "" COMPILE_WARNING_AS_ERROR OFF)
endforeach()
unset(_qim_gt)
