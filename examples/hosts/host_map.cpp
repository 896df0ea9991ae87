#include "examples/hosts/host_map.h"

#include <utility>

#include "examples/hosts/hosts_file.h"
#include "examples/support/host_names.h"

namespace hosts {
namespace {

Host& host(Object* obj) { return static_cast<Host&>(*obj); }

std::string keyOf(Object* obj) { return examples::nameKey(host(obj).hostName); }

}  // namespace

HostMap::HostMap(std::filesystem::path file)
    : AMap("hosts", kLowestId, kHighestId),
      file_("hosts", std::move(file), [this] { return fileText(); }) {
  describe("hosts", {{kName.uid(), "name", "what the host is called"},
                     {kAddresses.uid(), "addresses", "where it is, IPv4 and IPv6"},
                     {kComment.uid(), "comment", "a line for people"},
                     {kDisabled.uid(), "disabled", "kept, but not told to the resolver"},
                     {kScript.uid(), "script", "run when the addresses change"}});
}

void HostMap::init() {
  AMap::init();
  file_.write();
}

std::string HostMap::fileText() {
  std::string text = "# Written by the hosts service. Changes made here are lost.\n";
  for (auto* const obj : *this) text += hostsLines(host(obj));
  return text;
}

std::uint32_t HostMap::idOf(std::string_view name) const {
  const auto found = idsByName_.find(examples::nameKey(name));
  return found == idsByName_.end() ? nv::kNoId : found->second;
}

nv::message HostMap::check(Object* obj) const {
  if (const auto fault = host(obj).fault(); !fault.empty()) return nv::failedMsg(fault);
  const auto holder = idOf(host(obj).hostName);
  if (holder == nv::kNoId || holder == obj->id) return {};
  return nv::failedMsg("the name \"" + host(obj).hostName + "\" is taken by object " +
                       std::to_string(holder));
}

void HostMap::copyObject(Object* dst, Object* src) { host(dst) = host(src); }

nv::message HostMap::checkChange(Object*, Object* obj) { return check(obj); }

void HostMap::objAdded(Object* obj) {
  idsByName_[keyOf(obj)] = obj->id;
  file_.outdate();
}

void HostMap::objChanged(Object* old, Object* obj) {
  idsByName_.erase(keyOf(old));
  objAdded(obj);
  if (host(old).addresses != host(obj).addresses) host(obj).runScript();
}

void HostMap::objRemoved(Object* obj) {
  idsByName_.erase(keyOf(obj));
  file_.outdate();
}

}  // namespace hosts
