/// The process that the fuzz targets of the bus torment: an object map of texts on the testing kit.
#pragma once

#include <iostream>
#include <map>
#include <string>

#include "fuzz/require.h"
#include "testing/kit.h"
#include "tests/support/text_map.h"
#include "tests/support/verify.h"

namespace fuzz {

inline constexpr std::uint32_t kAddress = 100;

/// One life of the process. Lives on one set of stores follow one another.
class TextProcess {
 public:
  explicit TextProcess(nv::testkit::MemoryStores& stores) : kit(stores) {
    std::cout.rdbuf(nullptr);  // the diagnosis of each cut
    kit.listen(kAddress);
    texts.init();
    nv::getLooper()->addHandler(kAddress, &texts);
  }

  std::map<std::uint32_t, std::string> contents() const {
    std::map<std::uint32_t, std::string> all;
    for (const auto& [id, obj] : texts.objects)
      all[id] = static_cast<const nv::testkit::Text&>(*obj).text;
    return all;
  }

  /// What holds of the map whatever it was asked.
  void verify() const { require(test::verify(texts).empty()); }

  nv::testkit::Kit kit;
  nv::testkit::TextMap texts;
};

/// A process that starts on the stores knows the same texts.
inline void requireSameAfterRestart(nv::testkit::MemoryStores& stores,
                                    const std::map<std::uint32_t, std::string>& texts) {
  const TextProcess again(stores);
  require(again.contents() == texts);
}

}  // namespace fuzz
