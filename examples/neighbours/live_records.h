/// What the kernel knows, on its way to one client.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "cfgman/token.h"
#include "examples/neighbours/line_reader.h"
#include "getall/getall_state.h"
#include "platform/timer.h"

namespace neighbours {

/// Reads the tables one after the other, a bounded number of lines a pass of the loop, and only as
/// far as there is room: what waits for the client is a reply's worth, however long the tables are.
///
/// Ends by itself when its client stays away, so that nobody holds files open for ever.
class LiveRecords : public GetallState {
 public:
  static constexpr unsigned kLinesPerPass = 100;
  /// How long the client may take for its next request, in milliseconds.
  static constexpr unsigned kPatience = 30000;

  /// `directory` holds the tables. `open` is let go when they are read, or the client has enough.
  LiveRecords(std::filesystem::path directory, std::shared_ptr<void> open);
  ~LiveRecords() override;

  void more() override;
  void beforeReply(nv::message& reply) override;

 private:
  void goOn();
  void gather();
  void finish();
  /// Goes to the next line, of the next table when one ends; false behind the last.
  bool nextLine(std::string& line);

  std::filesystem::path directory_;
  std::shared_ptr<void> open_;
  bool isAsked_ = false;  ///< A request waits.
  std::size_t table_ = 0;
  std::optional<LineReader> reader_;
  nv::Timer next_, patience_;
  LifeToken<LiveRecords> token_{this};
};

}  // namespace neighbours
