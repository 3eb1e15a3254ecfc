// The framing's failure path: large allocations fail on request, through a
// replacement of the global allocation functions for this test program.
// Small ones (the log's) still succeed.
#include <atomic>
#include <cstdlib>
#include <new>

#include "nmea_test_support.h"

namespace {
std::atomic<bool> g_failLargeAllocations{false};
constexpr std::size_t kLarge = 512;

void* Allocate(std::size_t size) {
  if (g_failLargeAllocations && size >= kLarge) throw std::bad_alloc();
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try { return Allocate(size); } catch (...) { return nullptr; }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try { return Allocate(size); } catch (...) { return nullptr; }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace kavo::test {
namespace {

class FailingAllocations {
 public:
  FailingAllocations() { g_failLargeAllocations = true; }
  ~FailingAllocations() { g_failLargeAllocations = false; }
};

using OutOfMemoryTest = StoreTest;

TEST_F(OutOfMemoryTest, FramingFailureIsAParserErrorUntilASentenceIsRecognised) {
  const WideString gga = W("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\n");
  store_.ProcessChunk(u"$GPXTE,A,A");
  const WideString longer = W("," + std::string(300, '0') + "5.5,N,010.2,K\n") + gga;
  int result;
  {
    FailingAllocations failing;
    result = store_.ProcessChunk(longer);  // the line buffer must grow
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(store_.Status(), -4);
  EXPECT_EQ(store_.SentencesSeen(), 1u);
  EXPECT_EQ(log_.Text(), u"Parser error\n");
  EXPECT_EQ(store_.Framer().Leftover(), u"$GPXTE,A,A");
  EXPECT_EQ(Location().Latitude, 0.0);  // the rest of the chunk is lost

  // A rejected sentence leaves the status alone; a recognised one clears it.
  LogCapture log;
  store_.ProcessChunk(W("\n$GPGGA,240000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\n"));
  EXPECT_EQ(store_.Status(), -4);
  EXPECT_TRUE(log.Contains(u"Exception on parsing: hour out of range \"240000\"\n")) << log.Utf8();
  EXPECT_EQ(store_.ProcessChunk(gga), 1);
  EXPECT_EQ(store_.Status(), 0);

  // Keeping a recognised sentence can fail too, once the line buffer is big
  // enough; what was parsed before stays.
  store_.ProcessChunk(W(std::string(400, '-') + "\n"));
  std::string vtg = "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K";
  while (vtg.size() < 300) vtg += ",0";
  const WideString chunk = W(vtg + "\n");
  {
    FailingAllocations failing;
    result = store_.ProcessChunk(chunk);
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(store_.Status(), -4);
  EXPECT_EQ(Location().Course, 54.7 * 0.0174532925);
  EXPECT_EQ(store_.RecognisedSentences().Count(), 0u);
}

}  // namespace
}  // namespace kavo::test
