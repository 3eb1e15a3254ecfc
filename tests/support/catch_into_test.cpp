#include <gtest/gtest.h>

#include <string>

#include "support/error.h"

namespace kavo {
namespace {

// What each kind of throw leaves in the record, raised text or standard.
TEST(CatchInto, ClassifiesWhatTheBodyThrows) {
  using Body = void (*)();
  const struct {
    Body body;
    int result;
    int32_t code;
    std::u16string message;
  } table[] = {
      {[] {}, 1, 12345, u"untouched"},
      {[] { Raise(kErrPortNotFound, u"COM7", u"detail"); }, 0, kErrPortNotFound, u"COM7"},
      {[] { Raise(7, u"System error 7"); }, 0, 7, u"System error 7"},
      {[] { throw CMemoryException(); }, 0, kErrOutOfMemory, StandardErrorText(kErrOutOfMemory)},
      {[] { throw 42; }, 0, kErrGeneralFailure, StandardErrorText(kErrGeneralFailure)},
  };
  for (const auto& row : table) {
    CIMExceptionImpl record;
    SetError(&record, 12345, u"untouched", u"untouched");
    EXPECT_EQ(CatchInto(&record, row.body), row.result) << row.code;
    EXPECT_EQ(record.Code(), row.code);
    EXPECT_EQ(std::u16string(record.Message()), row.message) << row.code;
    EXPECT_EQ(CatchInto(nullptr, row.body), row.result) << row.code;  // no record to fill
  }
}

}  // namespace
}  // namespace kavo
