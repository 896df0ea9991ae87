/// The bus of a device: Unix sockets in one directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <uv.h>

#include "platform/src/bus/bus_address.h"
#include "platform/src/loop/uv_loop.h"
#include "platform/transport.h"

namespace nv {

/// Listens at an address of the directory, and connects to others there.
class UnixTransport : public Transport {
 public:
  UnixTransport(UvLoop& loop, std::filesystem::path directory, unsigned socketMode);
  ~UnixTransport() override;

  void start(TransportEvents& events) override { events_ = &events; }
  std::string listen(std::uint32_t address, const std::string& name) override;
  Connected connect(std::uint32_t address) override;
  void send(std::uint32_t connection, std::span<const unsigned char> bytes) override;
  void flush() override;
  std::size_t queued(std::uint32_t connection) const override;
  void pauseReading(std::uint32_t connection, bool pause) override;
  void close(std::uint32_t connection) override;

 private:
  struct Socket;

  void acceptOne();
  std::uint32_t freeNumber();
  std::uint32_t add(std::unique_ptr<Socket> socket);
  void ended(Socket& socket);
  void write(Socket& socket);
  void readOn(Socket& socket);
  Socket* find(std::uint32_t connection) const;

  static void readBuffer(uv_handle_t* handle, std::size_t suggested, uv_buf_t* buffer);
  static void onRead(uv_stream_t* stream, ssize_t size, const uv_buf_t* buffer);
  static void onWritten(uv_write_t* request, int status);
  static void release(Socket* socket);

  UvLoop& loop_;
  std::filesystem::path directory_;
  BusAddress own_;
  TransportEvents* events_ = nullptr;
  uv_pipe_t* listener_ = nullptr;
  std::unordered_map<std::uint32_t, Socket*> sockets_;  // freed by their close callbacks
  std::vector<std::uint32_t> unflushed_;
  std::vector<char> readBuffer_;
  std::uint32_t nextConnection_ = kFirstConnection - 1;  // the last one given
};

}  // namespace nv
