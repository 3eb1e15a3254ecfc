// A machine's registry for one test: the keys of a .reg text are in force
// while the object lives, on top of an otherwise empty registry for the
// keys the port discovery reads. On POSIX the library's hive is loaded
// from the text; on Windows the text is imported into the real registry
// and the keys are removed again afterwards.
#pragma once

#include <string>

#include "common/temp_dir.h"

namespace kavo::test {

class RegistryModel {
 public:
  // `keys` is the body of a .reg file: sections and values, without the
  // "Windows Registry Editor Version 5.00" line, which is added.
  explicit RegistryModel(const std::string& keys);
  ~RegistryModel();
  RegistryModel(const RegistryModel&) = delete;
  RegistryModel& operator=(const RegistryModel&) = delete;

  // Whether the keys could be put in place (a Windows import may fail).
  bool Ok() const { return ok_; }

 private:
  TempDir dir_;
  bool ok_ = false;
};

}  // namespace kavo::test
