// Windows enciphers memory for the calling process with RtlEncryptMemory and
// RtlDecryptMemory, exported from Advapi32.dll only under the names
// "SystemFunction040" and "SystemFunction041". The DLL is opened once, when
// this library loads; each use looks its function up again, so a system
// without it simply leaves the bytes plain. The library imports Advapi32.dll
// itself, so opening it while the library loads only counts a reference.
#include <ace/DLL.h>
#include <ace/Object_Manager.h>

#include <cstdint>
#include <limits>
#include <new>

#include "platform/Win32.h"
#include "qimmisc/SecureBuffer.h"
#include "settings/MemoryProtection.h"

namespace QIM {

namespace {

// NTSTATUS WINAPI (PVOID Memory, ULONG MemorySize, ULONG OptionFlags)
using MemoryCipher = LONG(WINAPI*)(PVOID, ULONG, ULONG);
// Option flags 0: only this process can decipher.
constexpr ULONG kSameProcess = 0;

class Advapi32 {
 public:
  Advapi32() {
    dll_ = new (storage_) ACE_DLL(true);
    opened_ = dll_->open(ACE_TEXT("Advapi32.dll"), ACE_DEFAULT_SHLIB_MODE, true) == 0;
  }
  ~Advapi32() {
    opened_ = false;
    // ACE may already have shut down (and closed every DLL it opened) when
    // this library's statics go, depending on the order of static
    // destruction; an ACE_DLL must not reach for ACE's DLL manager then.
    if (!ACE_Object_Manager::shutting_down()) dll_->~ACE_DLL();
  }
  Advapi32(const Advapi32&) = delete;
  Advapi32& operator=(const Advapi32&) = delete;

  bool run(const ACE_TCHAR* name, void* block, std::size_t size) {
    if (!opened_ || size == 0 || size % 8 != 0 || size > std::numeric_limits<ULONG>::max()) return false;
    const auto cipher = reinterpret_cast<MemoryCipher>(dll_->symbol(name, 1));
    return cipher && cipher(block, static_cast<ULONG>(size), kSameProcess) == 0;
  }

 private:
  alignas(ACE_DLL) unsigned char storage_[sizeof(ACE_DLL)];
  ACE_DLL* dll_;
  bool opened_ = false;
};

Advapi32 advapi32;

}  // namespace

void secureZeroMemory(void* pointer, std::uint32_t size) { detail::wipeBytes(pointer, size); }

namespace detail {

void wipeBytes(void* pointer, std::size_t size) noexcept {
  if (size != 0) SecureZeroMemory(pointer, size);
}

bool protectMemory(void* block, std::size_t size) noexcept {
  return advapi32.run(ACE_TEXT("SystemFunction040"), block, size);
}

bool unprotectMemory(void* block, std::size_t size) noexcept {
  return advapi32.run(ACE_TEXT("SystemFunction041"), block, size);
}

}  // namespace detail
}  // namespace QIM
