#include "nmea/sentence_framer.h"

#include <algorithm>
#include <new>

#include "log/logger.h"
#include "nmea/checksum.h"
#include "nmea/sentence_parsers.h"
#include "support/error.h"

namespace kavo::nmea {
namespace {

using Parser = void (*)(WideView, ReceiverState&);

// The three characters after "$" and the talker, in the order they are tried.
Parser FindParserOfType(WideView sentence) {
  const WideView type = sentence.substr(3, 3);
  if (type == u"GGA") return ParseGga;
  if (type == u"GSV") return ParseGsv;
  if (type == u"RMC") return ParseRmc;
  if (type == u"GSA") return ParseGsa;
  if (type == u"VTG") return ParseVtg;
  return nullptr;
}

// Runs a parser; 0 when it rejected a value.
int RunParser(Parser parse, WideView sentence, ReceiverState& state) {
  try {
    parse(sentence, state);
  } catch (const CException& error) {
    Logger::Instance().Format(u"Exception on parsing: %s\n", error.Describe());
    return 0;
  }
  return 1;
}

// Ends the chunk's bracket on every way out.
class ChunkScope {
 public:
  explicit ChunkScope(ReceiverState& state) : state_(state) { state_.BeginChunk(); }
  ~ChunkScope() { state_.EndChunk(); }
  ChunkScope(const ChunkScope&) = delete;
  ChunkScope& operator=(const ChunkScope&) = delete;

 private:
  ReceiverState& state_;
};

}  // namespace

int SentenceFramer::Dispatch(WideView line, ReceiverState& state) {
  if (line.size() < 6 || line[0] != u'$' || !options_.Accepts(line[1], line[2])) return 0;
  const Parser parse = FindParserOfType(line);
  if (!parse) return 0;
  if (options_.Checksums() != ChecksumMode::kIgnore) {
    const ChecksumState checksum = CheckChecksum(line);
    if (checksum == ChecksumState::kWrong ||
        (checksum == ChecksumState::kMissing && options_.Checksums() == ChecksumMode::kRequire)) {
      Logger::Instance().Format(checksum == ChecksumState::kWrong ? u"Wrong checksum: %s\n" : u"Missing checksum: %s\n",
                                line.data());  // the line buffer is terminated
      return 0;
    }
  }
  if (!options_.MergesConstellations()) return RunParser(parse, line, state);
  // Several talkers: their satellites go to one table, and every GSA tells
  // which of them the solution uses.
  if (parse == ParseGsv) return sky_.AddGsv(line, state), 1;
  if (parse == ParseGsa) sky_.AddGsa(line);
  return RunParser(parse, line, state);
}

int SentenceFramer::Process(WideView chunk, ReceiverState& state) {
  const ChunkScope scope(state);
  sentences_.Clear();
  try {
    size_t position = 0;
    if (leftoverLength_ > 0) {
      const size_t feed = chunk.find(u'\n');
      if (feed == WideView::npos) {
        KeepTail(true, chunk);
        return 1;
      }
      TakeLine(Leftover(), chunk.substr(0, feed), state);
      position = feed + 1;
    }
    for (size_t feed; (feed = chunk.find(u'\n', position)) != WideView::npos; position = feed + 1)
      TakeLine(WideView(), chunk.substr(position, feed - position), state);
    KeepTail(false, chunk.substr(position));
  } catch (const CMemoryException&) {
    return Failed(state);
  } catch (const std::bad_alloc&) {
    return Failed(state);
  }
  return 1;
}

// The rest of the chunk is lost and the leftover stays as it was; the
// receiver shows the failure until a sentence is recognised again.
int SentenceFramer::Failed(ReceiverState& state) {
  state.SetStatus(GPS_STATUS_PARSE_ERROR);
  state.SetSentencesSeen();
  try {
    Logger::Instance().Write(u"Parser error\n");
  } catch (const std::bad_alloc&) {  // the log may be short of memory too; the status tells
  }
  return 0;
}

void SentenceFramer::TakeLine(WideView head, WideView tail, ReceiverState& state) {
  const size_t length = head.size() + tail.size();
  if (lineCapacity_ < length + 1) {
    std::unique_ptr<char16_t[]> grown(new (std::nothrow) char16_t[length + 1]);
    if (!grown) throw CMemoryException();
    line_ = std::move(grown);
    lineCapacity_ = length + 1;
  }
  std::copy(head.begin(), head.end(), line_.get());
  std::copy(tail.begin(), tail.end(), line_.get() + head.size());
  line_[length] = u'\0';
  const WideView line(line_.get(), length);
  if (!Dispatch(line, state)) return;
  sentences_.Append(line);
  state.SetSentencesSeen();
  state.SetStatus(GPS_STATUS_RECEIVING);
}

void SentenceFramer::KeepTail(bool afterLeftover, WideView rest) {
  size_t kept = afterLeftover ? leftoverLength_ : 0;
  const size_t total = kept + rest.size();
  if (total > kMaxLeftover) {
    const size_t drop = total - kMaxLeftover;
    if (drop >= kept) {
      rest.remove_prefix(drop - kept);
      kept = 0;
    } else {
      std::copy(leftover_ + drop, leftover_ + kept, leftover_);
      kept -= drop;
    }
  }
  std::copy(rest.begin(), rest.end(), leftover_ + kept);
  leftoverLength_ = kept + rest.size();
  leftover_[leftoverLength_] = u'\0';
}

}  // namespace kavo::nmea
