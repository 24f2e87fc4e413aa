/// Keeps the exceptions of a foreign callback out of the thread that calls it.
#pragma once

#include <utility>

#if defined(__GLIBCXX__)
#include <cxxabi.h>
#endif

namespace platform {

/// Calls `function` and discards any exception that it throws. When the callee ends the calling
/// thread (`pthread_exit`, `pthread_cancel`), the C library unwinds the stack as if by an
/// exception; that passes through, because discarding it would abort the process.
template <class Function>
void CallDiscardingExceptions(Function&& function) {
#if defined(__GLIBCXX__)
    try {
        std::forward<Function>(function)();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
#else
    try {
        std::forward<Function>(function)();
    } catch (...) {
    }
#endif
}

}  // namespace platform
