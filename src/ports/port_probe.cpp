#include "ports/port_probe.h"

#include <algorithm>
#include <iterator>

#include "log/logger.h"
#include "sources/serial_connection.h"

namespace kavo {

SharedEvent::SharedEvent() : event_(platform::Event::Create(true, false)) {
  if (!event_) Raise(nullptr);
}

PortProbe::PortProbe(const COMPortInfo& port, Ref<SharedEvent> dataFound, const nmea::ReceiverOptions& options)
    : record_(port.Name, COMPortInfo::kDefaultBaudRate, 0, 8, 0), dataFound_(std::move(dataFound)), options_(options) {}

platform::Thread& PortProbe::StartThread() {
  AddRef();
  thread_ = platform::Thread::Start(&ThreadProcedure, this);
  if (!thread_) {
    Release();
    Raise(nullptr);
  }
  return *thread_;
}

uint32_t PortProbe::ThreadProcedure(void* self) {
  auto* probe = static_cast<PortProbe*>(self);
  probe->Run();
  probe->Release();
  return 0;
}

void PortProbe::Run() {
  // A port that cannot be opened or read ends its probe; nothing leaves the
  // thread, and the found flag stays clear.
  const auto probe = [this] {
    int result = ProbeAt(kFirstBaudRate);
    // Silence at 4800 ends the probe: only a port that talks is worth
    // hearing at other speeds.
    if (result == kNotNmea) result = ProbeAt(kSecondBaudRate);
    if (result == kNotNmea) result = ProbeAt(kThirdBaudRate);
    if (result == kNmea) {
      found_ = 1;
      dataFound_->Get().Set();
    }
  };
  if (!CatchInto(nullptr, probe)) found_ = 0;
}

int PortProbe::ProbeAt(uint32_t baudRate) {
  record_.BaudRate = baudRate;
  Ref<SerialConnection> connection(new SerialConnection);
  CheckOrRaise(connection->Open(record_, &error_), &error_);

  int result = kSilent;
  char16_t text[kReadCapacity];
  for (uint32_t attempt = 0; attempt < kAttempts; ++attempt) {
    Logger::Instance().Format(u"Reading from port: %s\n", record_.Name);
    uint32_t count = 0;
    // The count is of bytes; under a multibyte code page they make fewer
    // characters, so the text is what precedes the terminator, and a
    // cleared buffer keeps the units past the converted ones defined.
    std::fill(std::begin(text), std::end(text), u'\0');
    CheckOrRaise(connection->Read(text, kReadCapacity, &count, &error_), &error_);
    if (count > 0) {
      // A receiver that mixes binary messages into its NMEA sends NULs:
      // once the options read such receivers, the text is all that came.
      const size_t length =
          options_.ReadsMixedStreams() ? std::min<size_t>(count, kReadCapacity - 1) : WideLength(text);
      const WideView read(text, length);
      Logger::Instance().Format(u"Data from port: %s\n", text);
      if (options_.HasAcceptedTalker(read)) return kNmea;  // "$GP" by default
      result = kNotNmea;
    }
    platform::Sleep(kPauseMs);
  }
  return result;
}

}  // namespace kavo
