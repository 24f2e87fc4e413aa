// The system's lock of this kind is one word, too. The POSIX implementation would not work here:
// `std::atomic::wait` of libstdc++ 12 loses wake-ups on systems without a futex.
#include <windows.h>

#include "qmx.h"

namespace qmx {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(std::uintptr_t));

SRWLOCK* Native(std::uintptr_t& state) { return reinterpret_cast<SRWLOCK*>(&state); }

}  // namespace

CSRWLock::CSRWLock() : state(0) {}  // SRWLOCK_INIT
CSRWLock::~CSRWLock() = default;
void CSRWLock::ReadLock() { ::AcquireSRWLockShared(Native(state)); }
void CSRWLock::ReadUnlock() { ::ReleaseSRWLockShared(Native(state)); }
void CSRWLock::WriteLock() { ::AcquireSRWLockExclusive(Native(state)); }
void CSRWLock::WriteUnlock() { ::ReleaseSRWLockExclusive(Native(state)); }

}  // namespace qmx
