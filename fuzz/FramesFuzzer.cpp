// Frames of up to some 60 KiB, thousands of inputs a second.
#include "FrameRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    fuzz::RunFrames(input, false);
    return 0;
}
