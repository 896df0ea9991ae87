#include "testing/kit.h"

#include <algorithm>
#include <utility>

#include "platform/keys.h"
#include "testing/in_process_transport.h"
#include "testing/prompt_engine.h"
#include "testing/virtual_loop.h"

namespace nv::testkit {

namespace {
constexpr std::size_t kHeaderBytes = 4;

std::vector<unsigned char> frameOf(std::span<const unsigned char> bytes) {
  std::vector<unsigned char> frame(kHeaderBytes + bytes.size());
  for (unsigned i = 0; i < kHeaderBytes; ++i)
    frame[i] = static_cast<unsigned char>(bytes.size() >> (8 * i));
  std::copy(bytes.begin(), bytes.end(), frame.begin() + kHeaderBytes);
  return frame;
}

std::size_t frameLength(const std::vector<unsigned char>& bytes) {
  return bytes[0] | std::size_t{bytes[1]} << 8 | std::size_t{bytes[2]} << 16 |
         std::size_t{bytes[3]} << 24;
}
}  // namespace

void BusPeer::send(const message& msg) { sendBytes(frameOf(msg.bytes())); }

void BusPeer::sendBytes(const std::vector<unsigned char>& bytes) {
  transport_->write(connection_, bytes);
}

std::vector<message> BusPeer::received() {
  const auto bytes = transport_->read(connection_);
  partial_.insert(partial_.end(), bytes.begin(), bytes.end());
  std::vector<message> messages;
  while (partial_.size() >= kHeaderBytes &&
         partial_.size() - kHeaderBytes >= frameLength(partial_)) {
    const auto length = frameLength(partial_);
    messages.push_back(
        message::parse(std::span(partial_).subspan(kHeaderBytes, length)).value_or(message()));
    partial_.erase(partial_.begin(),
                   partial_.begin() + static_cast<std::ptrdiff_t>(kHeaderBytes + length));
  }
  return messages;
}

void BusPeer::setReading(bool reading) { transport_->setReading(connection_, reading); }

bool BusPeer::cut() const { return transport_->isCut(connection_); }

void BusPeer::close() { transport_->closeFar(connection_); }

Kit::Kit() : Kit(std::make_unique<MemoryStores>()) {}

Kit::Kit(std::unique_ptr<MemoryStores> stores) : Kit(*stores) { ownStores_ = std::move(stores); }

Kit::Kit(MemoryStores& stores, Limits limits) : stores_(&stores) {
  auto engine = std::make_unique<MemoryEngine>(stores);
  engine_ = engine.get();
  assemble(std::move(engine), limits);
}

Kit::Kit(std::unique_ptr<StoreEngine> engine, Limits limits) {
  assemble(std::make_unique<PromptEngine>(std::move(engine)), limits);
}

void Kit::assemble(std::unique_ptr<StoreEngine> engine, Limits limits) {
  auto loop = std::make_unique<VirtualLoop>();
  auto transport = std::make_unique<InProcessTransport>();
  loop_ = loop.get();
  transport_ = transport.get();
  loop_->setEvents([transport = transport_] { transport->deliver(); });
  getLooper()->assemble({.loop = std::move(loop),
                         .transport = std::move(transport),
                         .stores = std::move(engine),
                         .limits = limits,
                         .exit = [this](int status) { exitStatus_ = status; }});
  setObserver(&recorder_);
}

Kit::~Kit() {
  setObserver(nullptr);
  getLooper()->assemble({});
}

message Kit::ask(Handler& handler, message cmd, const Requester& who) {
  cmd.insert(key::requester, who.route);
  if (who.rights) cmd.insert(key::rights, *who.rights);
  const auto before = recorder_.replies.size();
  getLooper()->deliver(handler, cmd);
  if (recorder_.replies.size() == before) return {};
  auto reply = recorder_.replies.back().reply;
  reply.remove(key::route);
  return reply;
}

void Kit::pass() { getLooper()->runOnce(false); }

void Kit::settle() {
  do pass();
  while (getLooper()->hasWork() || transport_->hasEvents());
}

void Kit::advance(std::uint64_t milliseconds) {
  const auto end = loop_->now() + milliseconds;
  settle();
  for (auto due = getLooper()->nextTimer(); due && *due <= end; due = getLooper()->nextTimer()) {
    if (*due > loop_->now()) loop_->setNow(*due);
    settle();
  }
  loop_->setNow(end);
}

void Kit::listen(std::uint32_t address) { getLooper()->listen(address, ""); }

std::unique_ptr<BusPeer> Kit::connect(const Peer& peer) {
  return std::unique_ptr<BusPeer>(new BusPeer(*transport_, transport_->connectFrom(peer)));
}

void Kit::serve(std::uint32_t address, bool listening) { transport_->serve(address, listening); }

void Kit::setBusy(std::uint32_t address, bool busy) { transport_->setBusy(address, busy); }

std::unique_ptr<BusPeer> Kit::acceptedPeer() {
  const auto connection = transport_->takeAccepted();
  if (connection == 0) return nullptr;
  return std::unique_ptr<BusPeer>(new BusPeer(*transport_, connection));
}

}  // namespace nv::testkit
