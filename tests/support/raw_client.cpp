#include "tests/support/raw_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/keys.h"

namespace nv::testkit {

namespace {
constexpr std::size_t kHeaderBytes = 4;
constexpr timeval kPatience{30, 0};
}  // namespace

std::vector<unsigned char> frameOf(const message& msg) {
  const auto body = msg.bytes();
  std::vector<unsigned char> frame(kHeaderBytes + body.size());
  for (std::size_t i = 0; i < kHeaderBytes; ++i)
    frame[i] = static_cast<unsigned char>(body.size() >> (8 * i));
  std::copy(body.begin(), body.end(), frame.begin() + kHeaderBytes);
  return frame;
}

bool RawClient::connect(const std::filesystem::path& socketPath) {
  close();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socketPath.native().size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, socketPath.c_str(), socketPath.native().size());
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return false;
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) close();
  return connected();
}

void RawClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  ended_ = false;
  unread_.clear();
  readTo_ = 0;
}

bool RawClient::send(const message& msg) { return sendBytes(frameOf(msg)); }

bool RawClient::sendBytes(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const auto sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

bool RawClient::readBytes(unsigned char* to, std::size_t size) {
  while (unread_.size() - readTo_ < size) {
    unsigned char buffer[65536];
    const auto got = ::recv(fd_, buffer, sizeof buffer, 0);
    if (got < 0 && errno == EINTR) continue;  // stopped and continued
    if (got <= 0) {
      ended_ = got == 0 || errno == ECONNRESET;
      return false;
    }
    unread_.erase(unread_.begin(), unread_.begin() + static_cast<std::ptrdiff_t>(readTo_));
    readTo_ = 0;
    unread_.insert(unread_.end(), buffer, buffer + got);
  }
  std::copy_n(unread_.begin() + static_cast<std::ptrdiff_t>(readTo_), size, to);
  readTo_ += size;
  return true;
}

std::optional<message> RawClient::receive() {
  unsigned char header[kHeaderBytes];
  if (!readBytes(header, sizeof header)) return std::nullopt;
  const auto length = header[0] | std::size_t{header[1]} << 8 | std::size_t{header[2]} << 16 |
                      std::size_t{header[3]} << 24;
  std::vector<unsigned char> body(length);
  if (!readBytes(body.data(), length)) return std::nullopt;
  return message::parse(body);
}

void RawClient::finish() { shutdown(fd_, SHUT_WR); }

bool RawClient::isCut() {
  while (receive()) {
  }
  return ended_;
}

message RawClient::ask(message request) {
  const auto tag = ++lastTag_;
  request.insert(key::tag, tag);
  if (!send(request)) return {};
  auto msg = receive();
  while (msg && msg->get(key::tag) != tag) msg = receive();
  return msg.value_or(message());
}

}  // namespace nv::testkit
