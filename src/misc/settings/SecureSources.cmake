# Secrets in memory: wiping allocator and strings, enciphered buffers and the
# string encipherment built on them. Linux enciphers with libsodium.
qimmisc_sources(
  EncryptString.cpp
  SecureBuffer.cpp
  WipingAllocator.cpp
  WIN MemoryProtection_win.cpp
  POSIX MemoryProtection_posix.cpp)
if(NOT WIN32)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET GLOBAL libsodium)
  target_link_libraries(qimmisc PRIVATE PkgConfig::SODIUM)
endif()
