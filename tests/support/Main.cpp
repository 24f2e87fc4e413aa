// The program of a test suite.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>

#include "NetworkState.h"
#if defined(__GLIBC__)
#include <malloc.h>
#endif

int main(int count, char** words) {
    testing::InitGoogleTest(&count, words);
#if defined(SIGPIPE)
    ::signal(SIGPIPE, SIG_DFL);  // a runner may have left it ignored, and nobody would notice one
#endif
#if defined(__GLIBC__)
    ::mallopt(M_PERTURB, 0xEE);  // fresh memory is never zero by chance
#endif
    return platform::StartSockets() ? RUN_ALL_TESTS() : EXIT_FAILURE;
}
