/// Which cameras on the network can this plug-in stream from? A DNS-SD browse, then a probe of each
/// camera's node tree. Nothing is remembered between calls.
#pragma once

#include <cstdint>

#include "qmx.h"

namespace qmx::cam::priv {

/// One discovered camera.
struct SCaptureDevice {
    std::uint32_t address;  ///< IPv4, network byte order
    CString name;           ///< as announced; the first one seen for the address
};

/// Appends the cameras that can stream to `devices`, which is not cleared first, and gives true
/// when the list has an entry at the end. Blocks for the browse and for one probe after the other.
/// With `logDetails` a verbose log also tells each camera's type, name, serial and segment.
bool FindCaptureDevices(TArray<SCaptureDevice>& devices, bool logDetails);

/// The dotted text of an IPv4 address in network byte order.
[[nodiscard]] CString AddressText(std::uint32_t address);

}  // namespace qmx::cam::priv
