// The .reg parser and the hive it fills, on arbitrary bytes: whatever the
// file, parsing ends (in success or a reported line), and the hive it
// leaves is well formed: every key is found by its own name, enumerates in
// order, nests no deeper than allowed, and can be deleted.
#include <string>
#include <utility>
#include <vector>

#include "fuzz_support.h"
#include "platform/posix/registry/hive.h"
#include "platform/posix/registry/reg_file_parser.h"

namespace {

using namespace kavo::platform;
using namespace kavo::platform::posix;

void CheckTree(const std::shared_ptr<RegistryNode>& root) {
  std::vector<std::pair<std::shared_ptr<RegistryNode>, size_t>> pending{{root, 0}};
  while (!pending.empty()) {
    auto [node, depth] = std::move(pending.back());
    pending.pop_back();
    FUZZ_CHECK(depth <= kMaxKeyDepth);
    FUZZ_CHECK(!node->Deleted());
    for (size_t i = 0; i < node->ChildCount(); ++i) {
      const RegistryNode* child = node->ChildAt(i);
      FUZZ_CHECK(child != nullptr);
      const auto found = node->Child(child->Name());
      FUZZ_CHECK(found.get() == child);
      if (i > 0) FUZZ_CHECK(FoldRegistryName(node->ChildAt(i - 1)->Name()) < FoldRegistryName(child->Name()));
      pending.emplace_back(found, depth + 1);
    }
    FUZZ_CHECK(node->ChildAt(node->ChildCount()) == nullptr);
    for (size_t i = 0; i < node->ValueCount(); ++i)
      FUZZ_CHECK(node->FindValue(node->ValueAt(i).name) == &node->ValueAt(i));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  RegistryHive hive;
  RegFileError error;
  if (!ParseRegText(DecodeRegFileBytes(bytes), hive, &error)) {
    FUZZ_CHECK(error.line >= 1);
    FUZZ_CHECK(!error.reason.empty());
  }
  for (registry::Key root = registry::kClassesRoot; root <= registry::kUsers; ++root) {
    const auto node = hive.Root(root);
    CheckTree(node);
    // Removing every top key marks its subtree, which must stay readable
    // through a handle held on it.
    std::vector<std::shared_ptr<RegistryNode>> held;
    while (node->ChildCount() > 0) {
      const std::u16string name = node->ChildAt(0)->Name();
      held.push_back(node->Child(name));
      FUZZ_CHECK(RegistryHive::DeleteTree(node, name));
      FUZZ_CHECK(held.back()->Deleted());
    }
  }
  return 0;
}
