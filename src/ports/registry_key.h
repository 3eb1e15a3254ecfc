// One open registry key with typed reads and writes, subkeys and a walk
// over subkey names. A key or value that is missing or cannot be read or written comes
// back as a zero result (no caller tells one registry failure from
// another); only a path without a backslash, a missing text to write and a
// name buffer that would outgrow 32 bits are raised.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/registry.h"
#include "support/ref_counted.h"

namespace kavo {

class RegistryKey {
 public:
  // Raised (as the code of a CIMExceptionEx) for a missing text to write.
  static constexpr int32_t kFailCode = static_cast<int32_t>(0x80004005u);  // E_FAIL
  static constexpr uint32_t kFirstNameBufferSize = 1024;                   // characters
  static constexpr uint32_t kNameBufferGrowth = 512;

  // A key made by its user, on the stack or as a member: its count never
  // frees it. Keys the object makes itself (OpenSubkey, CreateSubkey,
  // OpenPath) are counted and freed with their last reference.
  RegistryKey() = default;
  ~RegistryKey();
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  int32_t AddRef();
  int32_t Release();

  // "HKEY_LOCAL_MACHINE\\Drivers\\Active": the root's name (any case) up to
  // the first backslash, the path below it after. Closes what was open
  // first. 1 on success, 0 for an unknown root or a missing key.
  int Open(const char16_t* path, uint32_t access);
  void Close();
  bool IsOpen() const { return key_ != 0; }

  // A new counted key opened on a full path; null when it cannot be opened.
  static Ref<RegistryKey> OpenPath(const char16_t* path, uint32_t access);

  // --- writes ---
  // REG_SZ, or REG_MULTI_SZ with `multi`. `length` in 16-bit characters,
  // terminators included; -1 counts up to the text's terminator, which a
  // multi-string cannot use (a zero result).
  int SetString(const char16_t* text, const char16_t* name, bool multi = false, int32_t length = -1);
  int SetNumber(const char16_t* name, uint32_t value);
  int SetNumber(const char16_t* name, int32_t value) { return SetNumber(name, static_cast<uint32_t>(value)); }

  // --- reads ---
  // REG_SZ, REG_EXPAND_SZ or REG_MULTI_SZ. `length` in characters: in, the
  // buffer's size with its terminator; out, the characters stored,
  // terminator included. A value that does not fit fails and leaves
  // `length` alone.
  int QueryString(const char16_t* name, char16_t* buffer, uint32_t* length);
  // REG_DWORD of 4 bytes only.
  int QueryNumber(const char16_t* name, uint32_t* value);
  int QueryNumber(const char16_t* name, int32_t* value) {
    return QueryNumber(name, reinterpret_cast<uint32_t*>(value));
  }

  // --- walk: every subkey name in registry order; the callback cannot stop it ---
  using NameCallback = std::function<void(const char16_t* name)>;
  int EnumerateSubkeys(const NameCallback& callback);
  // The name buffer's next size after ERROR_MORE_DATA; raises when it would
  // pass the largest signed 32-bit number.
  static uint32_t GrowNameBuffer(uint32_t size);

  // --- subkeys and deletion ---
  int CreateSubkey(const char16_t* name, Ref<RegistryKey>* key, const char16_t* className = nullptr,
                   uint32_t options = 0, uint32_t access = platform::registry::kKeyReadWrite,
                   uint32_t* disposition = nullptr);
  int OpenSubkey(const char16_t* name, Ref<RegistryKey>* key, uint32_t access);
  int DeleteSubkey(const char16_t* name);  // a key without subkeys
  int DeleteSubkeyTree(const char16_t* name);
  int DeleteValue(const char16_t* name);

 private:
  static RegistryKey* NewCounted(platform::registry::Key key);

  platform::registry::Key key_ = 0;  // 0 while closed
  std::atomic<int32_t> refs_{0};
  bool counted_ = false;
};

}  // namespace kavo
