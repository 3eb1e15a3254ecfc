#include "serve/client_registry.h"

namespace kavo::serve {

void ClientRegistry::Add(std::shared_ptr<Client> client) {
  Client* const key = client.get();
  clients_.emplace(key, std::move(client));
  count_ = clients_.size();
}

void ClientRegistry::Forget(Client* client) {
  clients_.erase(client);
  count_ = clients_.size();
}

std::vector<std::shared_ptr<Client>> ClientRegistry::All() const {
  std::vector<std::shared_ptr<Client>> all;
  all.reserve(clients_.size());
  for (const auto& entry : clients_) all.push_back(entry.second);
  return all;
}

void ClientRegistry::CountNmeaWatcher(bool* counted, bool watching) {
  if (*counted == watching) return;
  *counted = watching;
  if (watching)
    ++nmeaWatchers_;
  else
    --nmeaWatchers_;
}

}  // namespace kavo::serve
