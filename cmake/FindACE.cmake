# Finds the ACE library and provides the imported target ACE::ACE.
#
# Linux (native): Debian's libace-dev, i.e. /usr/include/ace and libACE.so.
# Windows (mingw-w64 cross build): the static archive produced by
#   scripts/build-ace-windows.sh; point ACE_ROOT (CMake or environment
#   variable) at its prefix, which holds include/ace/config.h and lib/libACE.a.
#
# Result variables: ACE_FOUND, ACE_VERSION, ACE_INCLUDE_DIR, ACE_LIBRARY.

if(NOT ACE_ROOT AND DEFINED ENV{ACE_ROOT} AND NOT "$ENV{ACE_ROOT}" STREQUAL "")
  set(ACE_ROOT "$ENV{ACE_ROOT}")
endif()

if(WIN32)
  set(_ace_lib_names libACE.a ACE)
else()
  set(_ace_lib_names ACE)
endif()

if(ACE_ROOT)
  # An explicit prefix wins, and it usually lies outside the cross sysroot, so
  # search it verbatim instead of re-rooting it.
  find_path(ACE_INCLUDE_DIR NAMES ace/ACE.h ace/config.h
            PATHS "${ACE_ROOT}/include" "${ACE_ROOT}"
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_library(ACE_LIBRARY NAMES ${_ace_lib_names}
               PATHS "${ACE_ROOT}/lib"
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
else()
  find_path(ACE_INCLUDE_DIR NAMES ace/ACE.h ace/config.h)
  find_library(ACE_LIBRARY NAMES ${_ace_lib_names})
endif()
unset(_ace_lib_names)

if(ACE_INCLUDE_DIR AND EXISTS "${ACE_INCLUDE_DIR}/ace/Version.h")
  file(STRINGS "${ACE_INCLUDE_DIR}/ace/Version.h" _ace_version_line
       REGEX "^#define ACE_VERSION \"[0-9.]+\"")
  string(REGEX REPLACE "^#define ACE_VERSION \"([0-9.]+)\".*" "\\1"
         ACE_VERSION "${_ace_version_line}")
  unset(_ace_version_line)
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE
  REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR
  VERSION_VAR ACE_VERSION)

mark_as_advanced(ACE_INCLUDE_DIR ACE_LIBRARY)

if(ACE_FOUND AND NOT TARGET ACE::ACE)
  if(ACE_LIBRARY MATCHES "\\.a$" OR (WIN32 AND NOT ACE_LIBRARY MATCHES "\\.dll\\.a$"))
    set(_ace_kind STATIC)
  else()
    set(_ace_kind UNKNOWN)
  endif()
  add_library(ACE::ACE ${_ace_kind} IMPORTED)
  set_target_properties(ACE::ACE PROPERTIES
    IMPORTED_LOCATION "${ACE_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ACE_INCLUDE_DIR}")

  if(WIN32)
    # The generated config.h already pins these, but stating them here keeps
    # consumers correct even if a different config.h shadows it.
    #   ACE_AS_STATIC_LIBS: no dllimport decorations on ACE symbols.
    #   ACE_DOESNT_DEFINE_MAIN: our tests and apps keep their own main().
    #   __ACE_INLINE__: the archive has no out-of-line copies of inline code.
    set(_ace_defs ACE_DOESNT_DEFINE_MAIN=1 __ACE_INLINE__)
    if(_ace_kind STREQUAL "STATIC")
      list(APPEND _ace_defs ACE_AS_STATIC_LIBS=1)
    endif()
    # What ACE's own mingw make rules link with; iphlpapi backs the
    # interface enumeration, netapi32 the NetBIOS lookups, mswsock the
    # AcceptEx/TransmitFile family used by the proactor.
    set_target_properties(ACE::ACE PROPERTIES
      INTERFACE_COMPILE_DEFINITIONS "${_ace_defs}"
      INTERFACE_LINK_LIBRARIES "ws2_32;mswsock;iphlpapi;wsock32;netapi32;advapi32;user32")
    unset(_ace_defs)
  else()
    find_package(Threads REQUIRED)
    set_property(TARGET ACE::ACE APPEND PROPERTY
      INTERFACE_LINK_LIBRARIES Threads::Threads ${CMAKE_DL_LIBS})
  endif()
  unset(_ace_kind)
endif()
