// The registry as the Win32 API shows it. On Win32 it is the real registry;
// on POSIX an in-memory hive loaded from a .reg file or synthesised from the
// system's serial devices (see posix/registry/loader.h).
#pragma once

#include <cstdint>
#include <string>

namespace kavo::platform::registry {

// An open key (HKEY). The predefined roots are always open.
using Key = uintptr_t;
constexpr Key kClassesRoot = 0x80000000u;
constexpr Key kCurrentUser = 0x80000001u;
constexpr Key kLocalMachine = 0x80000002u;
constexpr Key kUsers = 0x80000003u;

// Value types.
constexpr uint32_t kTypeNone = 0;
constexpr uint32_t kTypeString = 1;        // REG_SZ
constexpr uint32_t kTypeExpandString = 2;  // REG_EXPAND_SZ
constexpr uint32_t kTypeBinary = 3;        // REG_BINARY
constexpr uint32_t kTypeDword = 4;         // REG_DWORD
constexpr uint32_t kTypeMultiString = 7;   // REG_MULTI_SZ

// Access rights.
constexpr uint32_t kQueryValue = 0x0001;
constexpr uint32_t kSetValue = 0x0002;
constexpr uint32_t kCreateSubKey = 0x0004;
constexpr uint32_t kEnumerateSubKeys = 0x0008;
constexpr uint32_t kKeyRead = 0x20019;
constexpr uint32_t kKeyWrite = 0x20006;
constexpr uint32_t kKeyReadWrite = 0x2001F;

// Dispositions reported by CreateKey.
constexpr uint32_t kCreatedNewKey = 1;
constexpr uint32_t kOpenedExistingKey = 2;

// Every function returns a Win32 error code, 0 on success, as the registry
// API does; none sets the thread's last error.

// RegOpenKeyExW. An empty or null `subKey` opens `parent` itself again.
uint32_t OpenKey(Key parent, const char16_t* subKey, uint32_t access, Key* result);
// RegCreateKeyExW: opens the key, creating it and any missing parent.
// `disposition` may be null.
uint32_t CreateKey(Key parent, const char16_t* subKey, const char16_t* className, uint32_t options, uint32_t access,
                   Key* result, uint32_t* disposition);
// RegQueryValueExW. `size` is in bytes: in, the buffer's size; out, the
// value's. `type` and `data` may be null. When the data do not fit the
// result is kErrorMoreData and `size` the size needed.
uint32_t QueryValue(Key key, const char16_t* name, uint32_t* type, void* data, uint32_t* size);
// RegSetValueExW.
uint32_t SetValue(Key key, const char16_t* name, uint32_t type, const void* data, uint32_t size);
// RegEnumKeyExW / RegEnumValueW. `nameLength` is in characters: in, the
// buffer's size with its terminator; out, the name's length without it.
// kErrorNoMoreItems past the last one, kErrorMoreData when the name does not
// fit.
uint32_t EnumKey(Key key, uint32_t index, char16_t* name, uint32_t* nameLength);
uint32_t EnumValue(Key key, uint32_t index, char16_t* name, uint32_t* nameLength);
// RegDeleteKeyW: only a key without subkeys.
uint32_t DeleteKey(Key key, const char16_t* subKey);
// RegDeleteValueW.
uint32_t DeleteValue(Key key, const char16_t* name);
// RegCloseKey. Closing a predefined root does nothing.
uint32_t CloseKey(Key key);

// Receives, once, the problems met while the registry was being prepared
// (an unreadable hive file on POSIX), each line ending in "\n", whichever
// registry call prepared it; a report made before any handler was set goes
// to the first one set. The handler must not call the registry.
using LoadReportHandler = void (*)(const std::u16string& report);
void SetLoadReportHandler(LoadReportHandler handler);

}  // namespace kavo::platform::registry
