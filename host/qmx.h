/// Contract of the host framework library `qmx`: strings, variants, arrays, delegates, shared
/// pointers, log, locks and pixel types, as far as the plug-in and the small host use them.
///
/// The framework itself is closed. Declarations only, except for the templates, which are defined
/// here; `standin/qmx` defines the rest where the real library is not available.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#if defined(_WIN32)
#if defined(QMX_BUILD)
#define QMX_API __declspec(dllexport)
#else
#define QMX_API __declspec(dllimport)
#endif
#else
#define QMX_API __attribute__((visibility("default")))
#endif

#if defined(__MINGW32__)
#define QMX_PRINTF(formatIndex, firstIndex) \
    __attribute__((format(gnu_printf, formatIndex, firstIndex)))
#elif defined(__GNUC__)
#define QMX_PRINTF(formatIndex, firstIndex) __attribute__((format(printf, formatIndex, firstIndex)))
#else
#define QMX_PRINTF(formatIndex, firstIndex)
#endif

namespace qmx {

/// Returns memory of the framework's allocator, aligned for any object, or null.
QMX_API void* Alloc(std::size_t bytes) noexcept;
/// Frees memory from `Alloc`. Null is allowed.
QMX_API void Free(void* memory) noexcept;
/// Throws the allocator's bad-allocation exception (a `std::bad_alloc`).
[[noreturn]] QMX_API void ThrowBadAllocException();
/// Throws a `std::out_of_range` with the given text.
[[noreturn]] QMX_API void ThrowOutOfRangeException(const char* text);

/// Owned, NUL-terminated byte string.
class QMX_API CString {
   public:
    CString() noexcept;
    /// Copies `length` bytes of `text`, or all up to its NUL with length -1. Null counts as empty.
    CString(const char* text, std::int32_t length = -1);
    CString(const CString& other);
    CString(CString&& other) noexcept;
    ~CString();
    CString& operator=(const char* text);
    CString& operator=(const CString& other);
    CString& operator=(CString&& other) noexcept;

    /// Never null; valid until the string changes.
    const char* c_str() const noexcept;
    bool empty() const noexcept;
    void clear() noexcept;
    /// Compares bytes as `strcmp` does: 0 when equal.
    int compare(const CString& other) const noexcept;
    /// Replaces the content by printf-formatted text.
    void Format(const char* format, ...) QMX_PRINTF(2, 3);
    static CString FromFormat(const char* format, ...) QMX_PRINTF(1, 2);

   private:
    char* text;  // null when empty
};

/// Returns a printf-formatted string.
QMX_API CString strprintf(const char* format, ...) QMX_PRINTF(1, 2);

/// The type of a `CVariant`'s value. The numbers of `Bool` and `Float64` are fixed.
enum class EType : std::int32_t { Empty = 0, Bool = 1, Float64 = 11, String = 13 };

/// One value of a type known at run time. Conversions never fail: text is parsed as a number or as
/// "true"/"false", and is 0 or false when it is neither.
class QMX_API CVariant {
   public:
    CVariant() noexcept;
    CVariant(const char* text);
    CVariant(const CString& text);
    CVariant(const CVariant& other);
    CVariant(CVariant&& other) noexcept;
    ~CVariant();
    CVariant& operator=(const CVariant& other);
    CVariant& operator=(CVariant&& other) noexcept;
    CVariant& operator=(double value);
    CVariant& operator=(bool value);
    /// Deleted because a pointer would silently become a bool.
    CVariant& operator=(const char* text) = delete;

    EType type() const noexcept;
    bool ToBool() const;
    double ToFlt64() const;
    CString ToString() const;

   private:
    EType kind;
    double number;  // the bool, too
    CString text;
};

/// Globally unique id, in the usual in-memory form (the first three fields in host order).
struct SGuid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];
};
static_assert(sizeof(SGuid) == 16, "a GUID is compared and passed as 16 bytes");

inline bool operator==(const SGuid& left, const SGuid& right) noexcept {
    return std::memcmp(&left, &right, sizeof(SGuid)) == 0;
}
inline bool operator!=(const SGuid& left, const SGuid& right) noexcept { return !(left == right); }

/// Growing array. Owns its entries and its storage, which comes from `Alloc`. Entries are moved,
/// never copied, when the storage grows.
template <class T>
class TArray {
    static_assert(std::is_nothrow_move_constructible<T>::value,
                  "growth moves the entries and must not fail half-way");

   public:
    TArray() noexcept = default;
    TArray(const TArray& other) : TArray() {
        reserve(other.used);
        for (const T& entry : other) append(entry);
    }
    TArray(TArray&& other) noexcept
        : entries(std::exchange(other.entries, nullptr)),
          room(std::exchange(other.room, 0)),
          used(std::exchange(other.used, 0)) {}
    TArray& operator=(TArray other) noexcept {
        std::swap(entries, other.entries);
        std::swap(room, other.room);
        std::swap(used, other.used);
        return *this;
    }
    virtual ~TArray() {
        clear();
        Free(entries);
    }

