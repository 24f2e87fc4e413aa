// The main program of the tests.
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
    ::signal(SIGPIPE, SIG_DFL);  // a test runner may ignore it, which would hide one
#endif
#if defined(__GLIBC__)
    ::mallopt(M_PERTURB, 0xEE);  // new memory is never zero by chance
#endif
    return platform::StartSockets() ? RUN_ALL_TESTS() : EXIT_FAILURE;
}
