/// The one place where bytes from outside are judged.
#pragma once

#include <string_view>

#include "platform/src/message/flat_layout.h"

namespace nv::flat {

/// Checks that bytes are the flat form of a message, down to the innermost one: bounds, order,
/// types and the one form that each value has. Reads nothing twice and allocates nothing. Once it
/// is content, no access to a message of these bytes can leave them.
class reader {
 public:
  /// Messages may be nested at most `depth` deep; message::kNestedUnread leaves them unjudged.
  reader(byte_view bytes, unsigned depth) : bytes_(bytes), depth_(depth) {}

  /// What is wrong, in a few words; empty when nothing is.
  std::string_view fault();

 private:
  std::string_view headerFault();
  std::string_view wordsFault() const;
  std::string_view valuesFault() const;
  std::string_view valueFault(std::uint32_t uid, byte_view value) const;
  std::string_view listFault(std::uint32_t type, byte_view list) const;
  std::string_view nestedFault(byte_view nested) const;
  std::string_view orderFault() const;

  byte_view bytes_;
  unsigned depth_;
  std::size_t fields_ = 0;
  std::size_t words_ = 0;
};

}  // namespace nv::flat
