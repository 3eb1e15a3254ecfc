#include "nmea/sentence_list.h"

namespace kavo::nmea {

void SentenceList::Clear() {
  text_.clear();  // keeps the capacity
  starts_.clear();
}

void SentenceList::Reserve(size_t units) {
  text_.reserve(units);
  starts_.reserve(units / 32);  // a GGA is 70 units long, a short VTG 35
}

void SentenceList::Append(WideView sentence) {
  // All or nothing, so that a failed append leaves the list readable.
  if (starts_.size() == starts_.capacity()) starts_.reserve(starts_.empty() ? 16 : 2 * starts_.size());
  const size_t start = text_.size();
  try {
    text_.append(sentence);
    text_.push_back(u'\0');
  } catch (...) {
    text_.resize(start);
    throw;
  }
  starts_.push_back(start);
}

WideView SentenceList::operator[](size_t index) const {
  const size_t start = starts_[index];
  const size_t end = index + 1 < starts_.size() ? starts_[index + 1] - 1 : text_.size() - 1;
  return WideView(text_).substr(start, end - start);
}

}  // namespace kavo::nmea
