// The frame every exported function shares: the mapping of internal codes to
// last-error values, and the three shapes of an exported function.
#include "api/frames.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <new>
#include <thread>

#include "KavoMobileGPS.h"
#include "support/ref_counted.h"

namespace kavo::api {
namespace {

TEST(ErrorMapping, MapsTheListedCodesAndEverythingElseTo50) {
  const struct { int32_t internal; uint32_t win32; } table[] = {
      {-16, 50}, {-14, 2}, {-11, 1006}, {-9, 87}, {-3, 14},
      // Not listed, including "no error recorded" (-1) and non-negative codes.
      {-1, 50}, {-2, 50}, {-5, 50}, {-15, 50}, {-17, 50}, {0, 50}, {1, 50}, {87, 50},
      {INT32_MIN, 50}, {INT32_MAX, 50},
  };
  for (const auto& row : table) {
    EXPECT_EQ(MapToWin32(row.internal), row.win32) << row.internal;
    CIMExceptionImpl record;
    SetError(&record, row.internal);
    EXPECT_EQ(MapToWin32(record), row.win32) << row.internal;
  }
  EXPECT_EQ(MapToWin32(CIMExceptionImpl()), 50u);  // a record nobody filled
}

TEST(ErrorRecord, StartsEmptyAndFillsMissingTextsWithTheStandardOne) {
  CIMExceptionImpl record;
  EXPECT_EQ(record.Code(), -1);
  EXPECT_EQ(record.Message()[0], 0);
  EXPECT_EQ(record.Detail()[0], 0);

  SetError(&record, kErrPortNotFound, u"COM9: is busy", nullptr);
  EXPECT_EQ(record.Code(), -14);
  EXPECT_EQ(std::u16string(record.Message()), u"COM9: is busy");
  EXPECT_EQ(std::u16string(record.Detail()), StandardErrorText(-14));
  EXPECT_FALSE(StandardErrorText(-14).empty());

  const std::u16string tooLong(400, u'm');
  SetError(&record, kErrOperationFailed, tooLong.c_str(), u"detail");
  EXPECT_EQ(std::u16string(record.Message()), tooLong.substr(0, 256));
  EXPECT_EQ(std::u16string(record.Detail()), u"detail");
  SetError(nullptr, kErrOutOfMemory);  // ignored
}

TEST(RaisedError, CarriesTheRecordOrCodeMinusOne) {
  CIMExceptionImpl record;
  SetError(&record, kErrInvalidParameter, u"m", u"d");
  try {
    CheckOrRaise(0, &record);
    FAIL();
  } catch (const CIMExceptionEx& e) {
    EXPECT_EQ(e.Code(), -9);
    EXPECT_EQ(std::u16string(e.Message()), u"m");
    EXPECT_EQ(std::u16string(e.Detail()), u"d");
  }
  try {
    Raise(nullptr);
  } catch (const CIMExceptionEx& e) {
    EXPECT_EQ(e.Code(), -1);
    EXPECT_EQ(e.Message()[0], 0);
  }
  EXPECT_NO_THROW(CheckOrRaise(1, kErrPortNotFound));
  EXPECT_THROW(CheckOrRaise(0, kErrPortNotFound), CException);
}

class FrameTest : public ::testing::Test {
 protected:
  // Every test starts after a failure, so a success must clear it.
  void SetUp() override { platform::SetLastError(12345); }
  static uint32_t LastError() { return KavoMobileGPS_GetLastError(); }
};

TEST_F(FrameTest, AccessorChecksArgumentsThenSucceeds) {
  bool ran = false;
  EXPECT_EQ(AccessorFrame(false, -4, [&] { ran = true; return 7; }), -4);
  EXPECT_FALSE(ran);
  EXPECT_EQ(LastError(), 160u);
  EXPECT_EQ(AccessorFrame(true, -4, [&] { return 7; }), 7);
  EXPECT_EQ(LastError(), 0u);
  EXPECT_EQ(AccessorFrame<int32_t>(false, 2, [] { return 0; }), 2);
  EXPECT_EQ(LastError(), 160u);
}

TEST_F(FrameTest, OperationReportsTheRecordOrWhatWasRaised) {
  bool ran = false;
  EXPECT_EQ(OperationFrame(false, [&](CIMExceptionImpl*) { ran = true; return 1; }), 0);
  EXPECT_FALSE(ran);
  EXPECT_EQ(LastError(), 160u);

  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) { return 5; }), 1);
  EXPECT_EQ(LastError(), 0u);

  const struct { int32_t code; uint32_t win32; } failures[] = {{-14, 2}, {-3, 14}, {-11, 1006}, {-9, 87}, {-16, 50}, {-7, 50}};
  for (const auto& f : failures) {
    EXPECT_EQ(OperationFrame(true, [&](CIMExceptionImpl* record) { SetError(record, f.code); return 0; }), 0);
    EXPECT_EQ(LastError(), f.win32) << f.code;
    EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) { return 1; }), 1);
    EXPECT_EQ(LastError(), 0u) << "after " << f.code;
  }
  // Zero without a code: the record's -1 is reported as 50.
  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) { return 0; }), 0);
  EXPECT_EQ(LastError(), 50u);
  // Nothing raised inside leaves the frame.
  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) -> int { Raise(kErrOperationFailed); }), 0);
  EXPECT_EQ(LastError(), 1006u);
  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) -> int { throw std::bad_alloc(); }), 0);
  EXPECT_EQ(LastError(), 14u);
  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) -> int { throw CNotSupportedException(); }), 0);
  EXPECT_EQ(LastError(), 50u);
  EXPECT_EQ(OperationFrame(true, [](CIMExceptionImpl*) -> int { throw 42; }), 0);
  EXPECT_EQ(LastError(), 50u);
}

