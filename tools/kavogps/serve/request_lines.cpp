#include "serve/request_lines.h"

namespace kavo::serve {

void RequestLines::Add(const char* data, size_t size, std::vector<Line>* lines) {
  for (size_t i = 0; i < size; ++i) {
    const char c = data[i];
    if (c == '\n') {
      if (!skipping_) {
        if (!partial_.empty() && partial_.back() == '\r') partial_.pop_back();
        lines->push_back({partial_, false});
      }
      partial_.clear();
      skipping_ = false;
    } else if (skipping_) {
      continue;
    } else if (partial_.size() >= maxLength_) {
      lines->push_back({{}, true});
      partial_.clear();
      skipping_ = true;
    } else {
      partial_ += c;
    }
  }
}

}  // namespace kavo::serve
