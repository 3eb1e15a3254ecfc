// A buffered reader of recorded text: recognises the byte-order mark and
// yields 16-bit characters and lines ended by CR LF.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/platform.h"
#include "support/text_converter.h"
#include "support/wide_string.h"

namespace kavo {

class EncodedTextReader {
 public:
  enum Encoding : uint32_t {
    kCodePage = 0,  // single bytes in the system code page
    kUtf16BigEndian = 1,
    kUtf16LittleEndian = 2,
    kUtf8 = 3,
  };
  static constexpr uint32_t kBlockSize = 4096;

  EncodedTextReader() = default;
  ~EncodedTextReader() { Close(); }
  EncodedTextReader(const EncodedTextReader&) = delete;
  EncodedTextReader& operator=(const EncodedTextReader&) = delete;

  // Opens the file (closing any open one) and detects its byte-order mark.
  // Raises a system error when the file cannot be opened or read.
  void Open(const WideString& path);
  // Clears the state and closes the file; harmless when not open.
  void Close();
  // Back to the first character after the byte-order mark; the encoding
  // stays. Raises a system error when the file cannot be positioned.
  void Rewind();

  // false at the end of the data. Raise a system error when reading fails.
  bool ReadByte(uint8_t* byte);
  bool ReadChar(char16_t* c);
  // Reads up to `capacity - 1` characters of one line into `dest` and
  // terminates it. Only CR LF ends a line and is stored as one LF. Returns 0
  // when the data ended before any character, else 1. `length`, when
  // given, receives the number of characters stored, which tells where the
  // line ends even when it holds a NUL.
  int ReadLine(char16_t* dest, uint32_t capacity, uint32_t* length = nullptr);

  Encoding GetEncoding() const { return encoding_; }
  bool IsOpen() const { return file_ != nullptr; }

 private:
  int ReadLineInto(char16_t* dest, uint32_t capacity, uint32_t* stored);
  void DetectByteOrderMark();
  void SeekToStart();
  void ClearState();
  bool ReadUtf8(char16_t* c);
  char16_t FromCodePage(uint8_t byte) const;

  Encoding encoding_ = kCodePage;
  std::unique_ptr<platform::File> file_;
  uint8_t buffer_[kBlockSize] = {};
  uint32_t position_ = 0;
  uint32_t count_ = 0;
  bool endOfData_ = false;
  char16_t pendingUnit_ = 0;  // second half of a surrogate pair
  bool hasPendingUnit_ = false;
  uint8_t heldByte_ = 0;  // the byte that broke a UTF-8 sequence
  bool hasHeldByte_ = false;
  TextConverter converter_;
  char16_t carried_ = 0;  // follows a lone CR that filled the line
};

}  // namespace kavo
