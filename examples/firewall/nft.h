/// The program `nft`, found by PATH. Each operation waits for its end.
#pragma once

#include <filesystem>
#include <string>

namespace firewall {

/// Why rulesets cannot be checked here: there is no `nft`, or this process may not use it. Empty
/// when they can.
std::string nftComplaint();
/// Why the file is no ruleset that could be loaded; empty when it is one. Loads nothing.
std::string checkRuleset(const std::filesystem::path& file);
/// Loads the file into the kernel, all of it or nothing: empty, or why not.
std::string loadRuleset(const std::filesystem::path& file);

}  // namespace firewall
