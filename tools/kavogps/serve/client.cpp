#include "serve/client.h"

#include <system_error>

#include <asio/write.hpp>

namespace kavo::serve {

using asio::ip::tcp;

Client::Client(tcp::socket socket, ClientRegistry& registry, ClientLimits limits, std::function<ServerState()> state)
    : socket_(std::move(socket)),
      registry_(registry),
      limits_(limits),
      state_(std::move(state)),
      requests_(limits.maxRequestLength),
      queue_(limits.queueBytes) {}

void Client::Start() {
  std::error_code ignored;
  socket_.set_option(tcp::no_delay(true), ignored);
  socket_.non_blocking(true, ignored);  // a write takes what fits and never waits
  Send(VersionJson());
  Read();
}

void Client::Deliver(bool json, const std::string& device, const OutLine& line) {
  if ((json ? protocol_.WantsJson() : protocol_.WantsNmea()) && protocol_.Watches(device)) Queue(line);
}

void Client::Close() {
  if (!open_) return;
  open_ = false;
  registry_.CountNmeaWatcher(&nmeaCounted_, false);
  std::error_code ignored;
  socket_.shutdown(tcp::socket::shutdown_both, ignored);
  socket_.close(ignored);
  registry_.Forget(this);  // may drop the last owner: nothing after this
}

void Client::Send(const std::string& json) { Queue(std::make_shared<const std::string>(json + "\r\n")); }

void Client::Queue(const OutLine& line) {
  const uint64_t dropped = queue_.Dropped();
  queue_.Push(line);
  registry_.CountDropped(queue_.Dropped() - dropped);
  Write();
}

void Client::Read() {
  socket_.async_read_some(asio::buffer(buffer_), [self = shared_from_this()](std::error_code error, size_t size) {
    const auto lock = self->registry_.Lock();
    if (error) return self->Close();
    self->OnRequests(size);
  });
}

void Client::OnRequests(size_t size) {
  std::vector<RequestLines::Line> lines;
  requests_.Add(buffer_.data(), size, &lines);
  for (const RequestLines::Line& line : lines) {
    if (line.tooLong) {
      Send(ErrorJson("Request line too long: at most " + std::to_string(limits_.maxRequestLength) + " characters"));
      continue;
    }
    const std::vector<std::string> answers = protocol_.Answer(line.text, state_());
    // Counted before the answer goes: a client told it watches sentences
    // gets the next one.
    registry_.CountNmeaWatcher(&nmeaCounted_, open_ && protocol_.WantsNmea());
    for (const std::string& answer : answers) Send(answer);
  }
  if (open_) Read();
}

// Sends what the socket takes at once; only the rest waits for the network
// thread, so a client that keeps up costs one send per report.
void Client::Write() {
  if (writing_ || !open_ || queue_.Empty()) return;
  queue_.TakeAll(&inFlight_);
  buffers_.clear();
  for (const OutLine& line : inFlight_) buffers_.push_back(asio::buffer(*line));
  std::error_code error;
  size_t sent = socket_.write_some(buffers_, error);
  if (error && error != asio::error::would_block) return Close();
  size_t done = 0;  // lines sent whole
  while (done < buffers_.size() && sent >= buffers_[done].size()) sent -= buffers_[done++].size();
  if (done == buffers_.size()) return inFlight_.clear();
  buffers_.erase(buffers_.begin(), buffers_.begin() + static_cast<std::ptrdiff_t>(done));
  buffers_.front() += sent;
  writing_ = true;
  asio::async_write(socket_, buffers_, [self = shared_from_this()](std::error_code error, size_t) {
    const auto lock = self->registry_.Lock();
    self->writing_ = false;
    self->inFlight_.clear();
    if (error) return self->Close();
    self->Write();
  });
}

}  // namespace kavo::serve
