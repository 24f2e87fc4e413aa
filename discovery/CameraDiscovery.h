/// Finds the cameras that this plug-in can stream from: by a DNS-SD browse, then a probe of each
/// camera's node tree. Nothing is cached between calls.
#pragma once

#include <cstdint>

#include "qmx.h"

namespace qmx::cam::priv {

/// One discovered camera.
struct SCaptureDevice {
    std::uint32_t address;  ///< IPv4, network byte order
    CString name;           ///< as announced; the first one seen for the address
};

/// Appends the cameras that can stream to `devices`, which is not cleared first. Returns true when
/// the list is not empty afterwards. Blocks for the browse and for the probes, one after the other.
/// With `logDetails`, a verbose log also lists type, name, serial number and segment of each
/// camera.
bool FindCaptureDevices(TArray<SCaptureDevice>& devices, bool logDetails);

/// Returns the dotted text of an IPv4 address in network byte order.
[[nodiscard]] CString AddressText(std::uint32_t address);

}  // namespace qmx::cam::priv
