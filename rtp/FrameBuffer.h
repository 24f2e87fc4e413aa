/// The memory in which frames are assembled and from which the host reads them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

namespace qmx::cam {

/// A buffer that only grows, so that no frame allocates but the first of its size.
class CFrameBuffer {
   public:
    /// Makes the buffer exactly `required` bytes long if it is shorter. New memory is zero, so that
    /// no memory that was used for something else ever reaches the host in a frame. Returns false,
    /// and changes nothing, when there is no memory.
    [[nodiscard]] bool GrowTo(std::uint32_t required) noexcept;
    [[nodiscard]] std::uint8_t* data() noexcept { return bytes.get(); }
    [[nodiscard]] std::uint32_t capacity() const noexcept { return size; }
    /// The first `length` bytes, which must be there.
    [[nodiscard]] std::span<const std::uint8_t> First(std::uint32_t length) const noexcept {
        return {bytes.get(), length};
    }

   private:
    struct SFree {
        void operator()(std::uint8_t* memory) const noexcept { std::free(memory); }
    };
    std::unique_ptr<std::uint8_t[], SFree> bytes;
    std::uint32_t size = 0;
};

}  // namespace qmx::cam
