/// The texts of refusals, shared by the whole library. Clients see them: never change one.
#pragma once

#include <string_view>

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

}  // namespace nv
