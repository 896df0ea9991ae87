#include "platform/src/bus/unix_transport.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/src/bus/unix_socket.h"

namespace nv {

namespace fs = std::filesystem;

namespace {
constexpr std::size_t kReadBytes = 65536;
constexpr int kBacklog = SOMAXCONN;

Peer peerOf(int fd) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return {};
  return {credentials.uid, credentials.gid, credentials.pid};
}

/// What errno says of a connect.
Transport::Connected notConnected(const fs::path& path) {
  switch (errno) {
    case ENOENT:
    case ECONNREFUSED: return {.error = "nobody listens there"};
    case EAGAIN: return {.busy = true};
    default: return {.error = because("cannot connect to", path)};
  }
}
}  // namespace

/// One connection. `out` gathers until `flush`; what the kernel does not take then is `writing`.
struct UnixTransport::Socket {
  uv_pipe_t pipe{};
  UnixTransport* owner;
  std::uint32_t number = 0;
  std::vector<unsigned char> out, writing;
  uv_write_t request{};
  bool unflushed = false;

  uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe); }
  uv_handle_t* handle() { return reinterpret_cast<uv_handle_t*>(&pipe); }
};

UnixTransport::UnixTransport(UvLoop& loop, fs::path directory, unsigned socketMode)
    : loop_(loop),
      directory_(std::move(directory)),
      own_(directory_, socketMode),
      readBuffer_(kReadBytes) {
  // Writing to a connection that has ended is an error to us, not a reason to die.
  std::signal(SIGPIPE, SIG_IGN);
}

