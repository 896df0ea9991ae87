/// A client of the bus in its barest form: a blocking socket and frames.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "platform/message.h"

namespace nv::testkit {

/// Knows nothing of the library but its messages, so it can say anything to a service, and any
/// number of them can be in one process. A service that is silent for half a minute counts as gone.
class RawClient {
 public:
  RawClient() = default;
  explicit RawClient(const std::filesystem::path& socket) { connect(socket); }
  ~RawClient() { close(); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// False when nobody listens there.
  bool connect(const std::filesystem::path& socket);
  bool connected() const { return fd_ >= 0; }
  void close();

  /// Sends a frame that holds `msg`, or any bytes at all; false when the connection has ended.
  bool send(const message& msg);
  bool sendBytes(std::span<const unsigned char> bytes);
  /// The next frame, waiting for it; none when the connection has ended.
  std::optional<message> receive();
  /// Ends the sending side: the service sees the end of the stream.
  void finish();
  /// Waits until the service has ended the connection, whatever it says before; false when it does
  /// not.
  bool isCut();

  /// Sends a request under a tag of its own and waits for its reply, passing over what comes before
  /// it; an empty message when the connection ends first.
  message ask(message request);

 private:
  bool readBytes(unsigned char* to, std::size_t size);

  int fd_ = -1;
  bool ended_ = false;  // by the service
  std::uint32_t lastTag_ = 0x10000;
  std::vector<unsigned char> unread_;
  std::size_t readTo_ = 0;  // of `unread_`
};

/// The bytes of a frame that holds `msg`.
std::vector<unsigned char> frameOf(const message& msg);

}  // namespace nv::testkit
