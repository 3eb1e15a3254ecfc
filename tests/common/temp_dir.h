// A fresh folder for one test, removed with everything in it afterwards.
#pragma once

#include <string>

namespace kavo::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& Path() const { return path_; }
  std::string File(const std::string& name) const;  // path of a file inside
  std::u16string WideFile(const std::string& name) const;
  void Write(const std::string& name, const std::string& bytes) const;
  std::string Read(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace kavo::test
