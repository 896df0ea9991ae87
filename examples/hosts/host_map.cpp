#include "examples/hosts/host_map.h"

#include <iostream>
#include <utility>

#include "examples/hosts/host_names.h"
#include "examples/hosts/hosts_file.h"
#include "examples/support/replace_file.h"
#include "platform/runner.h"

namespace hosts {
namespace {

Host& host(Object* obj) { return static_cast<Host&>(*obj); }

std::string keyOf(Object* obj) { return nameKey(host(obj).hostName); }

}  // namespace

HostMap::HostMap(std::filesystem::path file)
    : AMap("hosts", kLowestId, kHighestId), file_(std::move(file)) {
  describe("hosts", {{kName.uid(), "name", "what the host is called"},
                     {kAddresses.uid(), "addresses", "where it is, IPv4 and IPv6"},
                     {kComment.uid(), "comment", "a line for people"},
                     {kDisabled.uid(), "disabled", "kept, but not told to the resolver"},
                     {kScript.uid(), "script", "run when the addresses change"}});
  nv::getRunner().addBeforeSleep([self = std::weak_ptr(self_)] {
    if (const auto map = self.lock()) (*map)->writeFile();
  });
}

void HostMap::init() {
  AMap::init();
  writeFile();
}

void HostMap::writeFile() {
  if (!std::exchange(fileIsOld_, false)) return;
  const auto error = examples::replaceFile(file_, fileText());
  if (error.empty()) return;
  std::cerr << "hosts: " << error << std::endl;
  retry_ = nv::Timer(kRetryInterval, [this] { fileIsOld_ = true; });
}

std::string HostMap::fileText() {
  std::string text = "# Written by the hosts service. Changes made here are lost.\n";
  for (auto* const obj : *this) text += hostsLines(host(obj));
  return text;
}

std::uint32_t HostMap::idOf(std::string_view name) const {
  const auto found = idsByName_.find(nameKey(name));
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
  fileIsOld_ = true;
}

void HostMap::objChanged(Object* old, Object* obj) {
  idsByName_.erase(keyOf(old));
  objAdded(obj);
  if (host(old).addresses != host(obj).addresses) host(obj).runScript();
}

void HostMap::objRemoved(Object* obj) {
  idsByName_.erase(keyOf(obj));
  fileIsOld_ = true;
}

}  // namespace hosts
