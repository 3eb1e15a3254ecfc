#include "support/library_ini_path.h"

namespace kavo {

WideString LibraryIniPath(const WideString& modulePath) {
  const size_t nameStart = modulePath.find_last_of(u"\\/") + 1;  // npos + 1 == 0
  const size_t dot = modulePath.find(u'.', nameStart);
  WideString path = modulePath.substr(0, dot) + u".ini";
  return path.size() < kMaxPath ? path : WideString();
}

}  // namespace kavo
