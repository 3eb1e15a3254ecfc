#include "platform/posix/registry/reg_file_parser.h"

#include <vector>

#include "platform/registry.h"

namespace kavo::platform::posix {
namespace {

static_assert(regfile::kTypeString == registry::kTypeString && regfile::kTypeBinary == registry::kTypeBinary &&
              regfile::kTypeDword == registry::kTypeDword);

// Applies each section and value to the hive as the file goes.
class HiveBuilder : public regfile::Handler {
 public:
  explicit HiveBuilder(RegistryHive& hive) : hive_(hive) {}

  const char16_t* Section(int rootIndex, std::u16string_view subPath, bool remove) override {
    const auto root = hive_.Root(registry::kClassesRoot + static_cast<registry::Key>(rootIndex));
    current_.reset();
    if (remove) {
      RegistryHive::DeleteTree(root, subPath);
      return nullptr;  // the values under it are ignored
    }
    current_ = RegistryHive::Create(root, subPath, nullptr);
    return current_ ? nullptr : u"key nested too deep";
  }

  void Value(const std::u16string& name, uint32_t type, std::vector<uint8_t> data) override {
    if (current_) current_->SetValue(name, type, std::move(data));
  }

  void DeleteValue(const std::u16string& name) override {
    if (current_) current_->RemoveValue(name);
  }

 private:
  RegistryHive& hive_;
  std::shared_ptr<RegistryNode> current_;
};

}  // namespace

bool ParseRegText(std::u16string_view text, RegistryHive& hive, RegFileError* error) {
  HiveBuilder builder(hive);
  return regfile::Read(text, builder, error);
}

}  // namespace kavo::platform::posix
