#include "examples/hosts/host.h"

#include "examples/hosts/addresses.h"
#include "examples/support/addresses.h"
#include "examples/support/host_names.h"
#include "examples/support/take.h"
#include "examples/support/texts.h"
#include "platform/run_request.h"

namespace hosts {
namespace {

// What a script runs with, in its configuration.
constexpr nv::u32_id kScriptRights{2};
constexpr nv::string_id kScriptOrigin{3};

nv::flat_message word(const std::string& text) {
  return nv::message{{nv::run_key::word, text}}.flat();
}

}  // namespace

void Host::getConfig(nv::message& out, std::uint32_t flags) {
  out.insert(kName, hostName).insert(kAddresses, addresses);
  out.insert(kComment, comment).insert(kDisabled, disabled);
  auto shown = script.toCfg();
  if ((flags & nv::kStoreBit) == 0) {
    shown.remove(kScriptRights);
    shown.remove(kScriptOrigin);
  }
  out.insert(kScript, shown);
}

void Host::setConfig(const nv::message& in, std::uint32_t flags) {
  examples::take(in, kName, hostName);
  examples::take(in, kAddresses, addresses);
  examples::take(in, kComment, comment);
  examples::take(in, kDisabled, disabled);
  setScript(in, flags);
}

void Host::setScript(const nv::message& in, std::uint32_t flags) {
  scriptFault_.clear();
  const nv::message cfg(in.view(kScript));
  if ((flags & nv::kStoreBit) != 0) return script.fromStore(cfg);
  if (!in.has(kScript) && !in.hasElem(nv::key::removals, kScript.uid())) return;
  const auto rights = in.get(nv::key::rights, nv::kSystemRights);
  nv::message refusal = nv::failedMsg("");  // only what is not empty is written to
  if (!script.update(cfg, rights, (rights & nv::kSystemRights) != 0 ? "system" : "user", &refusal))
    scriptFault_ = nv::getError(refusal);
}

void Host::runScript() const {
  std::vector<nv::flat_message> words{word(hostName)};
  for (const auto& address : addresses) words.push_back(word(examples::addressText(address)));
  script.run(std::move(words));
}

std::string Host::fault() const {
  for (auto why : {examples::hostNameFault(hostName), addressesFault(addresses), examples::commentFault(comment),
                   scriptFault_})
    if (!why.empty()) return why;
  return "";
}

}  // namespace hosts
