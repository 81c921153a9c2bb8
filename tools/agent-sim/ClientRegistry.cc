#include "ClientRegistry.h"

#include <algorithm>
#include <cstdio>

namespace oxa_sim {

namespace {

std::string clientAddress(unsigned number) {
  char text[18];
  std::snprintf(text, sizeof(text), "02:00:00:00:%02X:%02X", (number >> 8U) & 0xFFU,
                number & 0xFFU);
  return text;
}

}  // namespace

Client &ClientRegistry::add(const std::string &sender, const std::string &instance,
                            const std::function<bool(const std::string &)> &taken) {
  auto client = std::make_unique<Client>();
  client->instance = instance;
  client->sender = sender;
  do {
    client->address = clientAddress(++connections_);
  } while ((connections_ & 0xFFFFU) == 0 || taken(client->address));
  clients_.push_back(std::move(client));
  return *clients_.back();
}

void ClientRegistry::remove(const std::string &instance) {
  clients_.erase(std::remove_if(clients_.begin(), clients_.end(),
                                [&](const auto &c) { return c->instance == instance; }),
                 clients_.end());
}

Client *ClientRegistry::find(const std::string &instance) {
  auto it = std::find_if(clients_.begin(), clients_.end(),
                         [&](const auto &c) { return c->instance == instance; });
  return it == clients_.end() ? nullptr : it->get();
}

Client *ClientRegistry::findByAddress(const std::string &address) {
  auto it = std::find_if(clients_.begin(), clients_.end(),
                         [&](const auto &c) { return c->address == address; });
  return it == clients_.end() ? nullptr : it->get();
}

std::vector<Client *> ClientRegistry::all() {
  std::vector<Client *> result;
  result.reserve(clients_.size());
  for (const auto &client : clients_) {
    result.push_back(client.get());
  }
  return result;
}

}  // namespace oxa_sim
