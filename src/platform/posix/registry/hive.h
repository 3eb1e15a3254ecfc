// The in-memory registry of POSIX hosts: a tree of keys holding typed values.
// Not locked: the seam in registry.cpp serialises every use.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace kavo::platform::posix {

// Registry names compare ignoring case (ASCII and Latin-1 letters).
std::u16string FoldRegistryName(std::u16string_view name);

struct RegistryValue {
  std::u16string name;  // empty: the key's default value
  uint32_t type = registry::kTypeNone;
  std::vector<uint8_t> data;
};

// Keys nest at most this deep below a root, as on Windows.
constexpr size_t kMaxKeyDepth = 512;

class RegistryNode {
 public:
  explicit RegistryNode(std::u16string name, size_t depth = 0) : name_(std::move(name)), depth_(depth) {}
  // Frees the subtree without recursion, so no depth of keys can exhaust
  // the stack.
  ~RegistryNode();
  RegistryNode(const RegistryNode&) = delete;
  RegistryNode& operator=(const RegistryNode&) = delete;

  const std::u16string& Name() const { return name_; }
  // A removed key stays alive while handles hold it, but is marked so.
  bool Deleted() const { return deleted_; }

  // Subkeys, in the order Windows enumerates them (sorted ignoring case).
  std::shared_ptr<RegistryNode> Child(std::u16string_view name) const;
  // Null when the child would lie deeper than kMaxKeyDepth.
  std::shared_ptr<RegistryNode> AddChild(std::u16string_view name, bool* created);
  bool RemoveChild(std::u16string_view name);  // marks its whole tree deleted
  size_t ChildCount() const { return children_.size(); }
  // Linear over an enumeration that walks the indexes in order.
  const RegistryNode* ChildAt(size_t index) const;

  // Values, in the order they were first set.
  const RegistryValue* FindValue(std::u16string_view name) const;
  void SetValue(std::u16string_view name, uint32_t type, std::vector<uint8_t> data);
  bool RemoveValue(std::u16string_view name);
  size_t ValueCount() const { return values_.size(); }
  const RegistryValue& ValueAt(size_t index) const { return values_[index]; }

 private:
  void MarkDeleted();

  using Children = std::map<std::u16string, std::shared_ptr<RegistryNode>>;  // by folded name

  std::u16string name_;
  size_t depth_;
  bool deleted_ = false;
  Children children_;
  // Where the last ChildAt stopped; any change to the children forgets it.
  mutable size_t cursorIndex_ = 0;
  mutable Children::const_iterator cursor_ = children_.begin();
  std::vector<RegistryValue> values_;
};

class RegistryHive {
 public:
  RegistryHive();

  // The node of a predefined key; null for any other value.
  std::shared_ptr<RegistryNode> Root(registry::Key root) const;

  // `path` is key names separated by backslashes below `from`; empty names
  // are skipped, so "" is `from` itself. Null when a key is missing.
  static std::shared_ptr<RegistryNode> Find(const std::shared_ptr<RegistryNode>& from, std::u16string_view path);
  // Like Find, creating what is missing. `created` (may be null) tells
  // whether the last key is new. Null when the path nests too deep.
  static std::shared_ptr<RegistryNode> Create(const std::shared_ptr<RegistryNode>& from, std::u16string_view path,
                                              bool* created);
  // Removes the key at `path` with everything below it; false when it is
  // missing or is `from` itself.
  static bool DeleteTree(const std::shared_ptr<RegistryNode>& from, std::u16string_view path);

 private:
  std::shared_ptr<RegistryNode> roots_[4];
};

}  // namespace kavo::platform::posix
