/// Makes sure that what is timed is not a refusal.
#pragma once

#include <cstdlib>
#include <iostream>

#include "platform/errors.h"
#include "platform/observer.h"

namespace bench {

/// Ends the program at the first error that anybody is answered. Made after the kit, in the place
/// of the kit's own observer.
class NoRefusals : public nv::Observer {
 public:
  NoRefusals() { nv::setObserver(this); }
  ~NoRefusals() override { nv::setObserver(nullptr); }
  void reply(const nv::message&, const nv::message& answer) override {
    ++replies;
    if (!nv::isError(answer)) return;
    std::cerr << "refused: ";
    answer.dump2(std::cerr, "", 0);
    std::abort();
  }

  unsigned replies = 0;
};

}  // namespace bench
