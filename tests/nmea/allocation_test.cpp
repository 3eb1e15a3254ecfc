// Allocations on the chunk path, counted and failed on request. Only large
// ones fail, so the log's small ones still succeed.
#include <atomic>
#include <cstdlib>
#include <new>

#include "nmea_test_support.h"

namespace {
std::atomic<bool> g_failLargeAllocations{false};
std::atomic<size_t> g_allocations{0};
constexpr std::size_t kLarge = 512;

void* Allocate(std::size_t size) {
  ++g_allocations;
  if (g_failLargeAllocations && size >= kLarge) throw std::bad_alloc();
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
// The sanitizers' own versions of these would pair with the free below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace kavo::test {
namespace {

// Processes `chunk` while large allocations fail.
template <class Store>
int ProcessFailingLarge(Store& store, const WideString& chunk) {
  g_failLargeAllocations = true;
  const int result = store.ProcessChunk(chunk);
  g_failLargeAllocations = false;
  return result;
}

using AllocationTest = StoreTest;

TEST_F(AllocationTest, SteadyStreamAllocatesNothingPerLine) {
  const std::string epoch =
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
      "$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39\r\n$GPGSV,1,1,02,01,40,083,46,02,17,308,41*75\r\n"
      "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A\r\n"
      "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48\r\n$PGRME,15.0,M,45.0,M,25.0,M*1C\r\n";
  std::string stream;
  while (stream.size() < 8 * 1024) stream += epoch;
  const WideString text = W(stream);
  auto play = [&] {
    size_t recognised = 0;
    for (size_t at = 0; at < text.size(); at += 1024) {
      store_.ProcessChunk(WideView(text).substr(at, 1024));
      recognised += store_.RecognisedSentences().Count();
    }
    return recognised;
  };
  play();  // buffers grow to what a chunk needs
  const size_t before = g_allocations;
  EXPECT_GT(play(), 100u);
  EXPECT_EQ(g_allocations - before, 0u);
}

TEST_F(AllocationTest, FramingFailureIsAParserErrorUntilASentenceIsRecognised) {
  const WideString gga = W("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\n");
  store_.ProcessChunk(u"$GPXTE,A,A");
  const WideString longer = W("," + std::string(300, '0') + "5.5,N,010.2,K\n") + gga;
  EXPECT_EQ(ProcessFailingLarge(store_, longer), 0);  // the line buffer must grow
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

  // Keeping a recognised sentence can fail too, once it is longer than the
  // room the list keeps for a chunk's sentences; what was parsed before stays.
  std::string vtg = "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K";
  while (vtg.size() < nmea::SentenceFramer::kChunkHint + 100) vtg += ",0";
  EXPECT_EQ(ProcessFailingLarge(store_, W(vtg + "\n")), 0);
  EXPECT_EQ(store_.Status(), -4);
  EXPECT_EQ(Location().Course, 54.7 * 0.0174532925);
  EXPECT_EQ(store_.RecognisedSentences().Count(), 0u);
}

}  // namespace
}  // namespace kavo::test
