/// The bytes of one direction of a captured TCP connection, in order.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "InternetPackets.h"

namespace korusim {

/// Consecutive bytes.
struct STcpPiece {
    std::string bytes;
    bool afterGap = false;  ///< the capture does not contain the bytes before these
};

/// Sorts segments and drops repeated bytes. Bytes that are missing are waited for until too many
/// later ones have been collected. A capture may begin in the middle of a connection.
class CTcpStream {
   public:
    /// Returns the bytes that are in order now.
    [[nodiscard]] std::vector<STcpPiece> Add(const STcpSegment& segment);
    /// Returns the rest, with gaps, when no segment will follow.
    [[nodiscard]] std::vector<STcpPiece> Finish();

   private:
    struct SWaiting {
        std::string bytes;
        std::uint32_t missing;  // bytes at its end that were not captured
    };

    [[nodiscard]] std::uint64_t PositionOf(std::uint32_t sequence) const;
    void Deliver(std::vector<STcpPiece>& pieces);

    std::optional<std::uint64_t> next;  // position of the next byte: its sequence number, unwrapped
    std::map<std::uint64_t, SWaiting> waiting;  // by position
    std::size_t waitingBytes = 0;
    bool gap = false;  // before the next byte
};

}  // namespace korusim
