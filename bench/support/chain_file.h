/// Store files that hold a long chain.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/store_engine.h"

namespace bench {

/// A file with one store, "chain", of records that come in the order `ids`.
void writeChain(const std::filesystem::path& file, const std::vector<std::uint32_t>& ids);
std::unique_ptr<nv::StoreEngine> openChain(const std::filesystem::path& file);

/// The ids 1 to `count`: ascending, or in random order.
std::vector<std::uint32_t> ascending(std::uint32_t count);
std::vector<std::uint32_t> shuffled(std::uint32_t count);

/// Processor time of reading each record once in the order `ids`, in a process that has opened the
/// file.
double readAlone(const std::filesystem::path& file, const std::vector<std::uint32_t>& ids);

}  // namespace bench
