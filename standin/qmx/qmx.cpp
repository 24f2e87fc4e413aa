// Stand-in for the host framework library: all of it that the plug-in and the small host use.
#include "qmx.h"

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace qmx {

void* Alloc(std::size_t bytes) noexcept { return std::malloc(bytes); }
void Free(void* memory) noexcept { std::free(memory); }
void ThrowBadAllocException() { throw std::bad_alloc(); }
void ThrowOutOfRangeException(const char* text) { throw std::out_of_range(text); }

namespace {

/// Returns a copy of `length` bytes and a NUL; null for no bytes.
char* CopyText(const char* text, std::size_t length) {
    if (length == 0) return nullptr;
    char* const copy = static_cast<char*>(Alloc(length + 1));
    if (copy == nullptr) ThrowBadAllocException();
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

std::unique_ptr<char[]> FormatText(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    const std::size_t size = length > 0 ? static_cast<std::size_t>(length) + 1 : 1;
    std::unique_ptr<char[]> text(new char[size]());
    std::vsnprintf(text.get(), size, format, again);
    va_end(again);
    return text;
}

}  // namespace

CString::CString() noexcept : text(nullptr) {}
CString::CString(const char* from, std::int32_t length)
    : text(from == nullptr ? nullptr
                           : CopyText(from, length < 0 ? std::strlen(from)
                                                       : static_cast<std::size_t>(length))) {}
CString::CString(const CString& other) : CString(other.text) {}
CString::CString(CString&& other) noexcept : text(std::exchange(other.text, nullptr)) {}
CString::~CString() { Free(text); }
CString& CString::operator=(const char* from) { return *this = CString(from); }
CString& CString::operator=(const CString& other) { return *this = CString(other); }
CString& CString::operator=(CString&& other) noexcept {
    std::swap(text, other.text);
    return *this;
}
const char* CString::c_str() const noexcept { return text != nullptr ? text : ""; }
bool CString::empty() const noexcept { return *c_str() == '\0'; }
void CString::clear() noexcept {
    Free(text);
    text = nullptr;
}
int CString::compare(const CString& other) const noexcept {
    return std::strcmp(c_str(), other.c_str());
}
void CString::Format(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const auto formatted = FormatText(format, arguments);
    va_end(arguments);
    *this = formatted.get();
}
CString CString::FromFormat(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const auto formatted = FormatText(format, arguments);
    va_end(arguments);
    return CString(formatted.get());
}
CString strprintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const auto formatted = FormatText(format, arguments);
    va_end(arguments);
    return CString(formatted.get());
}

CVariant::CVariant() noexcept : kind(EType::Empty), number(0) {}
CVariant::CVariant(const char* from) : kind(EType::String), number(0), text(from) {}
CVariant::CVariant(const CString& from) : kind(EType::String), number(0), text(from) {}
CVariant::CVariant(const CVariant& other) = default;
CVariant::CVariant(CVariant&& other) noexcept = default;
CVariant::~CVariant() = default;
CVariant& CVariant::operator=(const CVariant& other) = default;
CVariant& CVariant::operator=(CVariant&& other) noexcept = default;
CVariant& CVariant::operator=(double value) {
    kind = EType::Float64;
    number = value;
    text.clear();
    return *this;
}
CVariant& CVariant::operator=(bool value) {
    kind = EType::Bool;
    number = value ? 1 : 0;
    text.clear();
    return *this;
}
EType CVariant::type() const noexcept { return kind; }
bool CVariant::ToBool() const {
    if (kind != EType::String) return number != 0;
    return text.compare("true") == 0 || std::strtod(text.c_str(), nullptr) != 0;
}
double CVariant::ToFlt64() const {
    if (kind != EType::String) return number;
    return text.compare("true") == 0 ? 1 : std::strtod(text.c_str(), nullptr);
}
CString CVariant::ToString() const {
    if (kind == EType::Bool) return number != 0 ? "true" : "false";
    if (kind == EType::Float64) return CString::FromFormat("%g", number);
    return text;
}

namespace {
struct SCount {
    std::atomic<std::uint32_t> references{1};
};
}  // namespace

CReferenceCounter* CReferenceCounter::Create(const void* pointer) {
    if (pointer == nullptr) return nullptr;
    std::unique_ptr<SCount> fresh(new SCount);
    auto* const counter = new CReferenceCounter;
    counter->count = fresh.release();
    return counter;
}
void CReferenceCounter::AddReference() noexcept { ++static_cast<SCount*>(count)->references; }
bool CReferenceCounter::Release() noexcept {
    if (--static_cast<SCount*>(count)->references != 0) return false;
    delete static_cast<SCount*>(count);
    delete this;
    return true;
}

namespace {
std::atomic<bool> verboseLog{false};
}

bool CLog::verbose() const noexcept { return verboseLog; }
void CLog::SetVerbose(bool on) noexcept { verboseLog = on; }
void CLog::WriteLine(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const auto line = FormatText(format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "%s\n", line.get());
}
CLog& logger() noexcept {
    static CLog log;
    return log;
}

CMutex::CMutex() : state(new std::timed_mutex) {}
CMutex::~CMutex() { delete static_cast<std::timed_mutex*>(state); }
bool CMutex::Acquire(std::uint32_t timeout) {
    auto* const mutex = static_cast<std::timed_mutex*>(state);
    if (timeout != forEver) return mutex->try_lock_for(std::chrono::milliseconds(timeout));
    mutex->lock();
    return true;
}
void CMutex::Release() { static_cast<std::timed_mutex*>(state)->unlock(); }

namespace {
std::int64_t Now() noexcept {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
}  // namespace

CStopwatch::CStopwatch() noexcept : started(0), stopped(0) {}
void CStopwatch::Start() noexcept {
    started = Now();
    stopped = -1;
}
void CStopwatch::Stop() noexcept {
    if (stopped < 0) stopped = Now();
}
double CStopwatch::elapsed() const noexcept {
    return static_cast<double>((stopped < 0 ? Now() : stopped) - started) * 1e-9;
}

namespace {
std::mutex pixelTypesLock;
TArray<SPixelType>& PixelTypes() {
    static TArray<SPixelType> types;
    return types;
}
}  // namespace

bool RegisterPixelType(SGuid pixelType, const CString& name, std::uint8_t byte, EDataType dataType,
                       SGuid second) {
    const std::lock_guard<std::mutex> lock(pixelTypesLock);
    SPixelType registration{pixelType, name, byte, dataType, second};
    for (SPixelType& known : PixelTypes()) {
        if (known.pixelType == pixelType) {
            known = std::move(registration);
            return true;
        }
    }
    PixelTypes().append(std::move(registration));
    return true;
}

TArray<SPixelType> RegisteredPixelTypes() {
    const std::lock_guard<std::mutex> lock(pixelTypesLock);
    return PixelTypes();
}

}  // namespace qmx