// A part of a handle under construction that counts its own life.
class Part : public virtual RefCounted {
 public:
  explicit Part(int* alive) : alive_(alive) { ++*alive_; }

 private:
  ~Part() override { --*alive_; }
  int* alive_;
};

struct Handle {
  Ref<Part> first, second;
};

TEST_F(FrameTest, CreationReturnsTheHandleOrNullAndLeavesNothingBehind) {
  int alive = 0;
  bool ran = false;
  EXPECT_EQ(CreatingFrame<Handle*>(false, [&](CIMExceptionImpl&) { ran = true; return new Handle; }), nullptr);
  EXPECT_FALSE(ran);
  EXPECT_EQ(LastError(), 160u);

  // Each step through check-or-raise; the third fails after two parts exist.
  for (const int32_t code : {-14, -11, -3, -1}) {
    Handle* made = CreatingFrame<Handle*>(true, [&](CIMExceptionImpl& record) {
      OwningHolder<Handle> handle(new Handle);
      handle->first = new Part(&alive);
      Ref<Part> second(new Part(&alive));
      CheckOrRaise(second ? 1 : 0, &record);
      SetError(&record, code);
      CheckOrRaise(0, &record);
      handle->second = second;
      return handle.Detach();
    });
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(LastError(), MapToWin32(code)) << code;
    EXPECT_EQ(alive, 0) << code;
  }

  Handle* made = CreatingFrame<Handle*>(true, [&](CIMExceptionImpl&) {
    OwningHolder<Handle> handle(new Handle);
    handle->first = new Part(&alive);
    CheckOrRaise(1, kErrInvalidParameter);
    return handle.Detach();
  });
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(LastError(), 0u);
  EXPECT_EQ(alive, 1);
  delete made;
  EXPECT_EQ(alive, 0);

  EXPECT_EQ(CreatingFrame<Handle*>(true, [](CIMExceptionImpl&) -> Handle* { throw std::bad_alloc(); }), nullptr);
  EXPECT_EQ(LastError(), 14u);
}

TEST(LastErrorExport, IsPerThread) {
  // Only atomics between the two threads: any system call may change a
  // thread's last error, joining a thread included.
  std::atomic<int> step{0};
  uint32_t seenElsewhere = 1;
  std::thread other([&] {
    while (step.load() != 1) {
    }
    seenElsewhere = KavoMobileGPS_GetLastError();
    platform::SetLastError(87);
    step = 2;
  });
  platform::SetLastError(160);
  step = 1;
  while (step.load() != 2) {
  }
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  other.join();
  EXPECT_NE(seenElsewhere, 160u);
}

}  // namespace
}  // namespace kavo::api
