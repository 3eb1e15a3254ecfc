#include "nmea/sentence_framer.h"

#include <algorithm>
#include <new>

#include "log/logger.h"
#include "nmea/checksum.h"
#include "nmea/sentence_parsers.h"
#include "nmea/unit_search.h"
#include "support/error.h"

namespace kavo::nmea {
namespace {

using Parser = void (*)(WideView, ReceiverState&);

// The three characters after "$" and the talker.
Parser FindParserOfType(const char16_t* type) {
  const char16_t a = type[0], b = type[1], c = type[2];
  if (a == u'G') {
    if (b == u'G' && c == u'A') return ParseGga;
    if (b == u'S' && c == u'V') return ParseGsv;
    if (b == u'S' && c == u'A') return ParseGsa;
  } else if (a == u'R') {
    if (b == u'M' && c == u'C') return ParseRmc;
  } else if (a == u'V') {
    if (b == u'T' && c == u'G') return ParseVtg;
  }
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

SentenceFramer::SentenceFramer(const ReceiverOptions& options)
    : options_(options),
      mixed_(options.ReadsMixedStreams()),
      sky_(options.MergesConstellations() ? new SkyMerger : nullptr) {
  sentences_.Reserve(kChunkHint);
  // Lines that span two chunks are common on a live port; room for one of
  // usual length is made here, so that the reading thread allocates nothing.
  GrowLineBuffer(kLineHint);
  leftover_[0] = u'\0';
}

int SentenceFramer::Dispatch(WideView line, ReceiverState& state) {
  if (line.size() < 6 || line[0] != u'$' || !options_.Accepts(line[1], line[2])) return 0;
  const Parser parse = FindParserOfType(line.data() + 3);
  if (!parse) return 0;
  if (options_.Checksums() != ChecksumMode::kIgnore) {
    const ChecksumState checksum = CheckChecksum(line);
    if (checksum == ChecksumState::kWrong ||
        (checksum == ChecksumState::kMissing && options_.Checksums() == ChecksumMode::kRequire)) {
      Logger::Instance().Format(checksum == ChecksumState::kWrong ? u"Wrong checksum: %s\n" : u"Missing checksum: %s\n",
                                Terminated(line));
      return 0;
    }
  }
  if (!options_.MergesConstellations()) return RunParser(parse, line, state);
  // Several talkers: their satellites go to one table, and every GSA tells
  // which of them the solution uses.
  if (parse == ParseGsv) return sky_->AddGsv(line, state), 1;
  if (parse == ParseGsa) sky_->AddGsa(line);
  return RunParser(parse, line, state);
}

int SentenceFramer::Process(WideView chunk, ReceiverState& state) {
  const ChunkScope scope(state);
  sentences_.Clear();
  try {
    const char16_t* position = chunk.data();
    const char16_t* const end = position + chunk.size();
    if (leftoverLength_ > 0) {
      const char16_t* feed = FindUnit(position, end, u'\n');
      if (feed == end) {
        KeepTail(true, chunk);
        return 1;
      }
      TakeLine(Leftover(), WideView(position, static_cast<size_t>(feed - position)), state);
      position = feed + 1;
    }
    for (const char16_t* feed; (feed = FindUnit(position, end, u'\n')) != end; position = feed + 1)
      TakeLine(WideView(), WideView(position, static_cast<size_t>(feed - position)), state);
    KeepTail(false, WideView(position, static_cast<size_t>(end - position)));
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

// A line that lies whole in the chunk is read where it lies; one that began
// in the previous chunk is put together in the line buffer.
void SentenceFramer::TakeLine(WideView head, WideView tail, ReceiverState& state) {
  WideView line = head.empty() ? tail : Joined(head, tail);
  if (mixed_) line = FromLastDollar(line);
  if (!Dispatch(line, state)) return;
  sentences_.Append(line);
  state.SetSentencesSeen();
  state.SetStatus(GPS_STATUS_RECEIVING);
}

// Binary messages between sentences leave bytes before a sentence on its
// line, "$" among them maybe: the sentence is what follows the last "$".
WideView SentenceFramer::FromLastDollar(WideView line) {
  const char16_t* const end = line.data() + line.size();
  const char16_t* last = FindLastUnit(line.data(), end, u'$');
  return last ? WideView(last, static_cast<size_t>(end - last)) : line;
}

WideView SentenceFramer::Joined(WideView head, WideView tail) {
  const size_t length = head.size() + tail.size();
  GrowLineBuffer(length + 1);
  std::copy(head.begin(), head.end(), line_.get());
  std::copy(tail.begin(), tail.end(), line_.get() + head.size());
  line_[length] = u'\0';
  return WideView(line_.get(), length);
}

const char16_t* SentenceFramer::Terminated(WideView line) {
  if (line.data() == line_.get()) return line_.get();  // joined, and terminated already
  GrowLineBuffer(line.size() + 1);
  std::copy(line.begin(), line.end(), line_.get());
  line_[line.size()] = u'\0';
  return line_.get();
}

void SentenceFramer::GrowLineBuffer(size_t capacity) {
  if (lineCapacity_ >= capacity) return;
  std::unique_ptr<char16_t[]> grown(new (std::nothrow) char16_t[capacity]);
  if (!grown) throw CMemoryException();
  line_ = std::move(grown);
  lineCapacity_ = capacity;
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
