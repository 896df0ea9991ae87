/// The subcommand that tells of changes as they come.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "platform/post.h"
#include "platform/timer.h"
#include "tools/confctl/read_commands.h"

namespace confctl {

struct WatchOptions {
  std::uint32_t flags = 5;
  std::optional<std::uint32_t> changes = {};       ///< end after so many
  std::optional<std::uint32_t> milliseconds = {};  ///< end after this time
  std::vector<std::string> where = {};  ///< fields, see fields.h: only objects with these
};

/// Prints every object ("initial"), "ready", and then each change: "added", "changed", "removed".
/// Keeps what it has seen, so after a break it tells only what is different. An object that is
/// announced as it was before is not a change.
///
/// With a filter (`where`) only objects with these values count, and an object that comes to have
/// them has "entered", one that no longer has them has "left". The subscription names the values
/// too, so a service that can filter does not tell of the others.
///
/// The service is asked twice a second whether it is there, so that "gone" is said without a
/// change. So it is looked whether anybody still reads the output.
class Watch {
 public:
  Watch(Client client, Target target, const WatchOptions& options);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Returns when the end that the options set is reached, at SIGINT or SIGTERM, or when the output
  /// cannot be written any more.
  void run();

 private:
  void heard(const nv::message& object);
  bool isInside(const nv::message& object) const;
  void outside(const nv::message& object);
  void heardAll();
  void change(std::string_view what, const nv::message& object);
  void checkService();
  void checked(const nv::message& answer);

  Client client_;
  Target target_;
  WatchOptions options_;
  nv::message where_;
  std::map<std::uint32_t, nv::message> seen_;
  bool ready_ = false;
  bool gone_ = false;
  std::uint32_t changes_ = 0;
  void* follow_ = nullptr;
  nv::Timer end_, nextCheck_;
  nv::Post check_;
};

void watchObjects(Client client, const std::string& service, const WatchOptions& options);

}  // namespace confctl
