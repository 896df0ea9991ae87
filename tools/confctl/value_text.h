/// Values as plain text: what stands after "name=" on the command line.
///
/// An array is its elements with commas between; within them a comma is "\," and a backslash "\\".
/// No text at all is an empty array. Messages have no such form: theirs is JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/message.h"
#include "tools/confctl/elements.h"

namespace confctl {

/// Whether the field holds messages.
bool holdsMessages(std::uint32_t uid);

/// Gives `into` the field `uid` with the value that `text` stands for. Throws BadValue.
/// Requires: the field does not hold messages.
void insertText(nv::message& into, std::uint32_t uid, std::string_view text);

/// The text that `insertText` takes for the value; none when there is none, or it could not be
/// shown as it stands (see isPlain).
std::optional<std::string> textOf(const nv::field& f);

}  // namespace confctl
