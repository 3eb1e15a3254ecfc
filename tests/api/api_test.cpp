// The frame every exported function shares (the error record, the mapping of
// internal codes to last-error values, the shapes of an exported function),
// and the port list as an application reads it on a machine the test models.
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"
#include "common/registry_model.h"
#include "support/ref_counted.h"

namespace kavo::api {
namespace {

TEST(ErrorRecord, FillsMissingTextsWithTheStandardOneAndRaisesWhatItHolds) {
  CIMExceptionImpl record;
  EXPECT_EQ(record.Code(), -1);
  SetError(&record, kErrPortNotFound, u"COM9: is busy", nullptr);
  EXPECT_EQ(std::u16string(record.Message()), u"COM9: is busy");
  EXPECT_EQ(std::u16string(record.Detail()), StandardErrorText(-14));
  EXPECT_FALSE(StandardErrorText(-14).empty());
  const std::u16string tooLong(400, u'm');
  SetError(&record, kErrInvalidParameter, tooLong.c_str(), u"d");
  EXPECT_EQ(std::u16string(record.Message()), tooLong.substr(0, 256));
  SetError(nullptr, kErrOutOfMemory);  // ignored
  try {
    CheckOrRaise(0, &record);
    FAIL();
  } catch (const CIMExceptionEx& e) {
    EXPECT_EQ(e.Code(), -9);
    EXPECT_EQ(std::u16string(e.Detail()), u"d");
  }
}

uint32_t LastError() { return KavoMobileGPS_GetLastError(); }

TEST(Frames, OperationReportsTheRecordOrWhatWasRaised) {
  using Work = int (*)(CIMExceptionImpl*);
  const struct {
    Work work;
    uint32_t win32;
  } table[] = {
      {[](CIMExceptionImpl*) { return 5; }, 0},
      {[](CIMExceptionImpl* r) {
         SetError(r, -14);
         return 0;
       },
       2},
      {[](CIMExceptionImpl*) { return 0; }, 50},  // zero without a code
      {[](CIMExceptionImpl*) -> int { Raise(kErrOperationFailed); }, 1006},
      {[](CIMExceptionImpl*) -> int { Raise(kErrInvalidParameter); }, 87},
      {[](CIMExceptionImpl*) -> int { Raise(kErrOutOfMemory); }, 14},
      {[](CIMExceptionImpl*) -> int { Raise(kErrNotSupported); }, 50},
      {[](CIMExceptionImpl*) -> int { Raise(kErrPortCollection); }, 50},  // not mapped
      {[](CIMExceptionImpl*) -> int { Raise(-40); }, 50},                 // not in the table
      {[](CIMExceptionImpl*) -> int { Raise(5); }, 50},                   // an OS error
      {[](CIMExceptionImpl*) -> int { throw std::bad_alloc(); }, 14},
  };
  for (const auto& row : table) {
    platform::SetLastError(12345);  // a success must clear an earlier failure
    EXPECT_EQ(OperationFrame(true, row.work), row.win32 == 0 ? 1 : 0) << row.win32;
    EXPECT_EQ(LastError(), row.win32);
  }
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

TEST(Frames, CreationReturnsTheHandleOrNullAndLeavesNothingBehind) {
  int alive = 0;
  // The second step fails after two parts exist; then one that succeeds.
  const std::pair<int32_t, uint32_t> codes[] = {{-14, 2}, {-3, 14}, {-1, 50}, {0, 0}};
  for (const auto& [code, win32] : codes) {
    Handle* made = CreatingFrame<Handle*>(true, [&](CIMExceptionImpl& record) {
      OwningHolder<Handle> handle(new Handle);
      handle->first = new Part(&alive);
      Ref<Part> second(new Part(&alive));
      SetError(&record, code);
      CheckOrRaise(code == 0 ? 1 : 0, &record);
      handle->second = second;
      return handle.Detach();
    });
    EXPECT_EQ(made == nullptr, code != 0);
    EXPECT_EQ(LastError(), win32) << code;
    EXPECT_EQ(alive, code ? 0 : 2) << code;
    delete made;
  }
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
    while (step.load() != 1) {}
    seenElsewhere = KavoMobileGPS_GetLastError();
    platform::SetLastError(87);
    step = 2;
  });
  platform::SetLastError(160);
  step = 1;
  while (step.load() != 2) {}
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  other.join();
  EXPECT_NE(seenElsewhere, 160u);
}

TEST(ComPortApi, TheCollectionListsPortsAndRefusesIndexesOutsideIt) {
  test::RegistryModel model(
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM95:\"\r\n"
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\02]\r\n\"Name\"=\"COM96:\"\r\n");
  ASSERT_TRUE(model.Ok());
  COMPortCollectionHandle ports = COMPortCollection_Create(1);
  ASSERT_NE(ports, nullptr);
  EXPECT_EQ(COMPortCollection_GetCount(ports), 2);
  uint8_t busy = 7;
  for (int32_t index : {-1, 2}) {
    EXPECT_EQ(COMPortCollection_GetPort(ports, index, &busy), nullptr) << index;
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  }
  EXPECT_EQ(COMPortCollection_GetPort(ports, 0, nullptr), nullptr);
  EXPECT_EQ(busy, 7);
  COMPortInfoHandle port = COMPortCollection_GetPort(ports, 1, &busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 1);  // no such device
  COMPortParams params{};
  EXPECT_TRUE(COMPortInfo_GetParams(port, &params) && params.BaudRate == 4800 && params.Parity == 0 &&
              params.StopBits == 0 && params.ByteSize == 8);
  COMPortCollection_Release(ports);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port))), u"COM95:")
      << "a port outlives its collection";
  COMPortInfo_Release(port);
}

}  // namespace
}  // namespace kavo::api
