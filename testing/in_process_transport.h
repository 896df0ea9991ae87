/// A bus inside one process: the far ends of its connections are in the hands of a test.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/transport.h"

namespace nv::testkit {

/// Bytes travel when the loop waits (`deliver`) or sends (`flush`); what a far end does not read
/// stays queued.
class InProcessTransport : public Transport {
 public:
  void start(TransportEvents& events) override { events_ = &events; }
  std::string listen(std::uint32_t address, const std::string& name) override;
  Connected connect(std::uint32_t address) override;
  void send(std::uint32_t connection, std::span<const unsigned char> bytes) override;
  void flush() override;
  std::size_t queued(std::uint32_t connection) const override;
  void pauseReading(std::uint32_t connection, bool pause) override;
  void close(std::uint32_t connection) override;

  // The far ends.
  std::uint32_t connectFrom(const Peer& peer);
  /// Somebody listens at `address`; who connects there is in `takeAccepted`.
  void serve(std::uint32_t address, bool listening = true);
  /// Who is busy takes no connection for the moment.
  void setBusy(std::uint32_t address, bool busy);
  /// The oldest connection of the process to a served address, 0 when there is none.
  std::uint32_t takeAccepted();
  void write(std::uint32_t connection, const std::vector<unsigned char>& bytes);
  std::vector<unsigned char> read(std::uint32_t connection);
  void setReading(std::uint32_t connection, bool reading);
  bool isCut(std::uint32_t connection) const;
  void closeFar(std::uint32_t connection);

  /// Tells the process what the far ends have done.
  void deliver();
  /// Whether `deliver` has something to tell.
  bool hasEvents() const;

 private:
  struct Line {
    Peer peer;
    bool announced = false;               // the process knows of it
    std::vector<unsigned char> incoming;  // written, not delivered
    std::vector<unsigned char> outgoing;  // sent, not taken by the far end
    std::vector<unsigned char> arrived;   // taken, not read by the test
    bool reading = true;
    bool paused = false;
    bool cut = false;        // by the process
    bool farClosed = false;  // by the test
    bool wasFull = false;    // something stayed queued since the last drained()
  };

  static void flushOne(Line& line);
  Line& line(std::uint32_t connection) { return lines_.at(connection); }
  void deliverTo(std::uint32_t connection);

  TransportEvents* events_ = nullptr;
  std::map<std::uint32_t, Line> lines_;
  std::set<std::uint32_t> served_, busy_;
  std::deque<std::uint32_t> accepted_;
  std::uint32_t nextConnection_ = kFirstConnection;
};

}  // namespace nv::testkit
