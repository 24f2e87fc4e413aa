/// Texts of the system's error codes. The plug-in does not use them.
#pragma once

#include <string>

namespace platform {

/// Returns the system's text for an error code, and its number.
[[nodiscard]] std::string SystemErrorText(unsigned long code);

}  // namespace platform
