// Frames of any size, up to 32 MiB; slower by the time that it takes to fill them.
#include "FrameRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    fuzz::RunFrames(input, true);
    return 0;
}
