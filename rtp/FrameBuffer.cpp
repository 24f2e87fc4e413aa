#include "FrameBuffer.h"

#include <cstring>

namespace qmx::cam {

// `realloc`, because the first frame of a coded stream grows packet by packet and must not be
// copied as often.
bool CFrameBuffer::GrowTo(std::uint32_t required) noexcept {
    if (size >= required) return true;
    auto* const larger = static_cast<std::uint8_t*>(std::realloc(bytes.get(), required));
    if (larger == nullptr) return false;
    (void)bytes.release();
    bytes.reset(larger);
    std::memset(larger + size, 0, required - size);
    size = required;
    return true;
}

}  // namespace qmx::cam
