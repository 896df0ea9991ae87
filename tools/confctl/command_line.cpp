#include "tools/confctl/command_line.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/confctl/elements.h"
#include "tools/confctl/fields.h"
#include "tools/confctl/run_command.h"
#include "tools/confctl/undo_commands.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

constexpr const char* kFieldHelp = R"(Fields:
  NAME=TEXT    a field has this value          NAME:=JSON   the same, written as JSON
  NAME-        a field is removed (set)
  NAME is a word of the service's dictionary (see `confctl fields SERVICE`), or number and type: 7_u.

  type      suffix  TEXT                      JSON
  bool      _b      true, false               true, false
  u32       _u      7, 0x7                    7
  u64       _q      7, 0x7                    7
  address   _a      192.0.2.1, 2001:db8::1    "192.0.2.1"
  string    _s      as it is                  "text", or {"hex": "ff00"}
  message   _m      {"NAME": JSON, ...}       {"NAME": JSON, ...}
  raw       _r      ff00                      "ff00"
  lists     _ba ... ELEMENT,ELEMENT           [JSON, JSON]
  In the text of a list "\," is a comma and "\\" a backslash within an element; no text is an empty
  list. A list that is given again goes on. A list of messages is written as JSON.)";

constexpr const char* kFooter =
    R"(SERVICE is a name, an address, or either with a handler: hosts, 100, hosts.3, 100.3.

Exit status: 0 done, 1 confctl failed, 2 bad command line (nothing was sent), 3 refused by the service,
4 no such service or connection lost, 5 no answer in time.)";

constexpr const char* kRunHelp =
    R"(Behind the service: SCRIPT [ARG...], or with --source only [ARG...]. SCRIPT is an id or a name. These
words are the script's, also when they look like options: those of confctl stand before "run".)";

constexpr const char* kUndoHelp =
    R"(Undoing is a change as well, and then the last one: "undo SERVICE last" twice does the change again. To
go further back give the numbers.)";

/// Reads the argument of an option into `out`.
template <class Number>
CLI::Option* addNumber(CLI::App& app, const std::string& option, Number& out,
                       const std::string& help) {
  const auto take = [&out, option](const std::string& text) {
    const auto number = readNumber(text, 0xffffffff);
    if (!number) throw CLI::ValidationError(option, "'" + text + "' is not a number below 2^32");
    out = static_cast<std::uint32_t>(*number);
  };
  return app.add_option_function<std::string>(option, take, help)->type_name("N");
}

/// All that options are read into, and the commands that use them once everything is read.
class Parser {
 public:
  Parser() : app_("Reads and changes the configuration of services.", "confctl") {
    app_.require_subcommand(1);
    app_.footer(kFooter);
    addGlobalOptions();
    addReadCommands();
    addChangeCommands();
    addUndoCommand();
    addWatchCommand();
    addRunCommand();
  }

