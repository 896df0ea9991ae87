/// The file through which other programs learn who the device is.
#pragma once

#include <string>

#include "examples/identity/settings.h"

namespace identity {

/// A line a field, `HOST_NAME="gate"`, as a shell and the readers of os-release files take it. The
/// values must be without fault.
std::string identityText(const Values& values);

}  // namespace identity
