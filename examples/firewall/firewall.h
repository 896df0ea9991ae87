/// The packet filter of a device: rules in an order in which the first match wins, and a file of
/// them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "containers/omap.h"
#include "examples/firewall/rule.h"
#include "examples/support/kept_file.h"

namespace firewall {

struct Box {
  /// Written for nftables. Its directory must be there.
  std::filesystem::path rulesetFile = "/var/lib/confkit/firewall.nft";
  /// Whether to load the file too, in a network of this process alone.
  bool withKernel = false;
};

/// Keeps the rules for packets that come to the device; refuses faulty ones, and each change after
/// which one that is not disabled would never match, because one before it matches all that it
/// does.
///
/// Some rules come from the program: no command changes, moves or removes them. They are not
/// stored, and the user's stand before, between and behind them; each of those is stored with the
/// one that it stands behind, by which `init()` finds the places of the program's again. At first
/// they stand in front of all that is added.
///
/// The file is written by `init()` and after changes, see KeptFile. Where `nft` is there and may be
/// used, it checks each file before that takes the place of the last one.
///
/// A check looks at each other rule: filters have some hundreds.
class Firewall : public AOmap {
 public:
  static constexpr std::uint32_t kLowestId = 1;
  static constexpr std::uint32_t kHighestId = 65535;

  explicit Firewall(const Box& box);

  OObject* newObject() override { return new Rule; }
  void copyObject(OObject* dst, OObject* src) override;
  nv::message checkRestore(OObject* obj) override;
  nv::message checkAdd(OObject* obj, OObject* next) override;
  nv::message checkChange(OObject* old, OObject* obj, OObject* next) override;
  nv::message checkRemove(OObject* obj, OObject* next) override;
  nv::message checkMove(OObject* obj, OObject* oldNext, OObject* newNext) override;
  void objAdded(OObject*) override { file_.outdate(); }
  void objChanged(OObject*, OObject*) override { file_.outdate(); }
  void objRemoved(OObject*) override { file_.outdate(); }
  void objMoved(OObject*) override { file_.outdate(); }
  void init() override;

 private:
  void placeProgramRules();
  void startChecking();
  void startKernel();
  void tellKernel();

  /// Why `rule` must not stand before `next` as it is; empty when it may.
  std::string refusal(const Rule& rule, OObject* next);
  std::uint32_t behindWhat(OObject* next);
  std::string fileText();

  const bool withKernel_;
  bool isInKernel_ = false;
  examples::KeptFile file_;
};

}  // namespace firewall