UnixTransport::~UnixTransport() {
  UnixTransport::flush();
  for (const auto& [number, socket] : sockets_) release(socket);
  if (listener_) {
    uv_close(reinterpret_cast<uv_handle_t*>(listener_),
             [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
  }
}

std::string UnixTransport::listen(std::uint32_t address, const std::string& name) {
  if (auto error = own_.take(address, name); !error.empty()) return error;
  listener_ = new uv_pipe_t;
  uv_pipe_init(loop_.uv(), listener_, 0);
  uv_pipe_open(listener_, own_.socket());
  listener_->data = this;
  const auto accept = [](uv_stream_t* listener, int status) {
    if (status == 0) static_cast<UnixTransport*>(listener->data)->acceptOne();
  };
  const int error = uv_listen(reinterpret_cast<uv_stream_t*>(listener_), kBacklog, accept);
  if (error != 0)
    return "cannot listen on address " + std::to_string(address) + ": " + uv_strerror(error);
  return own_.publish();
}

void UnixTransport::acceptOne() {
  auto socket = std::make_unique<Socket>();
  uv_pipe_init(loop_.uv(), &socket->pipe, 0);
  if (uv_accept(reinterpret_cast<uv_stream_t*>(listener_), socket->stream()) != 0)
    return release(socket.release());
  uv_os_fd_t fd = -1;
  uv_fileno(socket->handle(), &fd);
  const auto peer = peerOf(fd);
  events_->accepted(add(std::move(socket)), peer);
}

Transport::Connected UnixTransport::connect(std::uint32_t address) {
  const auto path = directory_ / (std::to_string(address) + ".sock");
  sockaddr_un target;
  if (!unixAddress(path, target)) return {.error = "the path " + path.string() + " is too long"};
  const int fd = unixSocket();
  if (fd < 0) return {.error = because("cannot make a socket for", path)};
  // A Unix socket connects at once or not at all.
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
    auto failed = notConnected(path);
    ::close(fd);
    return failed;
  }
  auto socket = std::make_unique<Socket>();
  uv_pipe_init(loop_.uv(), &socket->pipe, 0);
  uv_pipe_open(&socket->pipe, fd);
  return {.connection = add(std::move(socket))};
}

std::uint32_t UnixTransport::freeNumber() {
  do {
    nextConnection_ =
        std::max(nextConnection_ + 1, kFirstConnection);  // begins anew after the last
  } while (sockets_.contains(nextConnection_));
  return nextConnection_;
}

std::uint32_t UnixTransport::add(std::unique_ptr<Socket> socket) {
  socket->owner = this;
  socket->pipe.data = socket.get();
  socket->number = freeNumber();
  uv_read_start(socket->stream(), readBuffer, onRead);
  sockets_.emplace(socket->number, socket.get());
  return socket.release()->number;
}

void UnixTransport::readBuffer(uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
  auto& bytes = static_cast<Socket*>(handle->data)->owner->readBuffer_;
  *buffer = uv_buf_init(bytes.data(), static_cast<unsigned>(bytes.size()));
}

void UnixTransport::onRead(uv_stream_t* stream, ssize_t size, const uv_buf_t* buffer) {
  auto& socket = *static_cast<Socket*>(stream->data);
  if (size < 0) return socket.owner->ended(socket);
  const auto* const bytes = reinterpret_cast<const unsigned char*>(buffer->base);
  if (size > 0)
    socket.owner->events_->received(socket.number, {bytes, static_cast<std::size_t>(size)});
}

void UnixTransport::send(std::uint32_t connection, std::span<const unsigned char> bytes) {
  auto* const socket = find(connection);
  if (!socket) return;
  socket->out.insert(socket->out.end(), bytes.begin(), bytes.end());
  if (!std::exchange(socket->unflushed, true)) unflushed_.push_back(connection);
}

void UnixTransport::flush() {
  for (const auto connection : std::exchange(unflushed_, {})) {
    auto* const socket = find(connection);
    if (!socket) continue;
    socket->unflushed = false;
    if (socket->writing.empty()) write(*socket);
  }
}

/// Hands `out` to the kernel; what it does not take is written when it can.
void UnixTransport::write(Socket& socket) {
  auto& out = socket.out;
  if (out.empty()) return;
  auto buffer = uv_buf_init(reinterpret_cast<char*>(out.data()), static_cast<unsigned>(out.size()));
  const int taken = uv_try_write(socket.stream(), &buffer, 1);
  if (taken == static_cast<int>(out.size())) return out.clear();
  if (taken < 0 && taken != UV_EAGAIN) return readOn(socket);

  if (taken > 0) out.erase(out.begin(), out.begin() + taken);
  socket.writing.swap(out);
  buffer = uv_buf_init(reinterpret_cast<char*>(socket.writing.data()),
                       static_cast<unsigned>(socket.writing.size()));
  socket.request.data = &socket;
  if (uv_write(&socket.request, socket.stream(), &buffer, 1, onWritten) != 0) readOn(socket);
}

void UnixTransport::onWritten(uv_write_t* request, int status) {
  auto& socket = *static_cast<Socket*>(request->data);
  socket.writing.clear();
  if (!socket.owner) return;
  if (status < 0) return socket.owner->readOn(socket);
  if (!socket.out.empty()) return socket.owner->write(socket);
  socket.owner->events_->drained(socket.number);
}

/// Nothing more can be written. Reading tells of it, also when it was paused.
void UnixTransport::readOn(Socket& socket) {
  socket.out.clear();
  // A frame may be half written: both ends must see the end.
  uv_os_fd_t fd = -1;
  if (uv_fileno(socket.handle(), &fd) == 0) ::shutdown(fd, SHUT_RDWR);
  uv_read_start(socket.stream(), readBuffer, onRead);
}

std::size_t UnixTransport::queued(std::uint32_t connection) const {
  auto* const socket = find(connection);
  if (!socket) return 0;
  return socket->out.size() + uv_stream_get_write_queue_size(socket->stream());
}

void UnixTransport::pauseReading(std::uint32_t connection, bool pause) {
  auto* const socket = find(connection);
  if (!socket) return;
  if (pause)
    uv_read_stop(socket->stream());
  else
    uv_read_start(socket->stream(), readBuffer, onRead);
}

void UnixTransport::close(std::uint32_t connection) {
  const auto socket = sockets_.extract(connection);
  if (!socket) return;
  if (socket.mapped()->writing.empty()) write(*socket.mapped());
  release(socket.mapped());
}

void UnixTransport::ended(Socket& socket) {
  const auto number = socket.number;
  sockets_.erase(number);
  release(&socket);
  events_->closed(number);
}

UnixTransport::Socket* UnixTransport::find(std::uint32_t connection) const {
  const auto found = sockets_.find(connection);
  return found == sockets_.end() ? nullptr : found->second;
}

/// libuv frees the socket when it has let go of it, which may be after this object is gone.
void UnixTransport::release(Socket* socket) {
  socket->owner = nullptr;
  socket->pipe.data = socket;
  uv_close(socket->handle(),
           [](uv_handle_t* handle) { delete static_cast<Socket*>(handle->data); });
}

}  // namespace nv
