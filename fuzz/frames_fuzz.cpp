// Any bytes as the stream of a connection: at worst that connection is cut. The other client is
// served, and what the process holds is sound and what the next one starts with.
#include <algorithm>

#include "fuzz/text_process.h"

namespace {

using namespace nv;

message command(unsigned code) {
  return message{{key::command, code}, {key::tag, 1}}.insert(key::route, {fuzz::kAddress});
}

void feed(testkit::Kit& kit, testkit::BusPeer& peer, byte_view bytes) {
  const std::size_t piece = bytes.empty() ? 1 : 1 + bytes.back();
  while (!bytes.empty()) {
    const auto now = bytes.first(std::min(piece, bytes.size()));
    peer.sendBytes({now.begin(), now.end()});
    kit.settle();
    bytes = bytes.subspan(now.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  testkit::MemoryStores stores;
  std::map<std::uint32_t, std::string> texts;
  {
    fuzz::TextProcess process(stores);
    const auto subscriber = process.kit.connect();
    subscriber->send(command(cmd::subscribe));
    process.kit.settle();
    const auto rude = process.kit.connect();
    feed(process.kit, *rude, {data, size});
    fuzz::require(!subscriber->cut());
    subscriber->received();
    subscriber->send(command(cmd::get));
    process.kit.settle();
    const auto reply = subscriber->received();
    fuzz::require(reply.size() == 1 && reply[0].has(testkit::kRequest));
    process.verify();
    texts = process.contents();
  }
  fuzz::requireSameAfterRestart(stores, texts);
  return 0;
}
