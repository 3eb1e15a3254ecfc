#include "support/error.h"

#include <new>

#include "support/wide_string.h"

namespace kavo {
namespace {

// Texts of the internal codes, for the message and detail of a record.
const char16_t* StandardText(int32_t code) {
  switch (code) {
    case kErrNone:
      return u"The operation failed.";
    case -2:
      return u"The operation was cancelled.";
    case kErrOutOfMemory:
      return u"Not enough memory.";
    case -4:
      return u"The object is not initialised.";
    case kErrPortCollection:
      return u"The list of serial ports could not be built.";
    case -6:
      return u"The object is already initialised.";
    case -7:
      return u"The operation timed out.";
    case -8:
      return u"Access was denied.";
    case kErrInvalidParameter:
      return u"A parameter is not valid.";
    case -10:
      return u"The data are not valid.";
    case kErrOperationFailed:
      return u"A serial port or file operation failed.";
    case -12:
      return u"The device is busy.";
    case -13:
      return u"The device did not answer.";
    case kErrPortNotFound:
      return u"The port cannot be opened, or no GPS port was found.";
    case -15:
      return u"The end of the data was reached.";
    case kErrNotSupported:
      return u"The operation is not supported.";
    case -17:
      return u"The operation is not allowed now.";
    case -18:
      return u"The receiver is not connected.";
    case -19:
      return u"The value is out of range.";
    default:
      return code < 0 ? u"Unknown error." : u"";
  }
}

}  // namespace

void CIMExceptionImpl::SetMessage(const char16_t* text) { CopyTruncated(message_, kErrorTextLength - 1, text); }

void CIMExceptionImpl::SetDetail(const char16_t* text) { CopyTruncated(detail_, kErrorTextLength - 1, text); }

std::u16string StandardErrorText(int32_t code) { return StandardText(code); }

void SetError(CIMExceptionImpl* record, int32_t code) { SetError(record, code, nullptr, nullptr); }

void SetError(CIMExceptionImpl* record, int32_t code, const char16_t* message, const char16_t* detail) {
  if (!record) return;
  record->SetCode(code);
  record->SetMessage(message);
  record->SetDetail(detail);
  const bool haveMessage = WideLength(message) > 0;
  const bool haveDetail = WideLength(detail) > 0;
  if (haveMessage && haveDetail) return;
  const char16_t* standard = StandardText(code);
  if (!haveMessage) record->SetMessage(standard);
  if (!haveDetail) record->SetDetail(standard);
}

std::u16string CIMExceptionEx::Describe() const {
  std::u16string text = u"error " + FromUtf8(std::to_string(Code()));
  if (Message()[0]) text += u": " + std::u16string(Message());
  if (Detail()[0] && std::u16string(Detail()) != Message()) text += u" (" + std::u16string(Detail()) + u")";
  return text;
}

void Raise(const CIMExceptionImpl* record) {
  if (!record) throw CIMExceptionEx();
  throw CIMExceptionEx(*record);
}

void Raise(int32_t code, const char16_t* message, const char16_t* detail) {
  CIMExceptionEx error;
  SetError(&error, code, message, detail);
  throw error;
}

void CopyError(const CIMExceptionImpl& from, CIMExceptionImpl* to) {
  if (to) *to = from;
}

CIMExceptionImpl CaughtError() noexcept {
  CIMExceptionImpl record;
  try {
    throw;
  } catch (const CIMExceptionEx& raised) {
    record = raised;
  } catch (const CMemoryException&) {
    SetError(&record, kErrOutOfMemory);
  } catch (const std::bad_alloc&) {
    SetError(&record, kErrOutOfMemory);
  } catch (const CException&) {
    SetError(&record, kErrNotSupported);
  } catch (...) {
    SetError(&record, kErrNone);
  }
  return record;
}

}  // namespace kavo
