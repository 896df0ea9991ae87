#include "testing/in_process_transport.h"

#include <utility>

namespace nv::testkit {

std::string InProcessTransport::listen(std::uint32_t, const std::string&) { return {}; }

Transport::Connected InProcessTransport::connect(std::uint32_t address) {
  if (!served_.contains(address)) return {.error = "nobody listens there"};
  if (busy_.contains(address)) return {.busy = true};
  const auto connection = nextConnection_++;
  lines_[connection].announced = true;
  accepted_.push_back(connection);
  return {.connection = connection};
}

void InProcessTransport::send(std::uint32_t connection, std::span<const unsigned char> bytes) {
  auto& outgoing = line(connection).outgoing;
  outgoing.insert(outgoing.end(), bytes.begin(), bytes.end());
}

void InProcessTransport::flush() {
  for (auto& [connection, line] : lines_) flushOne(line);
}

void InProcessTransport::flushOne(Line& line) {
  if (!line.reading) {
    line.wasFull = line.wasFull || !line.outgoing.empty();
    return;
  }
  line.arrived.insert(line.arrived.end(), line.outgoing.begin(), line.outgoing.end());
  line.outgoing.clear();
}

std::size_t InProcessTransport::queued(std::uint32_t connection) const {
  const auto found = lines_.find(connection);
  return found == lines_.end() ? 0 : found->second.outgoing.size();
}

void InProcessTransport::pauseReading(std::uint32_t connection, bool pause) {
  line(connection).paused = pause;
}

void InProcessTransport::close(std::uint32_t connection) {
  auto& closed = line(connection);
  flushOne(closed);
  closed.cut = true;
}

std::uint32_t InProcessTransport::connectFrom(const Peer& peer) {
  const auto connection = nextConnection_++;
  lines_[connection].peer = peer;
  return connection;
}

void InProcessTransport::serve(std::uint32_t address, bool listening) {
  if (listening)
    served_.insert(address);
  else
    served_.erase(address);
}

void InProcessTransport::setBusy(std::uint32_t address, bool busy) {
  if (busy)
    busy_.insert(address);
  else
    busy_.erase(address);
}

std::uint32_t InProcessTransport::takeAccepted() {
  if (accepted_.empty()) return 0;
  const auto connection = accepted_.front();
  accepted_.pop_front();
  return connection;
}

void InProcessTransport::write(std::uint32_t connection, const std::vector<unsigned char>& bytes) {
  auto& incoming = line(connection).incoming;
  incoming.insert(incoming.end(), bytes.begin(), bytes.end());
}

std::vector<unsigned char> InProcessTransport::read(std::uint32_t connection) {
  return std::exchange(line(connection).arrived, {});
}

void InProcessTransport::setReading(std::uint32_t connection, bool reading) {
  line(connection).reading = reading;
  flush();
}

bool InProcessTransport::isCut(std::uint32_t connection) const { return lines_.at(connection).cut; }

void InProcessTransport::closeFar(std::uint32_t connection) { line(connection).farClosed = true; }

void InProcessTransport::deliver() {
  std::vector<std::uint32_t> connections;
  for (const auto& [connection, line] : lines_) connections.push_back(connection);
  for (const auto connection : connections) deliverTo(connection);
}

void InProcessTransport::deliverTo(std::uint32_t connection) {
  auto& line = lines_.at(connection);
  if (!std::exchange(line.announced, true)) events_->accepted(connection, line.peer);
  if (!line.cut && !line.paused && !line.incoming.empty())
    events_->received(connection, std::exchange(line.incoming, {}));
  if (!line.cut && line.reading && std::exchange(line.wasFull, false)) events_->drained(connection);
  if (!line.cut && line.farClosed) {
    line.cut = true;
    events_->closed(connection);
  }
}

bool InProcessTransport::hasEvents() const {
  for (const auto& [connection, line] : lines_) {
    if (line.cut) continue;
    if (!line.announced || line.farClosed || (!line.paused && !line.incoming.empty()) ||
        (line.reading && line.wasFull))
      return true;
  }
  return false;
}

}  // namespace nv::testkit
