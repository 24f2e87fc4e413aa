#include "FrameChecker.h"

#include "FrameStamp.h"

namespace qmxhost {

void CFrameChecker::Check(std::span<const std::uint8_t> frame, std::uint64_t arrival) {
    const korusim::SStamp stamp = korusim::ReadStamp(frame);
    if (stamp.state != korusim::EStamp::Good) {
        ++sums.damaged;
        return;
    }
    ++sums.good;
    if (last) {
        // Modulo 2^32: the numbers wrap on a long run.
        const auto step = static_cast<std::int32_t>(stamp.number - last->number);
        const std::uint64_t delivered = arrival - last->arrival;
        if (step < 0) {
            ++sums.backwards;
        } else if (step == 0) {
            ++sums.repeated;
        } else if (static_cast<std::uint64_t>(step) > delivered) {
            sums.missing += static_cast<std::uint64_t>(step) - delivered;
        }
    }
    last = SGoodFrame{stamp.number, arrival};
}

}  // namespace qmxhost
