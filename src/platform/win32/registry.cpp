// The registry seam over the real Windows registry.
#include <windows.h>

#include "platform/registry.h"

namespace kavo::platform::registry {
namespace {

// The predefined keys are sign-extended in a 64-bit HKEY.
HKEY ToHkey(Key key) {
  switch (key) {
    case kClassesRoot:
      return HKEY_CLASSES_ROOT;
    case kCurrentUser:
      return HKEY_CURRENT_USER;
    case kLocalMachine:
      return HKEY_LOCAL_MACHINE;
    case kUsers:
      return HKEY_USERS;
    default:
      return reinterpret_cast<HKEY>(key);
  }
}

const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }

}  // namespace

uint32_t OpenKey(Key parent, const char16_t* subKey, uint32_t access, Key* result) {
  if (!result) return ERROR_INVALID_PARAMETER;
  HKEY opened = nullptr;
  const LONG error = RegOpenKeyExW(ToHkey(parent), Wide(subKey), 0, access, &opened);
  if (error == ERROR_SUCCESS) *result = reinterpret_cast<Key>(opened);
  return static_cast<uint32_t>(error);
}

uint32_t CreateKey(Key parent, const char16_t* subKey, const char16_t* className, uint32_t options, uint32_t access,
                   Key* result, uint32_t* disposition) {
  if (!result) return ERROR_INVALID_PARAMETER;
  HKEY created = nullptr;
  DWORD how = 0;
  const LONG error = RegCreateKeyExW(ToHkey(parent), Wide(subKey), 0, const_cast<wchar_t*>(Wide(className)), options,
                                     access, nullptr, &created, &how);
  if (error != ERROR_SUCCESS) return static_cast<uint32_t>(error);
  *result = reinterpret_cast<Key>(created);
  if (disposition) *disposition = how;
  return ERROR_SUCCESS;
}

uint32_t QueryValue(Key key, const char16_t* name, uint32_t* type, void* data, uint32_t* size) {
  DWORD valueType = 0;
  DWORD bytes = size ? *size : 0;
  const LONG error =
      RegQueryValueExW(ToHkey(key), Wide(name), nullptr, &valueType, static_cast<BYTE*>(data), size ? &bytes : nullptr);
  if (type) *type = valueType;
  if (size && (error == ERROR_SUCCESS || error == ERROR_MORE_DATA)) *size = bytes;
  return static_cast<uint32_t>(error);
}

uint32_t SetValue(Key key, const char16_t* name, uint32_t type, const void* data, uint32_t size) {
  return static_cast<uint32_t>(RegSetValueExW(ToHkey(key), Wide(name), 0, type, static_cast<const BYTE*>(data), size));
}

uint32_t EnumKey(Key key, uint32_t index, char16_t* name, uint32_t* nameLength) {
  if (!nameLength) return ERROR_INVALID_PARAMETER;
  DWORD length = *nameLength;
  const LONG error =
      RegEnumKeyExW(ToHkey(key), index, reinterpret_cast<wchar_t*>(name), &length, nullptr, nullptr, nullptr, nullptr);
  if (error == ERROR_SUCCESS) *nameLength = length;
  return static_cast<uint32_t>(error);
}

uint32_t EnumValue(Key key, uint32_t index, char16_t* name, uint32_t* nameLength) {
  if (!nameLength) return ERROR_INVALID_PARAMETER;
  DWORD length = *nameLength;
  const LONG error =
      RegEnumValueW(ToHkey(key), index, reinterpret_cast<wchar_t*>(name), &length, nullptr, nullptr, nullptr, nullptr);
  if (error == ERROR_SUCCESS) *nameLength = length;
  return static_cast<uint32_t>(error);
}

uint32_t DeleteKey(Key key, const char16_t* subKey) {
  return static_cast<uint32_t>(RegDeleteKeyW(ToHkey(key), Wide(subKey)));
}

uint32_t DeleteValue(Key key, const char16_t* name) {
  return static_cast<uint32_t>(RegDeleteValueW(ToHkey(key), Wide(name)));
}

uint32_t CloseKey(Key key) {
  if (key >= kClassesRoot && key <= kUsers) return ERROR_SUCCESS;
  return static_cast<uint32_t>(RegCloseKey(ToHkey(key)));
}

void SetLoadReportHandler(LoadReportHandler) {}

}  // namespace kavo::platform::registry
