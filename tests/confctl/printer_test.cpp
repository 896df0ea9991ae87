/// What stands on the screen, line by line.
#include "tools/confctl/printer.h"

#include <sstream>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "tests/confctl/sample.h"
#include "tools/confctl/refusal.h"

namespace confctl {
namespace {

using Make = std::unique_ptr<Printer> (*)(std::ostream&);

/// Everything that `say` has printed.
std::string printed(Make make, void (*say)(Printer&)) {
  std::ostringstream out;
  const auto printer = make(out);
  printer->use(sample::dictionary());
  say(*printer);
  return out.str();
}

nv::message object(std::uint32_t id, std::string_view host) {
  return {{nv::key::objectId, id}, {sample::host, host}, {sample::off, false}};
}

struct Case {
  void (*say)(Printer&);
  std::string text, json;
};

TEST(Printers, SayTheSameAsTextAndAsJson) {
  const Case table[] = {
      {[](Printer& p) { p.ran("a\nb", 7); }, "a\nb\nended 7\n",
       R"({"output":"a\nb","status":7})"
       "\n"},
      {[](Printer& p) { p.ran("\x1b[2J\n", std::nullopt); }, "\\x1b[2J\n",
       R"({"output":"\u001b[2J\n"})"
       "\n"},
      {[](Printer& p) { p.object(object(5, "a b")); }, "host='a b'\noff=false\n",
       R"({"id":5,"fields":{"host":"a b","off":false}})"
       "\n"},
      {[](Printer& p) {
         p.listed(object(5, "a"));
         p.listed({{nv::key::objectId, 6}});
       },
       "5 host=a off=false\n6\n",
       R"({"id":5,"fields":{"host":"a","off":false}})"
       "\n"
       R"({"id":6,"fields":{}})"
       "\n"},
      {[](Printer& p) {
         p.defaults({{sample::host, ""}});
       },
       "default host=\n",
       R"({"default":{"host":""}})"
       "\n"},
      {[](Printer& p) { p.count(3); }, "3\n",
       R"({"count":3})"
       "\n"},
      {[](Printer& p) {
         p.done("added", {{nv::key::objectId, 5}});
       },
       "added 5\n",
       R"({"done":"added","id":5,"fields":{}})"
       "\n"},
      {[](Printer& p) { p.done("changed", {}); }, "changed\n",
       R"({"done":"changed","fields":{}})"
       "\n"},
      {[](Printer& p) {
         p.event("removed", {{nv::key::objectId, 5}});
         p.event("ready", 2);
       },
       "removed 5\nready 2\n",
       R"({"event":"removed","id":5,"fields":{}})"
       "\n"
       R"({"event":"ready","objects":2})"
       "\n"},
      {[](Printer& p) {
         nv::message command = object(5, "a");
         command.insert(nv::key::command, nv::cmd::setObj);
         p.undoRecord({9, "host\x1b changed", command, {100, 3}});
       },
       "9 'host\\x1b changed' undo: set 100.3 5 host=a off=false\n",
       R"({"number":9,"description":"host\u001b changed","route":[100,3],)"
       R"("command":{"host":"a","off":false,"id":5,"command":16646147}})"
       "\n"},
      {[](Printer& p) {
         p.undoRecord({1,
                       "a removed",
                       {{nv::key::command, nv::cmd::addObj}, {nv::key::objectId, 5}},
                       {100}});
       },
       "1 'a removed' undo: add 100 --id=5\n",
       R"({"number":1,"description":"a removed","route":[100],"command":{"id":5,"command":16646149}})"
       "\n"},
      {[](Printer& p) {
         p.services({{.address = 100,
                      .name = "hosts",
                      .running = true,
                      .objects = 12,
                      .handlers = {3, 100}},
                     {.address = 7, .name = "", .running = false}});
       },
       "ADDRESS  NAME   OBJECTS  HANDLERS  STATE\n"
       "100      hosts  12       3,100     running\n"
       "7        -      -        -         not running\n",
       R"({"address":100,"name":"hosts","running":true,"objects":12,"handlers":[3,100]})"
       "\n"
       R"({"address":7,"name":"","running":false})"
       "\n"},
      {[](Printer& p) { p.keys(); },
       "NAME       TYPE          MEANING\n"
       "host       string        its name\n"
       "off        bool          left out\n"
       "addresses  address list  where it is\n"
       "link       message       \n",
       R"({"name":"host","field":1,"type":"string","meaning":"its name"})"
       "\n"
       R"({"name":"off","field":3,"type":"bool","meaning":"left out"})"
       "\n"
       R"({"name":"addresses","field":2,"type":"address list","meaning":"where it is"})"
       "\n"
       R"({"name":"link","field":4,"type":"message","meaning":""})"
       "\n"},
      {[](Printer& p) {
         p.failure({Exit::refused, "no", 0xfe0003, 5});
       },
       "",
       R"({"error":{"status":3,"text":"no","code":16646147,"object":5}})"
       "\n"},
  };
  for (const Case& c : table) {
    EXPECT_EQ(printed(makeTextPrinter, c.say), c.text);
    EXPECT_EQ(printed(makeJsonPrinter, c.say), c.json);
  }
}

struct Refused {
  nv::message request, reply;
  Exit status;
  std::string text;
};

TEST(Refusals, AreOneSentenceWithDeedReasonAndCode) {
  const auto request = [](unsigned command) { return nv::message{{nv::key::command, command}}; };
  nv::message set = request(nv::cmd::setObj);
  set.insert(nv::key::objectId, 5);
  const Refused table[] = {
      {set, nv::failedMsg("bad name"), Exit::refused, "set object 5: bad name (code 0xfe0003)"},
      {set, nv::errorMsg(nv::err::noSuchObject, ""), Exit::refused,
       "set object 5: there is no such object (code 0xfe0004)"},
      {request(nv::cmd::addObj), nv::errorMsg(7, "\n"), Exit::refused,
       "add an object: \\x0a (code 0x7)"},
      {request(nv::cmd::set), nv::errorMsg(nv::err::noRoute, ""), Exit::noService,
       "set the configuration: nobody is there (code 0xfe0102)"},
      {request(nv::cmd::getAll), nv::errorMsg(nv::err::timedOut, ""), Exit::timedOut,
       "list its objects: no answer in time (code 0xfe0103)"},
      {request(77), nv::errorMsg(nv::err::notAllowed, ""), Exit::refused,
       "carry out command 0x4d on its objects: not allowed (code 0xfe0101)"},
  };
  for (const Refused& r : table) {
    const Failure failure = refusal("hosts", r.request, r.reply);
    EXPECT_EQ(failure.text, "'hosts' did not " + r.text);
    EXPECT_EQ(failure.status, r.status);
  }
  EXPECT_EQ(refusal("hosts", set, nv::failedMsg("")).object, 5u);
}

}  // namespace
}  // namespace confctl
