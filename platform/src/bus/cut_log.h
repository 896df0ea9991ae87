/// The lines that tell of cut clients.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/timer.h"

namespace nv {

/// Writes them to the standard output. A user who is cut again and again would fill the disk with
/// them: after ten lines within a second the rest of that second is one line, which counts them.
class CutLog {
 public:
  void add(std::uint32_t user, const std::string& line);

 private:
  void tellCounts();

  std::map<std::uint32_t, unsigned> cuts_;  // by user, in this second
  Timer second_;                            // runs from the first of them
};

}  // namespace nv
