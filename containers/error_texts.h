/// The texts of refusals, shared by the whole library. Clients see them: never change one.
#pragma once

#include <string_view>

#include "platform/message.h"

namespace nv {

/// The index of a text in the table.
enum class ErrorText {
  cantCreateManaged,
  cantChangeManaged,
  cantEditDynamic,
  cantRemoveDynamic,
  cantApplyManaged,
  cantMoveBeforeItself,
  scriptIdAndSource,
  cantModifyRights,
  scriptRightsTooLow,
};

std::string_view errorText(ErrorText which);

/// The error reply with this text and err::failed.
message refusal(ErrorText text);
/// The error reply with this code of nv::err, without a text.
message refusal(unsigned code);

}  // namespace nv
