/// A dictionary for tests, and messages of it.
#pragma once

#include "platform/describe.h"
#include "platform/keys.h"
#include "tools/confctl/dictionary.h"

namespace confctl::sample {

inline constexpr nv::string_id host{1};
inline constexpr nv::addr6_array_id addresses{2};
inline constexpr nv::bool_id off{3};
inline constexpr nv::message_id link{4};

inline nv::message entry(std::uint32_t uid, std::string_view word, std::string_view line = "") {
  return {
      {nv::describe_key::uid, uid}, {nv::describe_key::word, word}, {nv::describe_key::line, line}};
}

/// Not in the order of the ids.
inline Dictionary dictionary() {
  nv::message description;
  for (const nv::message& key :
       {entry(host.uid(), "host", "its name"), entry(off.uid(), "off", "left out"),
        entry(addresses.uid(), "addresses", "where it is"), entry(link.uid(), "link")}) {
    description.append(nv::key::objects, key);
  }
  return Dictionary(description);
}

}  // namespace confctl::sample
