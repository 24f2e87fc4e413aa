/// Assembles packets to complete frames, for every kind of stream. The input is parsed packets, the
/// output finished frames; it uses no socket, no thread and no host.
#pragma once

#include <cstdint>
#include <string_view>
#include <variant>

#include "MjlsDepacketizer.h"
#include "MjpgDepacketizer.h"
#include "ZrawDepacketizer.h"

namespace qmx::cam {

/// The kinds of stream, one row each. A kind's place in the list is its stream type; the first one
/// is none. A new kind is a class with a `streamName` and an `Add`, and a row here.
using Depacketizer = std::variant<std::monostate,     //
                                  CZrawDepacketizer,  //
                                  CMjlsDepacketizer,  //
                                  CMjpgDepacketizer>;

/// Returns the type of the stream with a name such as "ZRAW", compared exactly, or 0 when there is
/// none.
[[nodiscard]] std::uint32_t StreamTypeOf(std::string_view streamName) noexcept;

/// Assembles the frames of one run. Lives on the receive thread.
class CFrameAssembler {
   public:
    explicit CFrameAssembler(std::uint32_t streamType) noexcept;

    /// Returns the finished frame if the packet ended one.
    [[nodiscard]] FinishedFrame Add(const SRtpPacket& packet) noexcept;

   private:
    Depacketizer depacketizer;
};

}  // namespace qmx::cam
