#include <vector>

#include "log/logger.h"
#include "support/error.h"
#include "support/text_converter.h"

namespace kavo {

FileLogSink::FileLogSink(const WideString& path)
    : file_(platform::File::Open(path, platform::FileAccess::kWrite, platform::FileDisposition::kCreateAlways)) {
  if (!file_) Raise(kErrNotSupported, path.c_str());
}

int FileLogSink::WriteText(const char16_t* text) {
  if (!text || !file_) return 0;
  const size_t length = WideLength(text);
  if (length == 0) return 1;
  // Log lines are short: convert on the stack when they fit.
  uint8_t small[512];
  std::vector<uint8_t> large;
  uint8_t* bytes = small;
  if (length > sizeof small) {
    large.resize(length);
    bytes = large.data();
  }
  TextConverter().WideToBytes(text, length, bytes);
  uint32_t written = 0;
  return file_->Write(bytes, static_cast<uint32_t>(length), &written) && written == length ? 1 : 0;
}

int FileLogSink::Flush() { return file_ && file_->Flush() ? 1 : 0; }

}  // namespace kavo
