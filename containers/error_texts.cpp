#include "containers/error_texts.h"

#include <array>
#include <cstddef>

#include "platform/errors.h"

namespace nv {
namespace {

constexpr std::array<std::string_view, 9> kTexts = {
    "can not create managed object",
    "can not change managed object",
    "can't edit dynamic object",
    "can't remove dynamic object",
    "can not apply managed config",
    "can not move object before itself",
    "cannot set script id and source at the same time",
    "cannot modify rights",
    "cannot change script source value with higher rights",
};

}  // namespace

std::string_view errorText(ErrorText which) { return kTexts[static_cast<std::size_t>(which)]; }

message refusal(ErrorText text) { return failedMsg(errorText(text)); }

message refusal(unsigned code) { return errorMsg(code, ""); }

}  // namespace nv
