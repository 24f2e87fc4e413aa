#include <atomic>

#include "qmx.h"

namespace qmx {
namespace {

// The lock is one word: whether a writer holds it, whether a thread waits for it, and, in steps of
// `oneReader`, how many readers hold it. Without contention, locking is one atomic operation and
// unlocking another one.
using LockWord = std::atomic_ref<std::uintptr_t>;
constexpr std::uintptr_t oneWriter = 1;
constexpr std::uintptr_t awaited = 2;
constexpr std::uintptr_t oneReader = 4;

/// Adds `holder` to the word as soon as none of the bits in `barred` are set.
void WaitAndHold(LockWord word, std::uintptr_t holder, std::uintptr_t barred) {
    std::uintptr_t seen = word.load(std::memory_order_relaxed);
    for (;;) {
        if ((seen & barred) == 0) {
            if (word.compare_exchange_weak(seen, seen + holder, std::memory_order_acquire)) return;
        } else if ((seen & awaited) != 0 || word.compare_exchange_weak(seen, seen | awaited)) {
            word.wait(seen | awaited);
            seen = word.load(std::memory_order_relaxed);
        }
    }
}

void Hold(std::uintptr_t& state, std::uintptr_t holder, std::uintptr_t barred) {
    std::uintptr_t free = 0;
    const LockWord word(state);
    if (!word.compare_exchange_strong(free, holder, std::memory_order_acquire)) {
        WaitAndHold(word, holder, barred);
    }
}

}  // namespace

CSRWLock::CSRWLock() : state(0) {}
CSRWLock::~CSRWLock() = default;
// A reader waits until the threads that were already waiting have had their turn; otherwise a
// succession of readers could keep a writer out.
void CSRWLock::ReadLock() { Hold(state, oneReader, oneWriter | awaited); }
void CSRWLock::WriteLock() { Hold(state, oneWriter, ~awaited); }
void CSRWLock::ReadUnlock() {
    const LockWord word(state);
    std::uintptr_t left = word.fetch_sub(oneReader) - oneReader;
    // The last reader wakes the waiting threads, unless another thread has the lock again and will
    // do so.
    if (left == awaited && word.compare_exchange_strong(left, 0)) word.notify_all();
}
void CSRWLock::WriteUnlock() {
    const LockWord word(state);
    if ((word.exchange(0) & awaited) != 0) word.notify_all();
}

}  // namespace qmx
