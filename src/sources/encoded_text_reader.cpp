#include "sources/encoded_text_reader.h"

#include "support/system_error.h"

namespace kavo {
namespace {
constexpr char16_t kCr = 13;
constexpr char16_t kLf = 10;
constexpr char16_t kBrokenSequence = u'?';
}  // namespace

void EncodedTextReader::Open(const WideString& path) {
  Close();
  file_ = platform::File::Open(path, platform::FileAccess::kRead, platform::FileDisposition::kOpenExisting);
  if (!file_) RaiseLastSystemError(path.c_str());
  DetectByteOrderMark();
}

void EncodedTextReader::Close() {
  ClearState();
  encoding_ = kCodePage;
  file_.reset();
}

void EncodedTextReader::DetectByteOrderMark() {
  uint8_t first = 0, second = 0;
  if (!ReadByte(&first) || !ReadByte(&second)) {
    encoding_ = kCodePage;
    SeekToStart();
    return;
  }
  if (first == 0xFF && second == 0xFE) {
    encoding_ = kUtf16LittleEndian;
    return;
  }
  if (first == 0xFE && second == 0xFF) {
    encoding_ = kUtf16BigEndian;
    return;
  }
  uint8_t third = 0;
  if (first == 0xEF && second == 0xBB && ReadByte(&third) && third == 0xBF) {
    encoding_ = kUtf8;
    return;
  }
  encoding_ = kCodePage;
  SeekToStart();
}

void EncodedTextReader::Rewind() {
  if (!file_) RaiseSystemError(platform::kErrorInvalidHandle);
  SeekToStart();
}

void EncodedTextReader::SeekToStart() {
  const uint32_t start = encoding_ == kUtf8 ? 3 : encoding_ == kCodePage ? 0 : 2;
  if (!file_->SeekFromStart(start)) RaiseLastSystemError();
  ClearState();
}

void EncodedTextReader::ClearState() {
  position_ = count_ = 0;
  endOfData_ = false;
  hasPendingUnit_ = hasHeldByte_ = false;
  pendingUnit_ = carried_ = 0;
  heldByte_ = 0;
}

bool EncodedTextReader::ReadByte(uint8_t* byte) {
  if (endOfData_ || !file_) return false;
  if (position_ != count_ && count_ != 0) {
    *byte = buffer_[position_++];
    return true;
  }
  uint32_t got = 0;
  if (!file_->Read(buffer_, kBlockSize, &got)) RaiseLastSystemError();
  if (got == 0) {
    endOfData_ = true;
    return false;
  }
  count_ = got;
  position_ = 1;
  *byte = buffer_[0];
  return true;
}

char16_t EncodedTextReader::FromCodePage(uint8_t byte) const {
  char16_t c = 0;
  converter_.BytesToWide(&byte, 1, &c);
  return c;
}

bool EncodedTextReader::ReadChar(char16_t* c) {
  uint8_t first = 0, second = 0;
  switch (encoding_) {
    case kCodePage:
      if (!ReadByte(&first)) return false;
      *c = FromCodePage(first);
      return true;
    case kUtf16BigEndian:
    case kUtf16LittleEndian:
      // An odd byte at the end is dropped with the character it began.
      if (!ReadByte(&first) || !ReadByte(&second)) return false;
      *c = encoding_ == kUtf16BigEndian ? static_cast<char16_t>(first << 8 | second)
                                        : static_cast<char16_t>(second << 8 | first);
      return true;
    case kUtf8:
      return ReadUtf8(c);
  }
  return false;
}

bool EncodedTextReader::ReadUtf8(char16_t* c) {
  if (hasPendingUnit_) {
    hasPendingUnit_ = false;
    *c = pendingUnit_;
    return true;
  }
  uint8_t bytes[4] = {};
  if (hasHeldByte_) {
    hasHeldByte_ = false;
    bytes[0] = heldByte_;
  } else if (!ReadByte(&bytes[0])) {
    return false;
  }
  const uint32_t length = bytes[0] < 0xC0 ? 1 : bytes[0] < 0xE0 ? 2 : bytes[0] < 0xF0 ? 3 : 4;
  if (length == 1) {
    *c = FromCodePage(bytes[0]);
    return true;
  }
  for (uint32_t i = 1; i < length; ++i) {
    if (!ReadByte(&bytes[i])) return false;
    if (bytes[i] < 0x80 || bytes[i] > 0xBF) {
      // Decoding resumes at the byte that broke the sequence.
      heldByte_ = bytes[i];
      hasHeldByte_ = true;
      *c = kBrokenSequence;
      return true;
    }
  }
  char16_t units[2] = {};
  if (converter_.Utf8SequenceToWide(bytes, length, units) == 2) {
    pendingUnit_ = units[1];
    hasPendingUnit_ = true;
  }
  *c = units[0];
  return true;
}

int EncodedTextReader::ReadLine(char16_t* dest, uint32_t capacity, uint32_t* length) {
  uint32_t stored = 0;
  const int result = ReadLineInto(dest, capacity, &stored);
  if (length) *length = stored;
  return result;
}

int EncodedTextReader::ReadLineInto(char16_t* dest, uint32_t capacity, uint32_t* stored) {
  if (capacity == 0) return 1;
  uint32_t pos = 0;
  // With room for the terminator only, a carried character waits.
  if (carried_ != 0 && capacity > 1) {
    dest[0] = carried_;
    carried_ = 0;
    pos = 1;
  }
  if (pos >= capacity - 1) {
    dest[pos] = 0;
    *stored = pos;
    return 1;
  }
  char16_t c = 0;
  while (ReadChar(&c)) {
    dest[pos] = c;
    if (c == kCr) {
      char16_t next = 0;
      if (!ReadChar(&next)) {
        dest[pos + 1] = 0;
        *stored = pos + 1;
        return 1;
      }
      if (next == kLf) {
        dest[pos] = kLf;
        dest[pos + 1] = 0;
        *stored = pos + 1;
        return 1;
      }
      if (++pos >= capacity - 1) {
        dest[pos] = 0;
        *stored = pos;
        carried_ = next;
        return 1;
      }
      dest[pos] = next;  // stored as it is: a second CR does not end the line
    }
    if (++pos >= capacity - 1) {
      dest[pos] = 0;
      *stored = pos;
      return 1;
    }
  }
  dest[pos] = 0;
  *stored = pos;
  return pos == 0 ? 0 : 1;
}

}  // namespace kavo
