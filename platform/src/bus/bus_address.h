/// The files of a listening service in the bus directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace nv {

/// Address 100 is the socket `100.sock` of the directory, and a symbolic link with the service's
/// name leads there. `100.lock` and `<name>.lock` are held locked by the process that has them, so
/// that what a killed one left behind is told from what is in use. Socket and link go with this
/// object, the lock files stay.
class BusAddress {
 public:
  BusAddress(std::filesystem::path directory, unsigned socketMode)
      : directory_(std::move(directory)), socketMode_(socketMode) {}
  ~BusAddress();
  BusAddress(const BusAddress&) = delete;
  BusAddress& operator=(const BusAddress&) = delete;

  /// Takes address and name and binds a socket; empty, or a line that says why not.
  std::string take(std::uint32_t address, const std::string& name);
  /// The bound socket, on which nobody listens yet; the caller owns it. -1 before `take`.
  int socket() const { return socket_; }
  /// Makes the link, now that there is somebody to be found; empty, or a line that says why not.
  std::string publish();

 private:
  std::string lock(const std::string& file, const std::string& what);
  std::string bindSocket();

  std::filesystem::path directory_;
  unsigned socketMode_;
  std::vector<int> locks_;
  std::string name_;
  int socket_ = -1;
  std::filesystem::path ownSocket_, ownLink_;  // empty until they are made
};

}  // namespace nv
