#include "examples/firewall/nft.h"

#include "examples/support/network.h"

namespace firewall {

std::string nftComplaint() {
  return examples::complaintOf("echo 'table inet confkit' | nft -c -f -");
}

std::string checkRuleset(const std::filesystem::path& file) {
  return examples::complaintOf("nft -c -f " + examples::shellWord(file.string()));
}

std::string loadRuleset(const std::filesystem::path& file) {
  return examples::complaintOf("nft -f " + examples::shellWord(file.string()));
}

}  // namespace firewall
