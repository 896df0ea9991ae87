/// Text of which the beginning counts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <streambuf>
#include <string>
#include <string_view>

/// Keeps the first `limit` bytes that are written to it; at more the stream goes bad, so that what
/// follows costs next to nothing.
class LimitedText : public std::streambuf {
 public:
  explicit LimitedText(std::size_t limit) : limit_(limit) {}
  std::string_view text() const { return text_; }

 protected:
  int_type overflow(int_type c) override {
    const auto letter = traits_type::to_char_type(c);
    return xsputn(&letter, 1) == 1 ? c : traits_type::eof();
  }
  std::streamsize xsputn(const char* from, std::streamsize count) override {
    const auto kept = std::min(static_cast<std::size_t>(count), limit_ - text_.size());
    text_.append(from, kept);
    return static_cast<std::streamsize>(kept);
  }

 private:
  std::size_t limit_;
  std::string text_;
};
