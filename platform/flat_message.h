/// Flat forms: the bytes of a message, as they are stored, sent and nested.
///
/// The flat form of an empty message is no bytes. Neither class promises that its bytes are those
/// of a message; `nv::message` checks them when it is built from them.
#pragma once

#include <utility>
#include <vector>

#include "platform/bytes.h"

namespace nv {

class message;
class flat_message;

/// The flat form of a message, borrowed: valid while its owner lives unchanged.
class flat_view {
 public:
  flat_view() = default;
  flat_view(byte_view bytes) : bytes_(bytes) {}
  flat_view(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}
  inline flat_view(const flat_message& flat);

  byte_view bytes() const { return bytes_; }
  std::size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }

 private:
  byte_view bytes_;
};

/// The flat form of a message, owned. A value; equal when the bytes are.
class flat_message {
 public:
  flat_message() = default;
  flat_message(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}
  explicit flat_message(flat_view flat) : bytes_(flat.bytes().begin(), flat.bytes().end()) {}

  byte_view bytes() const { return bytes_; }
  const unsigned char* data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }
  auto begin() const { return bytes_.begin(); }
  auto end() const { return bytes_.end(); }

  friend bool operator==(const flat_message&, const flat_message&) = default;

 private:
  std::vector<unsigned char> bytes_;
};

flat_view::flat_view(const flat_message& flat) : bytes_(flat.bytes()) {}

}  // namespace nv
