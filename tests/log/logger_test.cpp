#include "log/logger.h"

#include <gtest/gtest.h>

#include <stdexcept>
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
  std::u16string All() const {
    std::u16string all;
    for (const auto& c : calls) all += c;
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

TEST_F(LoggerTest, IndentsOneSpacePerLevelInAWriteOfItsOwn) {
  EXPECT_EQ(logger_.Write(u"top\n"), 1);
  logger_.Indent();
  logger_.Indent();
  logger_.Indent();
  EXPECT_EQ(logger_.Write(u"deep\n"), 1);
  logger_.Unindent();
  logger_.Write(u"less\n");
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{u"top\n", u"   ", u"deep\n", u"  ", u"less\n"}));
  EXPECT_EQ(logger_.Level(), 2);
}

TEST_F(LoggerTest, IndentationIsClampedTo127EvenBelowZero) {
  for (int i = 0; i < 130; ++i) logger_.Indent();
  logger_.Write(u"x");
  EXPECT_EQ(sink_->calls.front(), std::u16string(127, u' '));
  for (int i = 0; i < 131; ++i) logger_.Unindent();  // one more than indents
  sink_->calls.clear();
  logger_.Write(u"y");
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{std::u16string(127, u' '), u"y"}));
}

TEST_F(LoggerTest, WriteReportsTheSinkAndRefusesNothingToWrite) {
  EXPECT_EQ(logger_.Write(nullptr), 0);
  EXPECT_TRUE(sink_->calls.empty());
  sink_->result = 0;
  EXPECT_EQ(logger_.Write(u"text"), 0);
  Ref<LogSink> old = logger_.SetSink(Ref<LogSink>());
  EXPECT_EQ(old.get(), sink_.get());  // the old sink comes back
  EXPECT_EQ(logger_.Write(u"nowhere"), 0);
}

TEST_F(LoggerTest, FormatsTypedArgumentsAndDropsLongMessages) {
  EXPECT_EQ(logger_.Format(u"Port %s at %d baud, handle %x/%X, %05d %c %u%%\n", u"com3:", 4800, 0xbeefu,
                           0xbeefu, -42, u'Z', 7u),
            1);
  EXPECT_EQ(sink_->All(), u"Port com3: at 4800 baud, handle beef/BEEF, -0042 Z 7%\n");

  sink_->calls.clear();
  const std::u16string fits(255, u'a');
  EXPECT_EQ(logger_.Format(u"%s", fits), 1);
  EXPECT_EQ(sink_->All(), fits);

  sink_->calls.clear();
  EXPECT_EQ(logger_.Format(u"%s!", fits), 0);  // 256 characters: dropped, not cut
  EXPECT_EQ(logger_.Format(u"%s%d", std::u16string(250, u'b'), 123456), 0);
  EXPECT_EQ(logger_.Format(nullptr), 0);
  EXPECT_TRUE(sink_->calls.empty());

  // Missing arguments print as nothing rather than reading past the list.
  EXPECT_EQ(logger_.Format(u"[%s|%d]", u"only"), 1);
  EXPECT_EQ(sink_->All(), u"[only|0]");
}

TEST_F(LoggerTest, ScopesCloseOnEveryWayOut) {
  {
    LogScope scope(u"Initializing connection to port", logger_);
    logger_.Write(u"inside\n");
  }
  EXPECT_EQ(sink_->All(), u"Initializing connection to port\n inside\nFinished\n");
  EXPECT_EQ(logger_.Level(), 0);

  sink_->calls.clear();
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

TEST(LoggerInstance, IsOneObjectWritingToTheDebugOutputByDefault) {
  Logger& logger = Logger::Instance();
  EXPECT_EQ(&logger, &Logger::Instance());
  Ref<LogSink> current = logger.SetSink(Ref<LogSink>());
  logger.SetSink(current);
  EXPECT_NE(dynamic_cast<DebugLogSink*>(current.get()), nullptr);
  Ref<DebugLogSink> debug(new DebugLogSink);
  EXPECT_EQ(debug->WriteText(nullptr), 0);
  EXPECT_EQ(debug->Flush(), 1);
}

}  // namespace
}  // namespace kavo