    T* data() noexcept { return entries; }
    const T* data() const noexcept { return entries; }
    std::size_t capacity() const noexcept { return room; }
    std::size_t count() const noexcept { return used; }
    bool empty() const noexcept { return used == 0; }
    T& operator[](std::size_t index) noexcept { return entries[index]; }
    const T& operator[](std::size_t index) const noexcept { return entries[index]; }
    T* begin() noexcept { return entries; }
    T* end() noexcept { return entries + used; }
    const T* begin() const noexcept { return entries; }
    const T* end() const noexcept { return entries + used; }

    /// Destroys the entries and keeps the storage.
    void clear() noexcept { Destroy(0, used); }

    /// Makes room for at least `wanted` entries: the capacity, or 1, doubled until they fit.
    void reserve(std::size_t wanted) {
        if (wanted <= room) return;
        constexpr std::size_t most = static_cast<std::size_t>(-1) / 2 / sizeof(T);
        if (wanted > most) ThrowBadAllocException();
        std::size_t larger = room != 0 ? room : 1;
        while (larger < wanted) larger *= 2;
        T* storage = static_cast<T*>(Alloc(larger * sizeof(T)));
        if (storage == nullptr) ThrowBadAllocException();
        for (std::size_t i = 0; i < used; ++i) {
            ::new (static_cast<void*>(storage + i)) T(std::move(entries[i]));
            entries[i].~T();
        }
        Free(entries);
        entries = storage;
        room = larger;
    }

    void append(T entry) {
        reserve(used + 1);
        ::new (static_cast<void*>(entries + used)) T(std::move(entry));
        ++used;
    }

    /// Removes `number` entries from `index` on and keeps the storage. A number that reaches past
    /// the end is clipped. An index at or past the end raises the out-of-range exception.
    void remove(std::size_t index, std::size_t number) {
        if (index >= used) ThrowOutOfRangeException("TArray::remove: index out of range.");
        if (number > used - index) number = used - index;
        if (number == 0) return;
        for (std::size_t i = index; i + number < used; ++i)
            entries[i] = std::move(entries[i + number]);
        Destroy(used - number, number);
    }

   private:
    void Destroy(std::size_t first, std::size_t number) noexcept {
        for (std::size_t i = first; i < first + number; ++i) entries[i].~T();
        used -= number;
    }

    T* entries = nullptr;
    std::size_t room = 0;
    std::size_t used = 0;
};

/// Copies and releases the object of a delegate.
struct SDelegateManager {
    void* (*copy)(void* object);    ///< returns the object of a copied delegate
    void (*release)(void* object);  ///< releases one delegate's share of the object
};

/// A callable: a plain function, the stub, and the object that it is called with. The stub owns its
/// by-value arguments. A function that receives a delegate by value releases it, at the latest by
/// the delegate's destructor.
template <class Signature>
class delegate;

template <class Result, class... Arguments>
class delegate<Result(Arguments...)> {
   public:
    using Stub = Result (*)(void* object, Arguments...);

    delegate() noexcept = default;
    delegate(Stub stubFunction, void* boundObject, const SDelegateManager* objectManager = nullptr)
        : stub(stubFunction), object(boundObject), manager(objectManager) {}
    delegate(const delegate& other)
        : stub(other.stub),
          object(other.manager != nullptr ? other.manager->copy(other.object) : other.object),
          manager(other.manager) {}
    delegate(delegate&& other) noexcept
        : stub(std::exchange(other.stub, nullptr)),
          object(std::exchange(other.object, nullptr)),
          manager(std::exchange(other.manager, nullptr)) {}
    delegate& operator=(delegate other) noexcept {
        std::swap(stub, other.stub);
        std::swap(object, other.object);
        std::swap(manager, other.manager);
        return *this;
    }
    ~delegate() { Release(); }

    explicit operator bool() const noexcept { return stub != nullptr; }
    Result operator()(Arguments... arguments) const {
        return stub(object, std::forward<Arguments>(arguments)...);
    }
    /// Releases the object and empties the delegate. Repeating it does nothing.
    void Release() noexcept {
        if (manager != nullptr) manager->release(object);
        stub = nullptr;
        object = nullptr;
        manager = nullptr;
    }

   private:
    Stub stub = nullptr;
    void* object = nullptr;
    const SDelegateManager* manager = nullptr;
};

/// The reference count of `TSharedPtr`. Safe from any thread.
class QMX_API CReferenceCounter {
   public:
    /// Returns a counter with the value 1, or null for a null pointer, which needs none.
    static CReferenceCounter* Create(const void* pointer);
    void AddReference() noexcept;
    /// Returns true, and destroys the counter, when this was the last reference.
    [[nodiscard]] bool Release() noexcept;

