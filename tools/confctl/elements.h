/// One value, or one element of an array, as text.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/id_traits.h"

namespace confctl {

/// A text or JSON value that does not fit the type of its field. Says what is wrong with it.
struct BadValue : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A number in decimal, or in hexadecimal after "0x"; none when it is not one or is above `max`.
std::optional<std::uint64_t> readNumber(std::string_view text, std::uint64_t max);

// Each `fromText` sets `out` or throws BadValue.

/// "true" or "false".
void fromText(std::string_view text, bool& out);
/// An element of a bool array.
void fromText(std::string_view text, unsigned char& out);
void fromText(std::string_view text, std::uint32_t& out);
void fromText(std::string_view text, std::uint64_t& out);
/// IPv6, or IPv4, which is held as an IPv4-mapped IPv6 address.
void fromText(std::string_view text, nv::addr6& out);
/// As it is.
void fromText(std::string_view text, std::string& out);
/// Pairs of hexadecimal digits.
void fromText(std::string_view text, std::vector<unsigned char>& out);

std::string toText(bool value);
std::string toText(unsigned char value);
std::string toText(std::uint32_t value);
std::string toText(std::uint64_t value);
std::string toText(const nv::addr6& address);
std::string toText(std::string_view text);
std::string toText(nv::byte_view bytes);

}  // namespace confctl
