# Cross toolchain: Windows x64 built on Linux with mingw-w64 (posix thread
# model, so std::thread/std::mutex are available), tests run through wine.
#
#   cmake -S . -B build-win \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake \
#         -DACE_ROOT="$(scripts/build-ace-windows.sh | tail -n1)"
#
# Cache knobs (set with -D on the first configure):
#   QIM_MINGW_STATIC_RUNTIME  ON (default): libgcc, libstdc++ and winpthread
#                             are linked statically into every .exe/.dll, so a
#                             test only needs the project's own DLLs.
#                             OFF: use the runtime DLLs; ctest finds them
#                             through WINEPATH (symlinks in
#                             <build>/_mingw_runtime). Shipping such a build
#                             needs those DLLs copied next to the binaries.
#   QIM_WINEPREFIX            wine prefix used by ctest (default: $WINEPREFIX,
#                             else $QIMMISC_CACHE/wine64, else
#                             ~/.cache/qimmisc/wine64). Created by wine on
#                             first use.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(QIM_MINGW_TRIPLET x86_64-w64-mingw32)

# The unsuffixed x86_64-w64-mingw32-g++ follows update-alternatives and may be
# the win32 thread model; always pick the -posix flavour explicitly.
find_program(QIM_MINGW_CC  ${QIM_MINGW_TRIPLET}-gcc-posix REQUIRED)
find_program(QIM_MINGW_CXX ${QIM_MINGW_TRIPLET}-g++-posix REQUIRED)
find_program(QIM_MINGW_RC  ${QIM_MINGW_TRIPLET}-windres)
set(CMAKE_C_COMPILER   "${QIM_MINGW_CC}")
set(CMAKE_CXX_COMPILER "${QIM_MINGW_CXX}")
if(QIM_MINGW_RC)
  set(CMAKE_RC_COMPILER "${QIM_MINGW_RC}")
endif()

# Only the target sysroot is searched for headers, libraries and packages;
# build tools still come from the host. Prefixes outside the sysroot (ACE_ROOT)
# are searched explicitly by their find modules.
set(CMAKE_FIND_ROOT_PATH "/usr/${QIM_MINGW_TRIPLET}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

option(QIM_MINGW_STATIC_RUNTIME
       "Link libgcc, libstdc++ and winpthread statically into every binary" ON)
if(QIM_MINGW_STATIC_RUNTIME)
  # -static makes the driver pick libstdc++.a, libgcc_eh.a and libwinpthread.a
  # (its implicit -lpthread) instead of their import libraries. Project DLLs
  # are still linked through their import libraries because CMake passes
  # those by full path. The Windows system import libraries are plain .a
  # files in mingw-w64, so they are unaffected.
  set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static")
  set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
  set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
endif()

# --- running target binaries (ctest, gtest_discover_tests) through wine -----
find_program(QIM_WINE NAMES wine wine-stable wine64)
if(QIM_WINE)
  if(NOT DEFINED QIM_WINEPREFIX)
    if(DEFINED ENV{WINEPREFIX} AND NOT "$ENV{WINEPREFIX}" STREQUAL "")
      set(_qim_prefix "$ENV{WINEPREFIX}")
    elseif(DEFINED ENV{QIMMISC_CACHE} AND NOT "$ENV{QIMMISC_CACHE}" STREQUAL "")
      set(_qim_prefix "$ENV{QIMMISC_CACHE}/wine64")
    else()
      set(_qim_prefix "$ENV{HOME}/.cache/qimmisc/wine64")
    endif()
    set(QIM_WINEPREFIX "${_qim_prefix}" CACHE PATH "Wine prefix used to run Windows test binaries")
    unset(_qim_prefix)
  endif()

  # WINEDEBUG=-all: silences wine's fixme chatter (and its "wine32 is
  #   missing" hint, which is irrelevant for 64-bit binaries).
  # WINEDLLOVERRIDES: stops prefix creation from offering to install
  #   Mono/Gecko, which would otherwise block or take minutes.
  set(_qim_env
      "WINEPREFIX=${QIM_WINEPREFIX}"
      "WINEDEBUG=-all"
      "WINEDLLOVERRIDES=mscoree,mshtml=")
  if(NOT QIM_MINGW_STATIC_RUNTIME)
    # Let wine find the compiler runtime DLLs. WINEPATH is ';'-separated,
    # which a CMake list cannot carry through to the test command, so gather
    # the DLLs into one directory of symlinks instead.
    set(_qim_rt_dir "${CMAKE_BINARY_DIR}/_mingw_runtime")
    file(MAKE_DIRECTORY "${_qim_rt_dir}")
    foreach(_qim_dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
      execute_process(COMMAND "${QIM_MINGW_CXX}" -print-file-name=${_qim_dll}
                      OUTPUT_VARIABLE _qim_dll_path OUTPUT_STRIP_TRAILING_WHITESPACE)
      if(NOT IS_ABSOLUTE "${_qim_dll_path}")
        # The driver does not know the sysroot's bin/lib dirs for DLLs.
        set(_qim_dll_path "/usr/${QIM_MINGW_TRIPLET}/lib/${_qim_dll}")
      endif()
      if(EXISTS "${_qim_dll_path}")
        file(CREATE_LINK "${_qim_dll_path}" "${_qim_rt_dir}/${_qim_dll}" SYMBOLIC)
      else()
        message(WARNING "mingw runtime DLL ${_qim_dll} not found; tests may not start")
      endif()
    endforeach()
    list(APPEND _qim_env "WINEPATH=${_qim_rt_dir}")
    unset(_qim_rt_dir)
    unset(_qim_dll)
    unset(_qim_dll_path)
  endif()
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/env ${_qim_env} "${QIM_WINE}")
  unset(_qim_env)
else()
  message(WARNING "wine not found: Windows test binaries will build but ctest cannot run them (apt-get install wine wine64)")
endif()