   private:
    CReferenceCounter() = default;
    ~CReferenceCounter() = default;
    void* count = nullptr;
};

/// Shared owner of an object made by another library.
template <class T>
class TSharedPtr {
   public:
    /// Called with the pointer by the last owner; see `deleteByDestructor` and `deleteNothing`.
    using Deleter = void (*)(T* pointer);
    static constexpr std::intptr_t deleteByDestructor = 0;
    static constexpr std::intptr_t deleteNothing = -1;

    TSharedPtr() noexcept = default;
    /// Takes ownership of `owned` and of the counter's first reference.
    TSharedPtr(T* owned, CReferenceCounter* references, Deleter how) noexcept
        : pointer(owned), counter(references), deleter(reinterpret_cast<std::intptr_t>(how)) {}
    TSharedPtr(T* owned, CReferenceCounter* references, std::intptr_t how) noexcept
        : pointer(owned), counter(references), deleter(how) {}
    TSharedPtr(const TSharedPtr& other) noexcept
        : pointer(other.pointer), counter(other.counter), deleter(other.deleter) {
        if (counter != nullptr) counter->AddReference();
    }
    TSharedPtr(TSharedPtr&& other) noexcept
        : pointer(std::exchange(other.pointer, nullptr)),
          counter(std::exchange(other.counter, nullptr)),
          deleter(std::exchange(other.deleter, deleteByDestructor)) {}
    TSharedPtr& operator=(TSharedPtr other) noexcept {
        std::swap(pointer, other.pointer);
        std::swap(counter, other.counter);
        std::swap(deleter, other.deleter);
        return *this;
    }
    ~TSharedPtr() { Reset(); }

    T* get() const noexcept { return pointer; }
    T* operator->() const noexcept { return pointer; }
    T& operator*() const noexcept { return *pointer; }
    explicit operator bool() const noexcept { return pointer != nullptr; }

    /// Releases this owner's reference.
    void Reset() noexcept {
        T* const last = std::exchange(pointer, nullptr);
        CReferenceCounter* const references = std::exchange(counter, nullptr);
        if (references == nullptr || !references->Release()) return;
        if (deleter == deleteByDestructor) {
            delete last;
        } else if (deleter != deleteNothing) {
            reinterpret_cast<Deleter>(deleter)(last);
        }
    }

   private:
    T* pointer = nullptr;
    CReferenceCounter* counter = nullptr;
    std::intptr_t deleter = deleteByDestructor;
};

/// The host's log. Lines may come from any thread.
class QMX_API CLog {
   public:
    /// True when trace lines are wanted. Failures are always written.
    bool verbose() const noexcept;
    void SetVerbose(bool on) noexcept;
    /// Writes one printf-formatted line; the line end is added.
    void WriteLine(const char* format, ...) QMX_PRINTF(2, 3);
};

/// The one log of the process.
QMX_API CLog& logger() noexcept;

/// Mutual exclusion with a time limit. Not recursive.
class QMX_API CMutex {
   public:
    static constexpr std::uint32_t forEver = 0xFFFFFFFF;
    CMutex();
    ~CMutex();
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;
    /// Returns false when the mutex does not become free within the limit, in milliseconds.
    bool Acquire(std::uint32_t timeout);
    void Release();

   private:
    void* state;
};

/// Slim reader-writer lock: many readers or one writer. Not recursive.
class QMX_API CSRWLock {
   public:
    CSRWLock();
    ~CSRWLock();
    CSRWLock(const CSRWLock&) = delete;
    CSRWLock& operator=(const CSRWLock&) = delete;
    void ReadLock();
    void ReadUnlock();
    void WriteLock();
    void WriteUnlock();

   private:
    std::uintptr_t state;
};

/// Monotonic time base. `elapsed` may be read by several threads while none starts or stops it.
class QMX_API CStopwatch {
   public:
    CStopwatch() noexcept;
    void Start() noexcept;
    void Stop() noexcept;
    /// Seconds since `Start`; held at `Stop`; 0 before the first `Start`.
    double elapsed() const noexcept;

   private:
    std::int64_t started;  // nanoseconds
    std::int64_t stopped;  // nanoseconds; negative while running
};

/// Kind of a pixel's data. The plug-in passes values without knowing the enumerators.
enum class EDataType : std::int32_t {};

/// Registers a pixel type with the host. Registering a type again replaces it.
QMX_API bool RegisterPixelType(SGuid pixelType, const CString& name, std::uint8_t byte,
                               EDataType dataType, SGuid second);

/// One registered pixel type, with the arguments of `RegisterPixelType`.
struct SPixelType {
    SGuid pixelType;
    CString name;
    std::uint8_t byte;
    EDataType dataType;
    SGuid second;
};
/// All registered pixel types in the order of their first registration.
QMX_API TArray<SPixelType> RegisteredPixelTypes();

}  // namespace qmx
