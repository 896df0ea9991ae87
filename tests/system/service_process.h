/// A real service in a process of its own, and the folder in which it lives.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

#include "platform/keys.h"
#include "platform/message.h"
#include "tests/support/temp_directory.h"

namespace nv::testkit {

inline constexpr std::uint32_t kAddress = 100;

/// A user who has some rights and is not the system.
struct User {
  std::uint32_t uid;
  std::uint32_t rights;
};
inline constexpr User kClerk{65533, 0x5};
inline constexpr User kNobody{65534, 0};

/// A command for the service.
message command(unsigned code, std::uint32_t id = kNoId);
message addText(std::uint32_t id, const std::string& text);
message setText(std::uint32_t id, const std::string& text);
unsigned errorCode(const message& reply);

/// A bus directory and a store file that go with this object. Other users can reach the bus.
class Place {
 public:
  Place() { std::filesystem::permissions(folder(), std::filesystem::perms(0755)); }

  const std::filesystem::path& folder() const { return folder_.path(); }
  std::filesystem::path bus() const { return folder() / "bus"; }
  std::filesystem::path storeFile() const { return folder() / "store.db"; }
  std::filesystem::path socket() const { return bus() / (std::to_string(kAddress) + ".sock"); }

 private:
  TempDirectory folder_;
};

/// Starts, signals and awaits the service. It does not outlive this object.
class ServiceProcess {
 public:
  /// `storeFile` empty: the place's.
  explicit ServiceProcess(const Place& place, std::filesystem::path storeFile = {});
  /// Another service in place of the test's: a program and its options but --bus and --store. It
  /// can be connected to when it says something on its standard output.
  ServiceProcess(const Place& place, std::filesystem::path storeFile,
                 std::vector<std::string> program);
  ~ServiceProcess();
  ServiceProcess(const ServiceProcess&) = delete;

  /// In which no file may grow beyond this many bytes; none: as long as there is space.
  void limitFiles(std::optional<rlim_t> bytes);
  /// From the next start on, instead of kAddress.
  void setAddress(std::uint32_t address) { address_ = address; }
  /// Starts it and waits until it can be connected to; false when it ended instead.
  bool start();
  /// Sends a signal and waits for the end, see `wait`.
  int end(int signal);
  /// Waits until it has ended: its exit status, or the negative number of the signal that killed
  /// it.
  int wait();

  pid_t pid() const { return pid_; }
  /// What all its lives have written to standard output and error.
  std::string said() const;

 private:
  [[noreturn]] void run(int readyFd) const;

  std::vector<std::string> commandLine(int readyFd) const;

  std::filesystem::path bus_, storeFile_, output_;
  std::vector<std::string> program_;
  std::uint32_t address_ = kAddress;
  std::optional<rlim_t> fileLimit_;
  pid_t pid_ = 0;
  int firstWords_ = -1;  // the reading end of the pipe that tells that it is ready
};

}  // namespace nv::testkit
