// The registry seam over the in-memory hive. One lock guards the hive and
// the table of open keys; a key deleted while open stays valid as a handle
// but every use of it fails with ERROR_KEY_DELETED, as on Windows.
#include "platform/registry.h"

#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "platform/platform.h"
#include "platform/posix/registry/hive.h"
#include "platform/posix/registry/loader.h"

namespace kavo::platform {
namespace {

using posix::RegistryHive;
using posix::RegistryNode;
using registry::Key;

constexpr uint32_t kAllAccess = 0xFFFFFFFFu;

struct OpenKeyEntry {
  std::shared_ptr<RegistryNode> node;
  uint32_t access;
};

class RegistryState {
 public:
  std::mutex mutex;

  // Loads the hive on first use, whichever call that is, and hands what
  // went wrong to the report handler (or keeps it until one is set).
  void EnsureLoaded() {
    if (loaded_) return;
    loaded_ = true;
    hive_ = posix::LoadRegistryHive(&report_);
    Deliver();
  }

  void SetHandler(registry::LoadReportHandler handler) {
    handler_ = handler;
    Deliver();
  }

  void Forget() {
    loaded_ = false;
    hive_ = RegistryHive();
    keys_.clear();
    report_.clear();
  }

  // The node behind `key` if it is open with every right in `needed`.
  uint32_t Resolve(Key key, uint32_t needed, std::shared_ptr<RegistryNode>* node) {
    EnsureLoaded();
    OpenKeyEntry entry{hive_.Root(key), kAllAccess};
    if (!entry.node) {
      const auto found = keys_.find(key);
      if (found == keys_.end()) return kErrorInvalidHandle;
      entry = found->second;
    }
    if (entry.node->Deleted()) return kErrorKeyDeleted;
    if ((entry.access & needed) != needed) return kErrorAccessDenied;
    *node = entry.node;
    return kErrorSuccess;
  }

  Key Add(std::shared_ptr<RegistryNode> node, uint32_t access) {
    nextKey_ += 4;
    keys_[nextKey_] = OpenKeyEntry{std::move(node), access};
    return nextKey_;
  }

  uint32_t Close(Key key) {
    if (hive_.Root(key)) return kErrorSuccess;
    return keys_.erase(key) ? kErrorSuccess : kErrorInvalidHandle;
  }

 private:
  bool loaded_ = false;
  RegistryHive hive_;
  std::map<Key, OpenKeyEntry> keys_;
  Key nextKey_ = 0x1000;
  std::u16string report_;
  registry::LoadReportHandler handler_ = nullptr;

  void Deliver() {
    if (handler_ && !report_.empty()) handler_(std::exchange(report_, {}));
  }
};

// Never destroyed: keys may still be closed while the process exits.
RegistryState& State() {
  static RegistryState* state = new RegistryState;
  return *state;
}

std::u16string_view ViewOf(const char16_t* text) { return text ? std::u16string_view(text) : std::u16string_view(); }

// Copies a name into a caller's buffer of `*length` characters.
uint32_t CopyName(const std::u16string& name, char16_t* buffer, uint32_t* length) {
  if (!buffer || !length) return kErrorInvalidParameter;
  if (name.size() >= *length) return kErrorMoreData;
  std::memcpy(buffer, name.data(), name.size() * sizeof(char16_t));
  buffer[name.size()] = 0;
  *length = static_cast<uint32_t>(name.size());
  return kErrorSuccess;
}

}  // namespace

namespace registry {

uint32_t OpenKey(Key parent, const char16_t* subKey, uint32_t access, Key* result) {
  if (!result) return kErrorInvalidParameter;
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(parent, 0, &node)) return error;
  node = RegistryHive::Find(node, ViewOf(subKey));
  if (!node) return kErrorFileNotFound;
  *result = state.Add(std::move(node), access);
  return kErrorSuccess;
}

uint32_t CreateKey(Key parent, const char16_t* subKey, const char16_t* /*className*/, uint32_t /*options*/,
                   uint32_t access, Key* result, uint32_t* disposition) {
  if (!result) return kErrorInvalidParameter;
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(parent, kCreateSubKey, &node)) return error;
  bool created = false;
  node = RegistryHive::Create(node, ViewOf(subKey), &created);
  if (!node) return kErrorInvalidParameter;  // nested too deep
  if (disposition) *disposition = created ? kCreatedNewKey : kOpenedExistingKey;
  *result = state.Add(std::move(node), access);
  return kErrorSuccess;
}

uint32_t QueryValue(Key key, const char16_t* name, uint32_t* type, void* data, uint32_t* size) {
  if (data && !size) return kErrorInvalidParameter;
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, kQueryValue, &node)) return error;
  const posix::RegistryValue* value = node->FindValue(ViewOf(name));
  if (!value) return kErrorFileNotFound;
  if (type) *type = value->type;
  const auto needed = static_cast<uint32_t>(value->data.size());
  if (data && *size < needed) {
    *size = needed;
    return kErrorMoreData;
  }
  if (data && needed) std::memcpy(data, value->data.data(), needed);
  if (size) *size = needed;
  return kErrorSuccess;
}

uint32_t SetValue(Key key, const char16_t* name, uint32_t type, const void* data, uint32_t size) {
  if (!data && size) return kErrorInvalidParameter;
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, kSetValue, &node)) return error;
  const auto* bytes = static_cast<const uint8_t*>(data);
  node->SetValue(ViewOf(name), type, std::vector<uint8_t>(bytes, bytes + size));
  return kErrorSuccess;
}

uint32_t EnumKey(Key key, uint32_t index, char16_t* name, uint32_t* nameLength) {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, kEnumerateSubKeys, &node)) return error;
  const RegistryNode* child = node->ChildAt(index);
  if (!child) return kErrorNoMoreItems;
  return CopyName(child->Name(), name, nameLength);
}

uint32_t EnumValue(Key key, uint32_t index, char16_t* name, uint32_t* nameLength) {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, kQueryValue, &node)) return error;
  if (index >= node->ValueCount()) return kErrorNoMoreItems;
  return CopyName(node->ValueAt(index).name, name, nameLength);
}

uint32_t DeleteKey(Key key, const char16_t* subKey) {
  if (ViewOf(subKey).empty()) return kErrorInvalidParameter;
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, 0, &node)) return error;
  const auto target = RegistryHive::Find(node, ViewOf(subKey));
  if (!target || target == node) return kErrorFileNotFound;
  if (target->ChildCount() > 0) return kErrorAccessDenied;
  RegistryHive::DeleteTree(node, ViewOf(subKey));
  return kErrorSuccess;
}

uint32_t DeleteValue(Key key, const char16_t* name) {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  std::shared_ptr<RegistryNode> node;
  if (const uint32_t error = state.Resolve(key, kSetValue, &node)) return error;
  return node->RemoveValue(ViewOf(name)) ? kErrorSuccess : kErrorFileNotFound;
}

uint32_t CloseKey(Key key) {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  return state.Close(key);
}

void SetLoadReportHandler(LoadReportHandler handler) {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.SetHandler(handler);
}

}  // namespace registry

void posix::ReloadRegistry() {
  auto& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.Forget();
}

}  // namespace kavo::platform
