// Responses of ordinary length, thousands of inputs a second.
#include "ResponseRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::CFuzzInput input(data, size);
    fuzz::RunResponse(input, false);
    return 0;
}
