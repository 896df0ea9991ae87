// Managers, items and positions as text, for diagnostics.
#include <ostream>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "cfgman/limited_text.h"
#include "cfgman/live_managers.h"
#include "message/field_ops.h"

namespace {

constexpr unsigned kKeySets = 1, kMessages = 2;

using Item = CfgMan::Item;

void dumpKeys(std::ostream& os, const char* title, const vset<unsigned>& keys) {
  if (keys.empty()) return;
  os << title;
  for (const auto uid : keys) {
    os << "        id=";
    nv::dumpUId(os, uid) << '\n';
  }
}

void dumpMessage(std::ostream& os, const nv::message& msg) {
  if (msg.empty()) return;
  os << '\n';
  msg.dump2(os, "", 0, 2);
}

void dumpId(std::ostream& os, const Item* item) {
  if (item != nullptr) os << std::hex << item->id;
}

void dumpPlace(std::ostream& os, const ItemOrder& order, const Item& item) {
  os << '\t';
  if (item.ord == nullptr) {
    os << "NULL";
    return;
  }
  dumpId(os, order.next(item));
  dumpId(os << '\t', order.previous(item));
  dumpId(os << '\t', order.nextStored(item));
  dumpId(os << '\t', order.previousStored(item));
}

void dumpItem(std::ostream& os, const CfgMan& manager, const Item& item, unsigned flags) {
  os << "\n    " << (item.exists() ? ' ' : '~') << (item.store ? 'S' : ' ') << '\t' << std::hex
     << item.id << '\t' << static_cast<const void*>(item.cookie) << '\t';
  if (!item.links.empty()) os << std::dec << item.links.size();
  if (!manager.ordered) return;
  dumpPlace(os, *manager.order, item);
  if ((flags & kMessages) == 0) return;
  dumpMessage(os, item.config);
  dumpMessage(os, item.state);
}

void dumpItems(std::ostream& os, const CfgMan& manager, unsigned flags) {
  if (manager.items.empty()) return;
  os << "    ~US\tid\tcookie\tnlinks";
  if (manager.ordered) os << "\tnext\tprev\tsnext\tsprev";
  for (const auto [id, item] : manager.items) {
    if (!os) return;
    dumpItem(os, manager, *item, flags);
  }
  os << std::dec << '\n';
}

void dumpAllocator(std::ostream& os, const CfgMan& manager) {
  if (manager.alloc == nullptr) return;
  const auto& alloc = *manager.alloc;
  os << std::hex << "    alloc: " << alloc.min() << '-' << alloc.max() << std::dec
     << " unused=" << alloc.unused() << std::hex << " min=" << manager.allocMin
     << " max=" << manager.allocMax << std::dec << '\n';
}

void dumpParts(std::ostream& os, const CfgMan& manager) {
  if (manager.store)
    os << "    store: " << (manager.store->firstTime() ? "firstTime " : "") << '\n';
  if (manager.handler) os << "    handler: \n";
  for (const auto& remote : manager.remotes)
    os << "    remote: " << (remote.loaded ? " loaded" : "") << '\n';
  dumpAllocator(os, manager);
  if (manager.links.empty()) return;
  os << "    links:\n";
  for (auto* const link : manager.links) {
    link->print(os);
    os << '\n';
  }
}

void dumpManager(std::ostream& os, const CfgMan& manager, unsigned flags) {
  os << "CfgMan { *" << static_cast<const void*>(&manager);
  if (manager.ordered) os << " ordered";
  if (!manager.namePrefix.empty()) os << " \"" << manager.namePrefix << '"';
  os << '\n';
  dumpParts(os, manager);
  if ((flags & kKeySets) != 0) {
    dumpKeys(os, "    config ids:\n", manager.configIds);
    dumpKeys(os, "    state ids:\n", manager.stateIds);
  }
  if (!manager.defcfg.empty()) {
    os << "    defcfg: ";
    manager.defcfg.dump2(os, "", 0, 2);
    os << '\n';
  }
  dumpItems(os, manager, flags);
  os << "};\n";
}

}  // namespace

nv::message CfgHandler::cmdDump(const nv::message& request) {
  constexpr std::size_t kLongest = 1024 * 1024;
  LimitedText beginning(kLongest);
  std::ostream text(&beginning);
  CfgMan::dump(text, request.get(nv::key::getFlags, 0));
  nv::message reply;
  reply.append(nv::key::about, beginning.text());
  return reply;
}

std::list<CfgMan*>& liveManagers() {
  static std::list<CfgMan*> managers;
  return managers;
}

void CfgMan::dump(std::ostream& os, unsigned flags) {
  for (const auto* const manager : liveManagers()) dumpManager(os, *manager, flags);
  os << std::endl;
}

std::ostream& operator<<(std::ostream& os, const CfgMan::Item& item) {
  os << "Item{ " << static_cast<const void*>(&item);
  if (item.inTree) os << " node";
  if (const auto* const ord = item.ord) {
    os << " ord{";
    if (ord->item) os << " item=" << static_cast<const void*>(ord->item);
    if (ord->node.is_linked()) os << " node";
    if (ord->snode.is_linked()) os << " snode";
    os << " }";
  }
  if (item.cookie) os << " cookie=" << item.cookie;
  if (item.about) os << " about";
  if (item.store) os << " store";
  if (!item.links.empty()) os << " #links=" << item.links.size();
  return os << " }";
}

std::ostream& operator<<(std::ostream& os, const CfgMan::Iterator& it) {
  const auto* const manager = it.manager();
  if (manager == nullptr) return os << "(null)";
  os << '*';
  if (!manager->namePrefix.empty())
    os << manager->namePrefix;
  else
    os << static_cast<const void*>(manager);
  if (it.item() == nullptr) return os << ":END";
  return os << ':' << std::hex << it.item()->id << std::dec;
}
