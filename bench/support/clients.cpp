#include "bench/support/clients.h"

#include <cstdlib>

#include <unistd.h>

#include "platform/errors.h"
#include "platform/keys.h"

namespace bench {

std::filesystem::path benchDirectory() {
  const char* given = std::getenv("CONFKIT_BENCH_DIR");
  return std::filesystem::absolute(given ? given : ".");
}

void connect(RawClient& client, const std::filesystem::path& socket) {
  while (!client.connect(socket)) usleep(1000);
}

void ask(RawClient& client, const std::vector<unsigned char>& request) {
  client.sendBytes(request);
  if (!client.receive()) std::abort();
}

double inFlight(std::deque<RawClient>& clients, unsigned each, unsigned count,
                const std::function<nv::message(unsigned)>& request) {
  const auto start = Clock::now();
  unsigned sent = 0;
  const auto send = [&](RawClient& client, std::uint32_t tag) {
    client.send(request(sent++).insert(nv::key::tag, tag));
  };
  for (std::uint32_t tag = 1; tag <= each; ++tag)
    for (auto& client : clients) send(client, tag);
  for (unsigned answered = 0; answered < count; ++answered) {
    auto& client = clients[answered % clients.size()];
    const auto reply = client.receive();
    if (!reply || nv::isError(*reply)) std::abort();
    if (sent < count) send(client, reply->get(nv::key::tag));
  }
  return Micros(Clock::now() - start).count() / count;
}

}  // namespace bench