  std::optional<CommandLine> parse(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::Success& help) {
      app_.exit(help);
      return {};
    } catch (const CLI::ParseError& error) {
      throw usage(whatIsWrong(app_, error, argc, argv));
    }
    if (system_) line_.bus.rights.reset();
    return line_;
  }

 private:
  using Command = std::function<void(Client)>;

  // CLI11 would only say that a command is missing, or its service.
  static std::string whatIsWrong(const CLI::App& app, const CLI::ParseError& error, int argc,
                                 char** argv) {
    const auto unknown = app.remaining();
    if (unknown.empty()) return error.what();
    const auto commands = app.get_subcommands();
    const auto isFirst = [&](const std::string& word) {
      return word == unknown.front() || (!commands.empty() && word == commands.front()->get_name());
    };
    const auto first = std::find_if(argv + 1, argv + argc, isFirst);
    if (first == argv + argc || *first != unknown.front() || unknown.front().starts_with('-'))
      return error.what();
    return "'" + printable(unknown.front()) + "' is no command; see: confctl --help";
  }

  void addGlobalOptions() {
    app_.add_option("--bus", line_.bus.directory, "Directory of the bus")
        ->envname("CONFKIT_BUS")
        ->type_name("DIR")
        ->capture_default_str();
    addNumber(app_, "--timeout", line_.bus.timeout, "Milliseconds to wait for an answer (5000)");
    auto* rights = addNumber(app_, "--rights", line_.bus.rights, "Rights to ask for (0x7fffffff)")
                       ->envname("CONFKIT_RIGHTS");
    app_.add_flag("--system", system_, "Ask as the system, with all rights the bus gives")
        ->excludes(rights);
    app_.add_flag("--json", line_.json, "One JSON object a line");
  }

  /// A subcommand that takes a service first.
  CLI::App& addCommand(const std::string& name, const std::string& about, Command command) {
    CLI::App& sub = addPlainCommand(name, about, std::move(command));
    sub.add_option("service", service_, "Name or address")->required()->type_name("SERVICE");
    return sub;
  }

  /// A subcommand without arguments.
  CLI::App& addPlainCommand(const std::string& name, const std::string& about, Command command) {
    CLI::App* sub = app_.add_subcommand(name, about)->fallthrough();
    sub->callback([this, command = std::move(command)] { line_.run = command; });
    return *sub;
  }

  void addReadCommands() {
    addPlainCommand("services", "Show the services of the bus", [](Client c) { showServices(c); });
    addCommand("fields", "Show how a service calls its fields",
               [this](Client c) { showKeys(c, service_); });
    auto& get =
        addCommand("get", "Show an object, or the configuration of a service without objects",
                   [this](Client c) { getObject(c, service_, change_.id, read_); });
    addNumber(get, "id", change_.id, "The object");
    addReadOptions(get);
    auto& list = addCommand("list", "Show all objects",
                            [this](Client c) { listObjects(c, service_, read_); });
    addReadOptions(list);
    addNumber(list, "--page", read_.pageSize, "Ask for so many objects at a time, at least 1")
        ->check([](const std::string& text) {
          return readNumber(text, 0xffffffff) == 0 ? "a page has 1 object or more" : "";
        });
    addCommand("count", "Show how many objects there are",
               [this](Client c) { countObjects(c, service_); });
    auto& dump =
        addCommand("dump", "Show the inside of a service, to look for a fault", [this](Client c) {
          dumpService(c, service_, (dumpKeys_ ? 1U : 0) | (dumpMessages_ ? 2U : 0));
        });
    dump.add_flag("--keys", dumpKeys_, "The fields that it keeps as well");
    dump.add_flag("--messages", dumpMessages_, "All that its objects hold as well");
  }

  void addReadOptions(CLI::App& sub) {
    addNumber(sub, "--flags", read_.flags, "What services should show (5)");
    sub.add_flag("--defaults", read_.defaults, "The default configuration as well");
  }

  void addChangeCommands() {
    auto& added = addCommand("add", "Add an object", [this](Client c) {
      change_.fields = words_;
      addObject(c, service_, change_);
    });
    addFields(added);
    addNumber(added, "--id", change_.id, "Its id; the service chooses when there is none");
    addPlace(added, change_.place)->require_option(0, 1);
    added.add_flag("--dynamic", change_.dynamic, "Users cannot change it (needs --system)");
    auto& set =
        addCommand("set", "Change an object, or the configuration of a service without objects",
                   [this](Client c) {
                     takeId();
                     drop_ ? dropConfiguration(c) : changeObject(c);
                   });
    addFields(set, "[ID] FIELD");
    set.add_flag("--drop", drop_, "Take back all that the manager says (needs --managed)");
    auto& removed = addCommand("remove", "Remove an object",
                               [this](Client c) { removeObject(c, service_, change_); });
    addNumber(removed, "id", change_.id, "The object")->required();
    addManager(removed);
    addMoveCommand();
  }

  void addMoveCommand() {
    auto& moved = addCommand("move", "Give an object another place in the order",
                             [this](Client c) { moveObject(c, service_, *change_.id, place_); });
    addNumber(moved, "id", change_.id, "The object")->required();
    addPlace(moved, place_)->require_option(1);
  }

  static CLI::Option_group* addPlace(CLI::App& sub, Place& place) {
    auto* group = sub.add_option_group("Place", "One of these");
    addNumber(*group, "--before", place.before, "Before this object");
    group->add_flag("--first", place.first, "Before all others");
    group->add_flag("--last", place.last, "Behind all others");
    return group;
  }

  void changeObject(Client client) const {
    if (change_.fields.empty()) throw usage("no field given; see: confctl set --help");
    setObject(client, service_, change_);
  }

  void dropConfiguration(Client client) const {
    if (!change_.managedBy) throw usage("--drop needs --managed: the manager whose fields go");
    if (change_.id || !change_.fields.empty())
      throw usage("--drop takes back all that the manager says: it goes with no id and no field");
    dropManaged(client, service_, *change_.managedBy);
  }

  void addFields(CLI::App& sub, const std::string& form = "FIELD") {
    sub.add_option("fields", words_, "See below")->type_name(form);
    sub.footer(kFieldHelp);
    addManager(sub);
  }

  void addManager(CLI::App& sub) {
    addNumber(sub, "--managed,--managed-by", change_.managedBy, "Speak for this manager");
  }

  /// The first word of a set is an id unless it is a field.
  void takeId() {
    change_.fields = words_;
    if (words_.empty() || isField(words_.front())) return;
    const auto id = readNumber(words_.front(), 0xffffffff);
    if (!id)
      throw usage("argument '" + printable(words_.front()) + "': neither an id nor name=value");
    change_.id = static_cast<std::uint32_t>(*id);
    change_.fields.erase(change_.fields.begin());
  }

  void addUndoCommand() {
    auto& sub = addCommand("undo", "Show the last changes, or undo one", [this](Client c) {
      record_.empty() ? showUndoRecords(c, service_) : undoChange(c, service_, record_);
    });
    sub.add_option("record", record_, "The change to undo: its number, or last")->type_name("N");
    sub.footer(kUndoHelp);
  }

  void addWatchCommand() {
    auto& sub = addCommand("watch", "Show all objects and then each change as it comes",
                           [this](Client c) { watchObjects(c, service_, watch_); });
    addNumber(sub, "--count", watch_.changes, "End after so many changes");
    addNumber(sub, "--for", watch_.milliseconds, "End after so many milliseconds");
    addNumber(sub, "--flags", watch_.flags, "What services should show (5)");
    sub.add_option("--where", watch_.where, "Only objects with these values (see `set --help`)")
        ->type_name("FIELD");
  }

  /// From the script on every word is the script's, whatever it looks like.
  void addRunCommand() {
    auto& sub = addCommand("run", "Run a script and show what it writes",
                           [this](Client c) { runScript(c, service_, run_); });
    sub.add_option("--source", run_.source, "Run this, for a service that runs what it is given")
        ->type_name("TEXT");
    sub.fallthrough(false)->prefix_command();
    sub.footer(kRunHelp);
    sub.parse_complete_callback([this, &sub] { run_.words = sub.remaining(); });
  }

  CLI::App app_;
  CommandLine line_;
  bool system_ = false;
  std::string service_;
  ReadOptions read_;
  ChangeOptions change_;
  Place place_;
  bool drop_ = false;
  bool dumpKeys_ = false, dumpMessages_ = false;
  WatchOptions watch_;
  RunOptions run_;
  std::vector<std::string> words_;
  std::string record_;
};

}  // namespace

std::optional<CommandLine> readCommandLine(int argc, char** argv) {
  // The command that is returned uses what the parser has read.
  static Parser parser;
  return parser.parse(argc, argv);
}

}  // namespace confctl
