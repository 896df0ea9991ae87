#include "platform/keys.h"
#include "tools/confctl/printer.h"
#include "tools/confctl/value_json.h"

namespace confctl {
namespace {

class JsonPrinter : public Printer {
 public:
  using Printer::Printer;

  void services(const std::vector<ServiceState>& services) override {
    for (const ServiceState& service : services) line(jsonOfService(service));
  }

  void keys() override {
    for (const Dictionary::Key& key : names_.keys()) {
      line({{"name", key.word},
            {"field", key.uid & nv::kIdMask},
            {"type", typeName(key.uid)},
            {"meaning", jsonOf(key.about)}});
    }
  }

  void object(const nv::message& object) override {
    line(withFields(Json::object(), shown(object)));
  }
  void listed(const nv::message& object) override { this->object(object); }
  void defaults(const nv::message& config) override { line({{"default", jsonOf(config, names_)}}); }
  void count(std::uint32_t count) override { line({{"count", count}}); }
  void dump(std::string_view text) override { line({{"dump", jsonOf(text)}}); }

  void ran(std::string_view output, std::optional<std::uint32_t> status) override {
    Json json = {{"output", jsonOf(output)}};
    if (status) json["status"] = *status;
    line(json);
  }

  void done(std::string_view deed, const nv::message& reply) override {
    line(withFields({{"done", deed}}, reply));
  }

  void undone(std::uint32_t number, const nv::message& reply) override {
    line(withFields({{"done", "undone"}, {"number", number}}, reply));
  }

  void undoRecord(const UndoRecord& record) override {
    line({{"number", record.number},
          {"description", jsonOf(record.description)},
          {"route", record.route},
          {"command", jsonOf(record.command, names_)}});
  }

  void event(std::string_view what, const nv::message& object) override {
    line(withFields({{"event", what}}, shown(object)));
  }
  void event(std::string_view what, std::size_t objects) override {
    line({{"event", what}, {"objects", objects}});
  }

  void failure(const Failure& failure) override {
    Json error = {{"status", static_cast<int>(failure.status)}, {"text", jsonOf(failure.text)}};
    if (failure.code) error["code"] = *failure.code;
    if (failure.object) error["object"] = *failure.object;
    line({{"error", error}});
  }

 private:
  static Json jsonOfService(const ServiceState& service) {
    Json json = {
        {"address", service.address}, {"name", jsonOf(service.name)}, {"running", service.running}};
    json["state"] = service.state;
    if (service.objects) json["objects"] = *service.objects;
    if (service.running) json["handlers"] = service.handlers;
    return json;
  }

  /// Adds "id", when the message has one, and "fields".
  Json withFields(Json json, nv::message m) const {
    if (m.has(nv::key::objectId)) json["id"] = m.get(nv::key::objectId);
    m.remove(nv::key::objectId);
    json["fields"] = jsonOf(m, names_);
    return json;
  }

  void line(const Json& json) { out_ << dumpJson(json) << std::endl; }
};

}  // namespace

std::unique_ptr<Printer> makeJsonPrinter(std::ostream& out) {
  return std::make_unique<JsonPrinter>(out);
}

}  // namespace confctl
