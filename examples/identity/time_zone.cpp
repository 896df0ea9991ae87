#include "examples/identity/time_zone.h"

#include <algorithm>
#include <array>
#include <fstream>

#include "examples/support/texts.h"

namespace identity {
namespace {

constexpr std::size_t kLongestZone = 64;
constexpr std::string_view kMagic = "TZif";

bool isZoneCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("+-_/").find(c) != std::string_view::npos;
}

bool isZoneFile(const std::filesystem::path& file) {
  std::array<char, kMagic.size()> begin{};
  std::ifstream in(file, std::ios::binary);
  return in.read(begin.data(), begin.size()) &&
         std::string_view(begin.data(), begin.size()) == kMagic;
}

}  // namespace

std::string zoneFault(std::string_view zone) {
  const bool isName = !zone.empty() && zone.size() <= kLongestZone && zone.front() != '/' &&
                      zone.back() != '/' && zone.find("//") == zone.npos &&
                      std::all_of(zone.begin(), zone.end(), isZoneCharacter);
  return isName ? ""
                : '"' + examples::shown(zone) + "\" is no time zone: Europe/Berlin and UTC are";
}

std::string missingZone(const std::filesystem::path& directory, const std::string& zone) {
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error) || isZoneFile(directory / zone)) return "";
  return "there is no time zone \"" + zone + "\" in " + directory.string();
}

}  // namespace identity
