#include "platform/posix/registry/hive.h"

#include "reg_file_syntax.h"

namespace kavo::platform::posix {
namespace {

char16_t FoldUnit(char16_t c) {
  if ((c >= u'a' && c <= u'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) return c - 0x20;
  return c;
}

// Splits at backslashes, skipping empty names.
std::vector<std::u16string_view> SplitPath(std::u16string_view path) {
  std::vector<std::u16string_view> names;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(u'\\', start);
    if (end == std::u16string_view::npos) end = path.size();
    if (end > start) names.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

}  // namespace

std::u16string FoldRegistryName(std::u16string_view name) {
  std::u16string folded(name);
  for (auto& c : folded) c = FoldUnit(c);
  return folded;
}

std::shared_ptr<RegistryNode> RegistryNode::Child(std::u16string_view name) const {
  const auto found = children_.find(FoldRegistryName(name));
  return found == children_.end() ? nullptr : found->second;
}

RegistryNode::~RegistryNode() {
  std::vector<std::shared_ptr<RegistryNode>> pending;
  for (auto& child : children_) pending.push_back(std::move(child.second));
  children_.clear();
  while (!pending.empty()) {
    std::shared_ptr<RegistryNode> node = std::move(pending.back());
    pending.pop_back();
    // A key an open handle still holds keeps its own subtree.
    if (node.use_count() != 1) continue;
    for (auto& child : node->children_) pending.push_back(std::move(child.second));
    node->children_.clear();
  }
}

std::shared_ptr<RegistryNode> RegistryNode::AddChild(std::u16string_view name, bool* created) {
  std::u16string folded = FoldRegistryName(name);
  const auto found = children_.find(folded);
  if (created) *created = found == children_.end();
  if (found != children_.end()) return found->second;
  if (depth_ >= kMaxKeyDepth) return nullptr;
  cursor_ = children_.end();
  auto child = std::make_shared<RegistryNode>(std::u16string(name), depth_ + 1);
  children_.emplace(std::move(folded), child);
  return child;
}

bool RegistryNode::RemoveChild(std::u16string_view name) {
  const auto found = children_.find(FoldRegistryName(name));
  if (found == children_.end()) return false;
  found->second->MarkDeleted();
  cursor_ = children_.end();
  children_.erase(found);
  return true;
}

const RegistryNode* RegistryNode::ChildAt(size_t index) const {
  if (index >= children_.size()) return nullptr;
  if (cursor_ == children_.end() || cursorIndex_ > index) {
    cursor_ = children_.begin();
    cursorIndex_ = 0;
  }
  for (; cursorIndex_ < index; ++cursorIndex_) ++cursor_;
  return cursor_->second.get();
}

const RegistryValue* RegistryNode::FindValue(std::u16string_view name) const {
  const std::u16string folded = FoldRegistryName(name);
  for (const auto& value : values_) {
    if (FoldRegistryName(value.name) == folded) return &value;
  }
  return nullptr;
}

void RegistryNode::SetValue(std::u16string_view name, uint32_t type, std::vector<uint8_t> data) {
  auto* existing = const_cast<RegistryValue*>(FindValue(name));
  if (!existing) {
    values_.push_back(RegistryValue{std::u16string(name), type, {}});
    existing = &values_.back();
  }
  existing->type = type;
  existing->data = std::move(data);
}

bool RegistryNode::RemoveValue(std::u16string_view name) {
  const std::u16string folded = FoldRegistryName(name);
  for (auto it = values_.begin(); it != values_.end(); ++it) {
    if (FoldRegistryName(it->name) != folded) continue;
    values_.erase(it);
    return true;
  }
  return false;
}

void RegistryNode::MarkDeleted() {
  std::vector<RegistryNode*> pending{this};
  while (!pending.empty()) {
    RegistryNode* node = pending.back();
    pending.pop_back();
    node->deleted_ = true;
    for (auto& child : node->children_) pending.push_back(child.second.get());
  }
}

RegistryHive::RegistryHive() {
  for (size_t i = 0; i < 4; ++i) roots_[i] = std::make_shared<RegistryNode>(regfile::kRootNames[i]);
}

std::shared_ptr<RegistryNode> RegistryHive::Root(registry::Key root) const {
  if (root < registry::kClassesRoot || root > registry::kUsers) return nullptr;
  return roots_[root - registry::kClassesRoot];
}

std::shared_ptr<RegistryNode> RegistryHive::Find(const std::shared_ptr<RegistryNode>& from, std::u16string_view path) {
  std::shared_ptr<RegistryNode> node = from;
  for (const auto name : SplitPath(path)) {
    node = node->Child(name);
    if (!node) return nullptr;
  }
  return node;
}

std::shared_ptr<RegistryNode> RegistryHive::Create(const std::shared_ptr<RegistryNode>& from, std::u16string_view path,
                                                   bool* created) {
  std::shared_ptr<RegistryNode> node = from;
  if (created) *created = false;
  for (const auto name : SplitPath(path)) {
    node = node->AddChild(name, created);
    if (!node) return nullptr;
  }
  return node;
}

bool RegistryHive::DeleteTree(const std::shared_ptr<RegistryNode>& from, std::u16string_view path) {
  const auto names = SplitPath(path);
  if (names.empty()) return false;
  std::shared_ptr<RegistryNode> parent = from;
  for (size_t i = 0; i + 1 < names.size(); ++i) {
    parent = parent->Child(names[i]);
    if (!parent) return false;
  }
  return parent->RemoveChild(names.back());
}

}  // namespace kavo::platform::posix
