#include "common/log_capture.h"

namespace kavo::test {

class LogCapture::Sink : public LogSink {
 public:
  explicit Sink(Listener onText) : onText_(std::move(onText)) {}
  int WriteText(const char16_t* text) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      text_ += text;
    }
    if (onText_) onText_(text);
    return 1;
  }
  int Flush() override { return 1; }
  std::u16string Text() {
    std::lock_guard<std::mutex> lock(mutex_);
    return text_;
  }

 private:
  Listener onText_;
  std::mutex mutex_;
  std::u16string text_;
};

LogCapture::LogCapture(Logger& logger, Listener onText) : logger_(logger), sink_(new Sink(std::move(onText))) {
  previous_ = logger_.SetSink(Ref<LogSink>(sink_.get()));
}

LogCapture::~LogCapture() { logger_.SetSink(previous_); }

std::u16string LogCapture::Text() const { return sink_->Text(); }
std::string LogCapture::Utf8() const { return ToUtf8(Text()); }
bool LogCapture::Contains(const std::u16string& piece) const { return Text().find(piece) != std::u16string::npos; }

}  // namespace kavo::test
