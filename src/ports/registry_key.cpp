#include "ports/registry_key.h"

#include <vector>

#include "log/logger.h"
#include "platform/platform.h"
#include "support/error.h"
#include "support/wide_string.h"

namespace kavo {
namespace {

namespace reg = platform::registry;

struct RootName {
  const char16_t* name;
  reg::Key key;
};

// Searched in order up to the empty row.
constexpr RootName kRoots[] = {
    {u"HKEY_CLASSES_ROOT", reg::kClassesRoot},
    {u"HKEY_CURRENT_USER", reg::kCurrentUser},
    {u"HKEY_LOCAL_MACHINE", reg::kLocalMachine},
    {u"HKEY_USERS", reg::kUsers},
    {nullptr, 0},
};

reg::Key RootByName(WideView name) {
  for (const RootName* row = kRoots; row->name; ++row) {
    if (EqualsIgnoreCase(name, row->name)) return row->key;
  }
  return 0;
}

bool IsStringType(uint32_t type) {
  return type == reg::kTypeString || type == reg::kTypeExpandString || type == reg::kTypeMultiString;
}

// Whatever went wrong while the registry was prepared goes to the log once,
// whether a key or a port lookup prepared it.
void LogLoadReport(const std::u16string& report) { Logger::Instance().Write(report.c_str()); }

[[maybe_unused]] const bool kLoadReportLogged = (reg::SetLoadReportHandler(&LogLoadReport), true);

}  // namespace

RegistryKey::~RegistryKey() { Close(); }

int32_t RegistryKey::AddRef() { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }

int32_t RegistryKey::Release() {
  const int32_t left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0 && counted_) delete this;
  return left;
}

RegistryKey* RegistryKey::NewCounted(reg::Key key) {
  auto* object = new RegistryKey;
  object->counted_ = true;
  object->key_ = key;
  return object;
}

int RegistryKey::Open(const char16_t* path, uint32_t access) {
  Close();
  const WideView full = path ? WideView(path) : WideView();
  const size_t slash = full.find(u'\\');
  if (slash == WideView::npos) Raise(kErrGeneralFailure, u"Registry path without a backslash", path);
  const reg::Key root = RootByName(full.substr(0, slash));
  if (!root) return 0;
  const WideString subPath(full.substr(slash + 1));
  reg::Key opened = 0;
  const uint32_t error = reg::OpenKey(root, subPath.c_str(), access, &opened);
  if (error != platform::kErrorSuccess) return 0;
  Close();
  key_ = opened;
  return 1;
}

void RegistryKey::Close() {
  if (key_) reg::CloseKey(key_);
  key_ = 0;
}

Ref<RegistryKey> RegistryKey::OpenPath(const char16_t* path, uint32_t access) {
  Ref<RegistryKey> key(NewCounted(0));
  if (!key->Open(path, access)) return {};
  return key;
}

int RegistryKey::SetString(const char16_t* text, const char16_t* name, bool multi, int32_t length) {
  if (!key_) return 0;
  if (!text) Raise(kFailCode, u"No text to write to the registry", name);
  if (multi && length == -1) return 0;
  if (length < -1) return 0;
  const uint32_t characters =
      length == -1 ? static_cast<uint32_t>(WideLength(text) + 1) : static_cast<uint32_t>(length);
  const uint32_t type = multi ? reg::kTypeMultiString : reg::kTypeString;
  const uint32_t error = reg::SetValue(key_, name, type, text, characters * sizeof(char16_t));
  return error == platform::kErrorSuccess ? 1 : 0;
}

int RegistryKey::SetNumber(const char16_t* name, uint32_t value) {
  if (!key_) return 0;
  const uint32_t error = reg::SetValue(key_, name, reg::kTypeDword, &value, sizeof value);
  return error == platform::kErrorSuccess ? 1 : 0;
}

