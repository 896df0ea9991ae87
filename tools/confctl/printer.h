/// What confctl has to say, in one of two forms.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tools/confctl/dictionary.h"
#include "tools/confctl/failure.h"

namespace confctl {

struct ServiceState {
  std::uint32_t address = 0;
  std::string name;
  bool running = false;
  std::string state = {};                     ///< in words
  std::optional<std::uint32_t> objects = {};  ///< none: means nothing, or not running
  std::vector<std::uint32_t> handlers = {};
};

struct UndoRecord {
  std::uint32_t number = 0;
  std::string description;
  nv::message command;               ///< reverts the change
  std::vector<std::uint32_t> route;  ///< of the handler that takes it
};

/// Writes results to a stream, each at once. Names fields by the dictionary that `use` gave last.
class Printer {
 public:
  explicit Printer(std::ostream& out) : out_(out) {}
  virtual ~Printer() = default;
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  void use(Dictionary names) { names_ = std::move(names); }
  const Dictionary& names() const { return names_; }

  virtual void services(const std::vector<ServiceState>& services) = 0;
  /// The keys of the dictionary.
  virtual void keys() = 0;
  /// One object, or a configuration that has no id.
  virtual void object(const nv::message& object) = 0;
  /// One object of a list.
  virtual void listed(const nv::message& object) = 0;
  virtual void defaults(const nv::message& config) = 0;
  virtual void count(std::uint32_t count) = 0;
  /// A text of many lines.
  virtual void dump(std::string_view text) = 0;
  /// What a script wrote, and the exit status with which it ended; none: it was killed.
  virtual void ran(std::string_view output, std::optional<std::uint32_t> status) = 0;
  /// A change was made: "added", "changed", "removed", "moved".
  virtual void done(std::string_view deed, const nv::message& reply) = 0;
  /// The undo record with this number was sent back.
  virtual void undone(std::uint32_t number, const nv::message& reply) = 0;
  virtual void undoRecord(const UndoRecord& record) = 0;
  /// Something happened to an object that is watched. `removed` objects hold their id alone.
  virtual void event(std::string_view what, const nv::message& object) = 0;
  /// Something happened to the whole of what is watched: "ready", "gone", "back".
  virtual void event(std::string_view what, std::size_t objects) = 0;
  /// Also written on the standard error stream, by `main`.
  virtual void failure(const Failure& failure) = 0;

 protected:
  /// The object without the fields that say nothing of it: that it is there, that none follows it,
  /// and the flag of the configuration manager, which every one of its objects has. Fields in the
  /// service's dictionary are never left out.
  nv::message shown(nv::message object) const;

  std::ostream& out_;
  Dictionary names_;
};

/// Columns and `name=value` words, for people.
std::unique_ptr<Printer> makeTextPrinter(std::ostream& out);
/// One JSON object a line, for programs.
std::unique_ptr<Printer> makeJsonPrinter(std::ostream& out);

}  // namespace confctl
