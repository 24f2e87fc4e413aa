/// The output of the small host: results on standard output and everything else on standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Failure.h"
#include "qmx.h"

namespace qmxhost {

using namespace hostkit;  // what every command uses

/// Keeps the keys in the order in which they were set, because people read these lines too.
using Json = nlohmann::ordered_json;

/// Writes a text to standard output and flushes it. Throws a `CFailure` if not all of it can be
/// written: a result that nobody receives is not a success.
void Print(const std::string& text);
/// Prints a value as one line. Camera names come from the network: bytes that are not UTF-8 are
/// replaced, so that they do not make the whole line fail.
void PrintJson(const Json& value);
/// Writes "qmxhost: text" to standard error.
void PrintError(const std::string& text);
/// Writes a hint for a person to standard error.
void PrintHint(const std::string& text);

/// Returns a variant as JSON, which is null for an empty one.
[[nodiscard]] Json ValueAsJson(const qmx::CVariant& value);

}  // namespace qmxhost