int RegistryKey::QueryString(const char16_t* name, char16_t* buffer, uint32_t* length) {
  if (!key_ || !buffer || !length || *length == 0 || *length > 0x7FFFFFFFu) return 0;
  uint32_t type = 0;
  uint32_t bytes = *length * sizeof(char16_t);
  const uint32_t error = reg::QueryValue(key_, name, &type, buffer, &bytes);
  if (error != platform::kErrorSuccess) return 0;
  if (!IsStringType(type) || bytes % 2 != 0) return 0;
  const uint32_t characters = bytes / 2;
  // A value stored without its terminator is terminated here when there is
  // room; one that fills the buffer without it would be unterminated.
  if (characters < *length) {
    buffer[characters] = 0;
  } else if (buffer[characters - 1] != 0) {
    return 0;
  }
  *length = characters;
  return 1;
}

int RegistryKey::QueryNumber(const char16_t* name, uint32_t* value) {
  if (!key_ || !value) return 0;
  uint32_t type = 0;
  uint32_t number = 0;
  uint32_t bytes = sizeof number;
  const uint32_t error = reg::QueryValue(key_, name, &type, &number, &bytes);
  if (error != platform::kErrorSuccess) return 0;
  if (type != reg::kTypeDword || bytes != sizeof number) return 0;
  *value = number;
  return 1;
}

uint32_t RegistryKey::GrowNameBuffer(uint32_t size) {
  const uint64_t grown = uint64_t{size} + kNameBufferGrowth;
  if (grown > 2147483647u) Raise(kErrOutOfMemory, u"Registry name buffer overflow");
  return static_cast<uint32_t>(grown);
}

int RegistryKey::EnumerateSubkeys(const NameCallback& callback) {
  if (!key_) return 0;
  std::vector<char16_t> name(kFirstNameBufferSize);
  for (uint32_t index = 0;;) {
    auto length = static_cast<uint32_t>(name.size());
    const uint32_t error = reg::EnumKey(key_, index, name.data(), &length);
    if (error == platform::kErrorNoMoreItems) return 1;
    if (error == platform::kErrorMoreData) {
      name.resize(GrowNameBuffer(static_cast<uint32_t>(name.size())));
      continue;
    }
    if (error != platform::kErrorSuccess) return 0;
    if (callback) callback(name.data());
    ++index;
  }
}

int RegistryKey::CreateSubkey(const char16_t* name, Ref<RegistryKey>* key, const char16_t* className, uint32_t options,
                              uint32_t access, uint32_t* disposition) {
  if (!key_ || !key) return 0;
  reg::Key created = 0;
  const uint32_t error = reg::CreateKey(key_, name, className, options, access, &created, disposition);
  if (error != platform::kErrorSuccess) return 0;
  *key = Ref<RegistryKey>(NewCounted(created));
  return 1;
}

int RegistryKey::OpenSubkey(const char16_t* name, Ref<RegistryKey>* key, uint32_t access) {
  if (!key_ || !key) return 0;
  reg::Key opened = 0;
  const uint32_t error = reg::OpenKey(key_, name, access, &opened);
  if (error != platform::kErrorSuccess) return 0;
  *key = Ref<RegistryKey>(NewCounted(opened));
  return 1;
}

int RegistryKey::DeleteSubkey(const char16_t* name) {
  if (!key_) return 0;
  const uint32_t error = reg::DeleteKey(key_, name);
  return error == platform::kErrorSuccess ? 1 : 0;
}

int RegistryKey::DeleteSubkeyTree(const char16_t* name) {
  if (!key_) return 0;
  Ref<RegistryKey> subkey;
  if (!OpenSubkey(name, &subkey, reg::kKeyReadWrite)) return 0;
  // Names first: deleting while walking would shift the indexes.
  std::vector<WideString> children;
  subkey->EnumerateSubkeys([&children](const char16_t* child) { children.emplace_back(child); });
  for (const auto& child : children) subkey->DeleteSubkeyTree(child.c_str());
  subkey.reset();
  return DeleteSubkey(name);
}

int RegistryKey::DeleteValue(const char16_t* name) {
  if (!key_) return 0;
  const uint32_t error = reg::DeleteValue(key_, name);
  return error == platform::kErrorSuccess ? 1 : 0;
}

}  // namespace kavo
