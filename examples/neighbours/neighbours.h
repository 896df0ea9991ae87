/// The neighbours of a device: those that users made known, and those that the kernel has met.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "cfgman/cfgman.h"
#include "cfgman/link.h"
#include "examples/neighbours/neighbour.h"
#include "getall/stateful_getall.h"

namespace neighbours {

/// Keeps static neighbours and refuses faulty ones and a second one for an address of a device. Get
/// all shows them and then goes on with the kernel's tables of neighbours and connections, which
/// are read while the client asks; live records have no id.
///
/// Get count counts the static ones: how many the kernel has is not known before they are read.
class Neighbours final : public StatefulGetall, private CfgMan::Link {
 public:
  /// How often the kernel's tables may be read at one time, by one client and by all: each holds a
  /// file open. A further get all is refused with err::noIterationId.
  static constexpr std::size_t kMostOfOneClient = 4;
  static constexpr std::size_t kMost = 512;

  /// `tables`: the directory of the kernel's tables, /proc/net.
  explicit Neighbours(std::filesystem::path tables);
  /// Reads the store, and then answers as handler `id`. Called once.
  void open(unsigned id);

  CfgMan& manager() { return manager_; }
  /// Iterations that read the kernel's tables, of all clients.
  std::size_t iterations() const { return open_->size(); }

 private:
  using Item = CfgMan::Item;
  using Clients = std::multiset<std::vector<std::uint32_t>>;

  GetallState* newState(const nv::message& request) override;
  std::uint32_t count(const nv::message& request) override;

  void apply(const Item& item, const nv::message& cfg, nv::message& reply) const;
  void update(Item* item, const nv::message& oldCfg, const nv::message& newCfg,
              const nv::message& oldState, const nv::message& newState,
              const vset<unsigned>& keys) override;
  void print(std::ostream& os) override;

  std::filesystem::path tables_;
  /// Whose iterations read the kernel's tables. They may end after this.
  std::shared_ptr<Clients> open_ = std::make_shared<Clients>();
  std::map<Place, std::uint32_t> byPlace_;
  CfgMan manager_{nullptr};
};

}  // namespace neighbours
