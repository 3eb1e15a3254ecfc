#include "support/error_codes.h"

namespace kavo {
namespace {

struct ErrorCodeEntry {
  int32_t code;
  uint32_t lastError;
  const char16_t* text;
};

constexpr ErrorCodeEntry kErrorCodes[] = {
#define KAVO_ERROR_ENTRY(name, code, lastError, text) {code, lastError, text},
    KAVO_ERROR_CODES(KAVO_ERROR_ENTRY)
#undef KAVO_ERROR_ENTRY
};

const ErrorCodeEntry* Find(int32_t code) {
  for (const ErrorCodeEntry& entry : kErrorCodes)
    if (entry.code == code) return &entry;
  return nullptr;
}

}  // namespace

uint32_t LastErrorForCode(int32_t code) {
  const ErrorCodeEntry* entry = Find(code);
  return entry ? entry->lastError : platform::kErrorNotSupported;
}

std::u16string StandardErrorText(int32_t code) {
  if (const ErrorCodeEntry* entry = Find(code)) return entry->text;
  return code < 0 ? u"Unknown error." : u"";
}

}  // namespace kavo
