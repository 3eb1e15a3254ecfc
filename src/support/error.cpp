#include "support/error.h"

#include <new>

#include "support/wide_string.h"

namespace kavo {

void CIMExceptionImpl::SetMessage(const char16_t* text) { CopyTruncated(message_, kErrorTextLength - 1, text); }

void CIMExceptionImpl::SetDetail(const char16_t* text) { CopyTruncated(detail_, kErrorTextLength - 1, text); }

void SetError(CIMExceptionImpl* record, int32_t code) { SetError(record, code, nullptr, nullptr); }

void SetError(CIMExceptionImpl* record, int32_t code, const char16_t* message, const char16_t* detail) {
  if (!record) return;
  record->SetCode(code);
  record->SetMessage(message);
  record->SetDetail(detail);
  const bool haveMessage = WideLength(message) > 0;
  const bool haveDetail = WideLength(detail) > 0;
  if (haveMessage && haveDetail) return;
  const std::u16string standard = StandardErrorText(code);
  if (!haveMessage) record->SetMessage(standard.c_str());
  if (!haveDetail) record->SetDetail(standard.c_str());
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
    SetError(&record, kErrGeneralFailure);
  }
  return record;
}

}  // namespace kavo
