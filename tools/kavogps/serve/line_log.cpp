#include "serve/line_log.h"

namespace kavo::serve {

void LineLog::Write(const std::string& lines) {
  std::lock_guard<std::mutex> lock(mutex_);
  out_ << lines << std::flush;
}

LogWriter::LineBuffer::int_type LogWriter::LineBuffer::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) Put(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

std::streamsize LogWriter::LineBuffer::xsputn(const char* text, std::streamsize size) {
  for (std::streamsize i = 0; i < size; ++i) Put(text[i]);
  return size;
}

void LogWriter::LineBuffer::Put(char c) {
  line_ += c;
  if (c != '\n') return;
  log_.Write(line_);
  line_.clear();
}

}  // namespace kavo::serve
