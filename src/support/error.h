// The error record passed down by every exported call, and the errors the
// library raises inside creation and parsing code. None leaves the library.
#pragma once

#include <cstdint>
#include <string>

#include "support/error_codes.h"

namespace kavo {

constexpr size_t kErrorTextLength = 257;  // units, terminator included

class CIMExceptionI {
 public:
  virtual void SetMessage(const char16_t* text) = 0;
  virtual void SetDetail(const char16_t* text) = 0;
  virtual void SetCode(int32_t code) = 0;

 protected:
  ~CIMExceptionI() = default;
};

// The per-call error record: empty texts, and the general failure as its
// code until an error is set, so that a step that fails without saying why
// reports that.
class CIMExceptionImpl : public CIMExceptionI {
 public:
  CIMExceptionImpl() = default;
  CIMExceptionImpl(const CIMExceptionImpl&) = default;
  CIMExceptionImpl& operator=(const CIMExceptionImpl&) = default;
  virtual ~CIMExceptionImpl() = default;

  void SetMessage(const char16_t* text) override;  // cut to 256 units
  void SetDetail(const char16_t* text) override;
  void SetCode(int32_t code) override { code_ = code; }

  int32_t Code() const { return code_; }
  const char16_t* Message() const { return message_; }
  const char16_t* Detail() const { return detail_; }

 private:
  char16_t message_[kErrorTextLength] = {};
  char16_t detail_[kErrorTextLength] = {};
  int32_t code_ = kErrGeneralFailure;
};

// Sets the code and both texts; an empty text is filled with the code's
// standard text. Does nothing when `record` is null.
void SetError(CIMExceptionImpl* record, int32_t code);
void SetError(CIMExceptionImpl* record, int32_t code, const char16_t* message, const char16_t* detail);

// Base of everything the library raises. Thrown and caught by value.
class CException {
 public:
  virtual ~CException() = default;
  // What went wrong, for the diagnostic log.
  virtual std::u16string Describe() const = 0;
};

// A value the library does not accept (a malformed NMEA field, a nested
// start).
class CNotSupportedException : public CException {
 public:
  explicit CNotSupportedException(std::u16string what = u"not supported") : what_(std::move(what)) {}
  std::u16string Describe() const override { return what_; }

 private:
  std::u16string what_;
};

class CMemoryException : public CException {
 public:
  std::u16string Describe() const override { return u"out of memory"; }
};

// The raised form of an error record: code and both texts.
class CIMExceptionEx : public CException, public CIMExceptionImpl {
 public:
  CIMExceptionEx() = default;  // code -1, empty texts
  explicit CIMExceptionEx(const CIMExceptionImpl& record) : CIMExceptionImpl(record) {}
  std::u16string Describe() const override;
};

// Raises the record's error; a null record raises code -1 with empty texts.
[[noreturn]] void Raise(const CIMExceptionImpl* record);
// Raises a fresh error with the code and texts (standard text for empty).
[[noreturn]] void Raise(int32_t code, const char16_t* message = nullptr, const char16_t* detail = nullptr);

// Creation code runs each step through these: a step reports failure by
// returning zero after filling the record.
inline void CheckOrRaise(long ok, const CIMExceptionImpl* record) {
  if (!ok) Raise(record);
}
inline void CheckOrRaise(long ok, int32_t code, const char16_t* message = nullptr, const char16_t* detail = nullptr) {
  if (!ok) Raise(code, message, detail);
}

// Copies a caught error into the caller's record (when there is one).
void CopyError(const CIMExceptionImpl& from, CIMExceptionImpl* to);

// The exception being handled, as a record: a raised error as it was
// raised, running out of memory as kErrOutOfMemory, any other CException
// as kErrNotSupported, anything else as kErrGeneralFailure. Call only
// inside a catch block.
CIMExceptionImpl CaughtError() noexcept;

// Where a 1/0-plus-record shape meets code that raises: runs `body` and
// returns 1, or 0 with whatever it threw in `record` (when there is one).
template <class Body>
int CatchInto(CIMExceptionImpl* record, Body&& body) noexcept {
  try {
    body();
    return 1;
  } catch (...) {
    CopyError(CaughtError(), record);
    return 0;
  }
}

}  // namespace kavo
