#include "FrameAssembler.h"

#include <type_traits>
#include <utility>

namespace qmx::cam {
namespace {

constexpr std::size_t kindCount = std::variant_size_v<Depacketizer>;

/// Calls `use` with the number and the type of each kind but the first, which is none.
template <class Use, std::size_t... index>
void ForEachKind(Use use, std::index_sequence<index...>) {
    (use.template operator()<std::variant_alternative_t<index + 1, Depacketizer>>(index + 1), ...);
}
template <class Use>
void ForEachKind(Use use) {
    ForEachKind(use, std::make_index_sequence<kindCount - 1>());
}

}  // namespace

std::uint32_t StreamTypeOf(std::string_view streamName) noexcept {
    std::uint32_t type = 0;
    ForEachKind([&]<class Kind>(std::size_t number) {
        if (streamName == Kind::streamName) type = static_cast<std::uint32_t>(number);
    });
    return type;
}

CFrameAssembler::CFrameAssembler(std::uint32_t streamType) noexcept {
    ForEachKind([&]<class Kind>(std::size_t number) {
        if (number == streamType) depacketizer.emplace<Kind>();
    });
}

FinishedFrame CFrameAssembler::Add(const SRtpPacket& packet) noexcept {
    return std::visit(
        [&](auto& kind) -> FinishedFrame {
            if constexpr (std::is_same_v<decltype(kind), std::monostate&>) {
                return std::nullopt;
            } else {
                return kind.Add(packet);
            }
        },
        depacketizer);
}

}  // namespace qmx::cam
