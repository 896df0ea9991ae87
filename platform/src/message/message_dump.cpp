// A message as text for people.
#include <charconv>
#include <ostream>

#include "platform/message.h"
#include "platform/src/message/flat_reader.h"

namespace nv {

namespace {

/// Writes with unformatted output alone, so that the stream's format is neither heard nor changed.
class dumper {
 public:
  dumper(std::ostream& os, std::string_view prefix, unsigned step)
      : os_(os), prefix_(prefix), step_(step) {}

  void dump(const message& m, unsigned indent, unsigned depth) {
    depth_ = depth;
    text("{");
    bool first = true;
    for (const field f : m) {
      if (!first && step_ == 0) text(", ");
      first = false;
      line(indent + step_);
      number(f.id());
      text(typeSuffix(f.uid()));
      text(" ");
      withId(f.uid(), [&](auto id) { value(f.as<decltype(id)>(), indent + step_); });
    }
    if (!first) line(indent);
    text("}");
  }

 private:
  void value(bool flag, unsigned) { text(flag ? "true" : "false"); }
  void value(unsigned char flag, unsigned indent) { value(flag != 0, indent); }
  void value(std::uint32_t n, unsigned) { number(n); }
  void value(std::uint64_t n, unsigned) { number(n); }
  void value(const addr6& address, unsigned) { hex(address.bytes); }
  void value(byte_view bytes, unsigned) { hex(bytes); }
  void value(std::string_view string, unsigned) {
    text("\"");
    for (const char c : string) character(c);
    text("\"");
  }
  void value(flat_view flat, unsigned indent) {
    const bool readable = depth_ < message::kMaxDepth && message::check(flat.bytes()).empty();
    if (!readable) return hex(flat.bytes());
    dumper(os_, prefix_, step_).dump(message(flat), indent, depth_ + 1);
  }
  template <class E>
  void value(const array_view<E>& array, unsigned indent) {
    text("[");
    for (std::size_t k = 0; k < array.size(); ++k) {
      if (k != 0) text(", ");
      value(array[k], indent);
    }
    text("]");
  }

  void line(unsigned indent) {
    if (step_ == 0) return;
    text("\n");
    text(prefix_);
    for (unsigned k = 0; k < indent; ++k) text(" ");
  }
  void number(std::uint64_t n) {
    char digits[20];
    const char* end = std::to_chars(digits, digits + sizeof digits, n).ptr;
    text({digits, static_cast<std::size_t>(end - digits)});
  }
  void hex(byte_view bytes) {
    text("x");
    for (const unsigned char byte : bytes) hexByte(byte);
  }
  void hexByte(unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    const char pair[] = {digits[byte >> 4], digits[byte & 0xf]};
    text({pair, 2});
  }
  void character(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      text("\\");
      text({&c, 1});
    } else if (byte < 0x20 || byte == 0x7f) {
      text("\\x");
      hexByte(byte);
    } else {
      text({&c, 1});
    }
  }
  void text(std::string_view s) { os_.write(s.data(), static_cast<std::streamsize>(s.size())); }

  std::ostream& os_;
  std::string_view prefix_;
  unsigned step_;
  unsigned depth_ = 0;
};

}  // namespace

void message::dump2(std::ostream& os, std::string_view prefix, unsigned indent,
                    unsigned step) const {
  dumper(os, prefix, step).dump(*this, indent, 0);
}

}  // namespace nv
