#include <algorithm>

#include "platform/commands.h"
#include "platform/keys.h"
#include "tools/confctl/fields.h"
#include "tools/confctl/printer.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

using Row = std::vector<std::string>;

/// Lines up `rows` in columns, two spaces apart.
void writeTable(std::ostream& out, const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t k = 0; k < row.size(); ++k) widths[k] = std::max(widths[k], row[k].size());
  }
  for (const Row& row : rows) {
    for (std::size_t k = 0; k + 1 < row.size(); ++k) {
      out << row[k] << std::string(widths[k] - row[k].size() + 2, ' ');
    }
    out << row.back() << '\n';
  }
  out.flush();
}

std::string joined(const std::vector<std::uint32_t>& numbers, char separator) {
  std::string text;
  for (const std::uint32_t number : numbers) {
    if (!text.empty()) text += separator;
    text += std::to_string(number);
  }
  return text;
}

Row rowOf(const ServiceState& service) {
  return {std::to_string(service.address), service.name.empty() ? "-" : printable(service.name),
          service.objects ? std::to_string(*service.objects) : "-",
          service.handlers.empty() ? "-" : joined(service.handlers, ','), service.state};
}

/// The subcommand that sends this command.
std::string commandWord(unsigned command) {
  switch (command) {
    case nv::cmd::addObj: return "add";
    case nv::cmd::setObj:
    case nv::cmd::set: return "set";
    case nv::cmd::removeObj: return "remove";
    case nv::cmd::moveObj: return "move";
    default: return hex(command);
  }
}

class TextPrinter : public Printer {
 public:
  using Printer::Printer;

  void services(const std::vector<ServiceState>& services) override {
    std::vector<Row> rows = {{"ADDRESS", "NAME", "OBJECTS", "HANDLERS", "STATE"}};
    for (const ServiceState& service : services) rows.push_back(rowOf(service));
    writeTable(out_, rows);
  }

  void keys() override {
    std::vector<Row> rows = {{"NAME", "TYPE", "MEANING"}};
    for (const Dictionary::Key& key : names_.keys()) {
      rows.push_back({key.word, typeName(key.uid), printable(key.about)});
    }
    writeTable(out_, rows);
  }

  void object(const nv::message& object) override {
    for (const std::string& word : fieldWords(shown(object), names_)) out_ << word << '\n';
    out_.flush();
  }

  void listed(const nv::message& object) override { line({idOf(object)}, shown(object)); }
  void defaults(const nv::message& config) override { line({"default"}, config); }
  void count(std::uint32_t count) override { out_ << count << std::endl; }
  void dump(std::string_view text) override { out_ << printableLines(text) << std::flush; }

  void ran(std::string_view output, std::optional<std::uint32_t> status) override {
    out_ << printableLines(output);
    if (!output.empty() && output.back() != '\n') out_ << '\n';
    if (status) out_ << "ended " << *status << '\n';
    out_.flush();
  }

  void done(std::string_view deed, const nv::message& reply) override {
    line({std::string(deed), idOf(reply)}, reply);
  }

  void undone(std::uint32_t number, const nv::message& reply) override {
    line({"undone", std::to_string(number)}, reply);
  }

  void undoRecord(const UndoRecord& record) override {
    nv::message command = record.command;
    Row words = {std::to_string(record.number), "'" + printable(record.description) + "'",
                 "undo:", commandWord(command.get(nv::key::command)), joined(record.route, '.')};
    words.push_back((words[3] == "add" && !idOf(command).empty() ? "--id=" : "") + idOf(command));
    command.remove(nv::key::command);
    line(words, command);
  }

  void event(std::string_view what, const nv::message& object) override {
    line({std::string(what), idOf(object)}, shown(object));
  }
  void event(std::string_view what, std::size_t objects) override {
    out_ << what << ' ' << objects << std::endl;
  }

  /// The sentence is on the standard error stream, nothing more to say.
  void failure(const Failure&) override {}

 private:
  static std::string idOf(const nv::message& m) {
    return m.has(nv::key::objectId) ? std::to_string(m.get(nv::key::objectId)) : "";
  }

  void line(Row words, const nv::message& fields) {
    for (std::string& word : fieldWords(fields, names_)) words.push_back(std::move(word));
    std::string separator;
    for (const std::string& word : words) {
      if (word.empty()) continue;
      out_ << separator << word;
      separator = " ";
    }
    out_ << std::endl;
  }
};

}  // namespace

std::unique_ptr<Printer> makeTextPrinter(std::ostream& out) {
  return std::make_unique<TextPrinter>(out);
}

}  // namespace confctl
