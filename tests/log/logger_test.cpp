#include "log/logger.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/error.h"

namespace kavo {
namespace {

// Keeps every WriteText call apart, so that the indentation is seen to be a
// write of its own.
class RecordingSink : public LogSink {
 public:
  int WriteText(const char16_t* text) override {
    calls.emplace_back(text);
    return result;
  }
  int Flush() override { return 1; }
  std::u16string All() {
    std::u16string all;
    for (const auto& c : calls) all += c;
    calls.clear();
    return all;
  }
  std::vector<std::u16string> calls;
  int result = 1;
};

class LoggerTest : public ::testing::Test {
 protected:
  LoggerTest() : sink_(new RecordingSink) { logger_.SetSink(sink_); }
  Logger logger_;
  Ref<RecordingSink> sink_;
};

TEST_F(LoggerTest, IndentsInAWriteOfItsOwnClampedTo127AndScopesCloseOnEveryWayOut) {
  logger_.Indent();
  logger_.Indent();
  EXPECT_EQ(logger_.Write(u"deep\n"), 1);
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{u"  ", u"deep\n"}));
  sink_->calls.clear();
  for (int i = 0; i < 135; ++i) logger_.Unindent();  // below zero counts as the most
  logger_.Write(u"y");
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{std::u16string(127, u' '), u"y"}));
  for (int i = 0; i < 133; ++i) logger_.Indent();
  sink_->All();
  EXPECT_THROW(
      {
        LogScope outer(u"Outer", logger_);
        LogScope inner(u"Inner", logger_);
        Raise(kErrOperationFailed);
      },
      CIMExceptionEx);
  // The title's line end is a write of its own, so it is indented too.
  EXPECT_EQ(sink_->All(), u"Outer\n Inner \n Finished\nFinished\n");
  EXPECT_EQ(logger_.Level(), 0);
}

TEST_F(LoggerTest, WriteAndFormatReportWhatTheSinkDidAndDropLongMessages) {
  EXPECT_EQ(logger_.Write(nullptr), 0);
  EXPECT_EQ(logger_.Format(u"Port %s at %d baud, handle %x/%X, %05d %c %u%% [%s|%d]\n", u"com3:", 4800, 0xbeefu,
                           0xbeefu, -42, u'Z', 7u, u"only"),
            1);
  EXPECT_EQ(sink_->All(), u"Port com3: at 4800 baud, handle beef/BEEF, -0042 Z 7% [only|0]\n");
  const std::u16string fits(255, u'a');
  EXPECT_EQ(logger_.Format(u"%s", fits), 1);
  EXPECT_EQ(logger_.Format(u"%s!", fits), 0);  // 256 characters: dropped, not cut
  EXPECT_EQ(sink_->All(), fits);
  sink_->result = 0;
  EXPECT_EQ(logger_.Write(u"text"), 0);
  EXPECT_EQ(logger_.SetSink(Ref<LogSink>()).get(), sink_.get());  // the old sink comes back
  EXPECT_EQ(logger_.Write(u"nowhere"), 0);
  EXPECT_NE(dynamic_cast<DebugLogSink*>(Logger::Instance().SetSink(sink_).get()), nullptr)
      << "the library's logger starts on the debug output";
  Logger::Instance().SetSink(Ref<LogSink>(new DebugLogSink));
}

}  // namespace
}  // namespace kavo
