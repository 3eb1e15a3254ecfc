#include <gtest/gtest.h>

#include "serve/out_queue.h"
#include "serve/request_lines.h"

namespace kavo::serve {
namespace {

TEST(RequestLines, SplitsLinesAndDropsTooLongOnesWhicheverWayTheBytesCome) {
  const std::string stream = "?AB\r\n0123456789abc\n\n?C\n?DE";
  const std::vector<std::pair<std::string, bool>> expected = {{"?AB", false}, {"", true}, {"", false}, {"?C", false}};
  for (size_t chunk : {stream.size(), size_t{1}, size_t{5}}) {
    RequestLines requests(8);
    std::vector<RequestLines::Line> lines;
    for (size_t at = 0; at < stream.size(); at += chunk)
      requests.Add(stream.data() + at, std::min(chunk, stream.size() - at), &lines);
    std::vector<std::pair<std::string, bool>> got;
    for (const auto& line : lines) got.emplace_back(line.text, line.tooLong);
    EXPECT_EQ(got, expected) << "chunks of " << chunk;
  }
}

TEST(OutQueue, DropsTheOldestWholeLinesAndKeepsTheNewest) {
  OutQueue queue(10);
  for (const char* text : {"aaaa", "bbbb", "cccc"}) queue.Push(std::make_shared<const std::string>(text));
  EXPECT_EQ(queue.Dropped(), 1u);
  std::vector<std::string> kept;
  for (const OutLine& line : queue.TakeAll()) kept.push_back(*line);
  EXPECT_EQ(kept, (std::vector<std::string>{"bbbb", "cccc"}));
  EXPECT_TRUE(queue.Empty());
  queue.Push(std::make_shared<const std::string>(std::string(50, 'x')));  // bigger than the bound: still sent
  EXPECT_EQ(queue.TakeAll().size(), 1u);
}

}  // namespace
}  // namespace kavo::serve
