#include "Impairments.h"

namespace korusim {

CImpairments::CImpairments(const SCameraSettings& settings, std::uint64_t seed)
    : loss(settings.loss), duplicate(settings.duplicate), reorder(settings.reorder), random(seed) {}

bool CImpairments::Happens(double probability) {
    // Unlike the generator, the library's distributions differ between implementations.
    constexpr double unit = 1.0 / 9007199254740992.0;  // 2^-53
    return static_cast<double>(random() >> 11) * unit < probability;
}

void CImpairments::Pass(std::span<const std::uint8_t> packet, const PacketSink& sink) {
    // Each packet uses three numbers, so that one setting does not change the effect of another.
    const bool lost = Happens(loss);
    const bool doubled = Happens(duplicate);
    const bool late = Happens(reorder);
    if (lost) {
        ++counts.dropped;
        return;
    }
    if (late && delayed.empty()) {
        ++counts.reordered;
        delayed.assign(packet.begin(), packet.end());
        return;
    }
    sink(packet);
    if (doubled) {
        ++counts.duplicated;
        sink(packet);
    }
    Flush(sink);
}

void CImpairments::Flush(const PacketSink& sink) {
    if (delayed.empty()) return;
    sink(delayed);
    delayed.clear();
}

}  // namespace korusim
