#include "examples/support/options.h"

#include <cstdlib>
#include <iostream>

namespace examples {

void refuseToStart(const std::string& service, const std::string& why) {
  std::cerr << service << ": " << why << std::endl;
  std::exit(EXIT_FAILURE);
}

bool yesOrNo(const std::string& service, const std::string& option, const std::string& text) {
  if (text != "yes" && text != "no") refuseToStart(service, option + " is yes or no");
  return text == "yes";
}

}  // namespace examples
