// Responses up to and beyond the limits of a line and of a body.
#include "ResponseRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    fuzz::RunResponse(input, true);
    return 0;
}
