// The server's clients, and what it counts of them. Every handler and feed
// call holds the registry's one lock while it touches a client; the counts
// are read without it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace kavo::serve {

class Client;

class ClientRegistry {
 public:
  std::unique_lock<std::mutex> Lock() { return std::unique_lock<std::mutex>(mutex_); }

  // With the lock held.
  void Add(std::shared_ptr<Client> client);
  void Forget(Client* client);  // may drop the client's last owner
  // Owners of every client, so that one may forget itself while the
  // caller goes through them.
  std::vector<std::shared_ptr<Client>> All() const;

  // Counts a client in or out of those reading raw sentences; `*counted`
  // is whether it is counted now.
  void CountNmeaWatcher(bool* counted, bool watching);
  void CountDropped(uint64_t lines) { dropped_ += lines; }

  size_t Count() const { return count_; }
  bool AnyNmeaWatcher() const { return nmeaWatchers_ > 0; }
  uint64_t Dropped() const { return dropped_; }

 private:
  std::mutex mutex_;
  std::unordered_map<Client*, std::shared_ptr<Client>> clients_;
  std::atomic<size_t> count_{0};
  std::atomic<size_t> nmeaWatchers_{0};
  std::atomic<uint64_t> dropped_{0};
};

}  // namespace kavo::serve
