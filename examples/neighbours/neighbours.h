/// The neighbours of a device: those that users made known, and those that the kernel has met.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>

#include "cfgman/cfgman.h"
#include "cfgman/link.h"
#include "examples/neighbours/neighbour.h"
#include "getall/stateful_getall.h"

namespace neighbours {

/// Keeps static neighbours and refuses faulty ones and a second one for an address. Get all shows
/// them and then goes on with the kernel's tables of neighbours and connections, which are read
/// while the client asks; live records have no id.
///
/// Get count counts the static ones: how many the kernel has is not known before they are read.
class Neighbours final : public StatefulGetall, private CfgMan::Link {
 public:
  /// Iterations that read the kernel's tables at one time. A further one is refused with
  /// err::noIterationId.
  static constexpr std::size_t kMostIterations = 64;

  /// `tables`: the directory of the kernel's tables, /proc/net.
  explicit Neighbours(std::filesystem::path tables);
  /// Reads the store, and then answers as handler `id`. Called once.
  void open(unsigned id);

  CfgMan& manager() { return manager_; }
  /// Iterations that are under way.
  std::size_t iterations() const { return static_cast<std::size_t>(open_.use_count()) - 1; }

 private:
  using Item = CfgMan::Item;

  GetallState* newState(const nv::message& request) override;
  std::uint32_t count(const nv::message& request) override;

  void apply(const Item& item, const nv::message& cfg, nv::message& reply) const;
  void update(Item* item, const nv::message& oldCfg, const nv::message& newCfg,
              const nv::message& oldState, const nv::message& newState,
              const vset<unsigned>& keys) override;
  void print(std::ostream& os) override;

  std::filesystem::path tables_;
  std::shared_ptr<void> open_ = std::make_shared<char>();  // each iteration holds one more
  std::map<Place, std::uint32_t> byPlace_;
  CfgMan manager_{nullptr};
};

}  // namespace neighbours
