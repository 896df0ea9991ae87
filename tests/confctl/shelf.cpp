/// A service for the client's tests: books on a shelf, handler 4 that never answers, handler 5
/// whose list begins again and again, handler 6 whose list is gathered while it is read, handler 7
/// with the readers who wait for a book, handler 8 that lies about how to undo its changes, handler
/// 9, which runs scripts in its mind, handler 10 with a lane of cars, and handler 11 with the
/// barrier at its end. With SHELF_CLOSED in the environment the books have no handler.
#include <cstdlib>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/run_task.h"
#include "containers/amap.h"
#include "platform/commands.h"
#include "platform/keys.h"
#include "platform/looper.h"
#include "platform/run_request.h"
#include "platform/service.h"
#include "platform/undo_log.h"
#include "tests/confctl/lanes.h"

namespace {

constexpr nv::string_id kTitle(1);
constexpr nv::u32_id kPages(2);
constexpr nv::string_array_id kTags(3);
constexpr nv::string_id kBook(1);

struct Book : Kept<Object> {
  Book() { config.insert(kPages, 1); }
  std::string name() override { return config.get(kTitle); }
};

class Shelf : public AMap {
 public:
  Shelf() : AMap("books", 1, 9999) {
    describe("shelf", {{kTitle.uid(), "title", "what is on the cover"},
                       {kPages.uid(), "pages", "how many it has"},
                       {kTags.uid(), "tags", "words to find it by"}});
  }

  Object* newObject() override { return new Book; }
  void copyObject(Object* dst, Object* src) override { kept(dst).config = kept(src).config; }
  nv::message checkRestore(Object* obj) override { return check(obj); }
  nv::message checkAdd(Object* obj) override { return check(obj); }
  nv::message checkChange(Object*, Object* obj) override { return check(obj); }
  nv::message checkRemove(Object*) override { return {}; }
  void objAdded(Object*) override {}
  void objChanged(Object*, Object*) override {}
  void objRemoved(Object*) override {}

 private:
  static nv::message check(Object* obj) {
    return obj->name().empty() ? nv::failedMsg("a book has a title") : nv::message();
  }
};

class Silent : public nv::Handler {
 public:
  void handleCmd(const nv::message&, unsigned) override {}
};

class Round : public nv::Handler {
 public:
  nv::message cmdGetAll(const nv::message&, std::uint32_t startId, std::uint32_t) override {
    const std::uint32_t id = startId == 2 ? 2 : 1;
    nv::message page{{nv::key::startId, 3 - id}};
    page.append(nv::key::objects, nv::message{{nv::key::objectId, id}}.flat());
    return page;
  }
};

class Gathered : public nv::Handler {
 public:
  nv::message cmdGetAll(const nv::message&, std::uint32_t startId, std::uint32_t) override {
    constexpr std::uint32_t kIteration = 0xfffff001;
    nv::message page;
    page.insert(nv::key::objects, std::vector<nv::flat_message>());
    if (startId != kIteration) asked_ = 0;
    if (asked_ % 2 == 0)
      page.append(nv::key::objects, nv::message{{nv::key::objectId, asked_}}.flat());
    if (++asked_ < 6) page.insert(nv::key::startId, kIteration);
    return page;
  }

 private:
  std::uint32_t asked_ = 0;
};

/// Script 1 says what it was given, "fail" ends with status 7, "stay" is killed.
class Scripts : public nv::Handler {
 public:
  void handleCmd(const nv::message& cmd, unsigned code) override {
    if (code != nv::cmd::runScript) return Handler::handleCmd(cmd, code);
    const auto name = cmd.get(nv::key::name);
    nv::message answer;
    if (name == "stay")
      answer = nv::failedMsg("it ran\x1btoo long");
    else
      answer.insert(nv::run_key::status, name == "fail" ? 7 : 0);
    replyMessage(cmd, answer.insert(nv::run_key::output, heard(cmd)));
  }

 private:
  static std::string heard(const nv::message& cmd) {
    std::string text = cmd.get(nv::run_key::source) + cmd.get(nv::key::name);
    if (cmd.has(nv::key::objectId)) text += std::to_string(cmd.get(nv::key::objectId));
    text += " with " + std::to_string(cmd.get(nv::key::rights)) + " by " +
            cmd.get(nv::key::scriptOrigin);
    for (const auto word : cmd.view(nv::run_key::arguments))
      text += " [" + nv::message(word).get(nv::run_key::word) + "]";
    return text;
  }
};

/// Would have its change undone by a removal of somebody else's object.
class Liar : public nv::Handler {
 public:
  void handleCmd(const nv::message& cmd, unsigned code) override {
    if (code != nv::cmd::getUndo) return Handler::handleCmd(cmd, code);
    const nv::message command{{nv::key::command, nv::cmd::removeObj}, {nv::key::objectId, 2}};
    nv::message record{{nv::undo_key::number, 1}, {nv::undo_key::description, "lamp changed"}};
    record.insert(nv::undo_key::command, command).insert(nv::undo_key::route, {100});
    nv::message reply;
    reply.append(nv::key::objects, record.flat());
    replyMessage(cmd, reply);
  }
};

/// In the order in which they get the book.
void queueUp(CfgMan& readers) {
  readers.namePrefix = "reader";
  readers.configIds.insert(kBook.uid());
  readers.setStore("readers", true);
  while (readers.runTask->run()) continue;
  readers.setHandler(7);
  readers.handler->describe("readers", {{kBook.uid(), "book", "what it waits for"}});
}

}  // namespace

int main(int argc, char** argv) {
  nv::Service service(argc, argv, {.name = "shelf", .address = 100});
  Shelf shelf;
  Silent silent;
  Round round;
  Gathered gathered;
  Liar liar;
  Scripts scripts;
  Lane lane;
  Barrier barrier;
  shelf.init();
  lane.init();
  barrier.init();
  const std::pair<unsigned, nv::Handler*> handlers[] = {
      {100, &shelf}, {4, &silent},  {5, &round}, {6, &gathered},
      {8, &liar},    {9, &scripts}, {10, &lane}, {11, &barrier}};
  const bool isClosed = std::getenv("SHELF_CLOSED") != nullptr;
  for (const auto& [id, handler] : handlers)
    if (id != 100 || !isClosed) nv::getLooper()->addHandler(id, handler);
  CfgMan readers;
  queueUp(readers);
  return service.run();
}
