/// What may be the name of a host.
#pragma once

#include <string>
#include <string_view>

namespace examples {

/// Why `name` is no host name; empty when it is one: labels of 1 to 63 letters, digits and inner
/// '-', joined by '.', at most 253 characters together. The last label is no number: such a name
/// reads as an address.
std::string hostNameFault(std::string_view name);

/// The same for all spellings of one name.
std::string nameKey(std::string_view name);

}  // namespace examples
