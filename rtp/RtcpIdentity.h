/// The identity of this receiver in RTCP. Allocates nothing, because it is created on a thread of
/// the receiver.
#pragma once

#include <array>

#include "RtcpPackets.h"

namespace qmx::cam {

/// A NUL-terminated host name.
using HostNameBuffer = std::array<char, 256>;

/// Returns the bare host name of this machine, or "localhost" when the system does not state it.
/// This is the CNAME; there is no user part.
[[nodiscard]] HostNameBuffer OwnHostName() noexcept;

/// Makes an SSRC for one run from the host name and the C library's random numbers, whose generator
/// it seeds for the whole process.
[[nodiscard]] SsrcBytes MakeSsrc() noexcept;

}  // namespace qmx::cam
