#include "examples/support/network.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sched.h>

namespace examples {

std::string enterOwnNetwork() {
  if (::unshare(CLONE_NEWNET) == 0) return "";
  return std::string("no network namespace: ") + std::strerror(errno);
}

std::string complaintOf(const std::string& command) {
  auto* const child = ::popen((command + " 2>&1").c_str(), "r");
  if (child == nullptr) return std::strerror(errno);
  std::string said;
  for (int c = std::getc(child); c != EOF; c = std::getc(child)) said += static_cast<char>(c);
  if (::pclose(child) == 0) return "";
  return command + ": " + said.substr(0, said.find('\n'));
}

std::string shellWord(const std::string& text) {
  std::string word = "'";
  for (const char c : text) c == '\'' ? word += "'\\''" : word += c;
  return word + "'";
}

}  // namespace examples
