/// Store files that were filled at random, to be damaged and opened again.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/message.h"
#include "tests/support/random.h"

namespace store_test {

using Bytes = std::vector<unsigned char>;

/// The page size of a store file.
inline constexpr std::size_t kPage = 1024;

Bytes readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, const Bytes& bytes);

/// A record whose value is its number, four bytes over and over, so that each page with a part of
/// it can be found.
nv::message value(unsigned number, unsigned repeats);
/// The pages of the file that hold a part of such a record.
std::set<std::size_t> pagesOf(const Bytes& file, const nv::message& record);

using Key = std::pair<std::string, std::uint32_t>;
using Records = std::map<Key, nv::message>;

/// A store file and its log, and what is known about them.
struct Sample {
  Bytes file, log;
  std::vector<Records> commits;  // after each one
  std::map<Key, std::vector<nv::message>> everWritten;

  const Records& last() const { return commits.back(); }
};

/// A file to which so many batches of changes were committed, as a killed process leaves it, or
/// closed in an orderly way: then all is in the file.
Sample makeSample(Random& random, unsigned batches, bool closed);

/// What a service finds.
struct Opened {
  Records records;
  std::string output;
  bool setAside;
};
/// Opens the file as a service does, twice: what was repaired must be whole the second time.
Opened openTwice(const Bytes& file, const Bytes& log);

}  // namespace store_test
