#include "PagedFile.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace frames {
namespace {

std::string LastError() { return std::generic_category().message(errno); }

}  // namespace

CPagedFile::CPagedFile(const std::filesystem::path& path) {
    // Without a buffer of the stream, a write reaches the system at once and in this order.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    errno = 0;
    file.open(path, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc);
    if (!file.is_open()) errorText = LastError();
}

std::size_t CPagedFile::Read(std::uint64_t offset, std::span<std::uint8_t> to) {
    const std::size_t count = static_cast<std::size_t>(
        std::min<std::uint64_t>(to.size(), size() - std::min(offset, size())));
    to = to.first(count);
    const auto fromFile = static_cast<std::size_t>(
        std::min<std::uint64_t>(count, committed - std::min(offset, committed)));
    if (fromFile != 0) {
        file.seekg(static_cast<std::streamoff>(offset));
        file.read(reinterpret_cast<char*>(to.data()), static_cast<std::streamsize>(fromFile));
        if (!file) {
            errorText = LastError();
            return 0;
        }
    }
    for (const auto& [at, bytes] : patches) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (at + i >= offset && at + i < offset + fromFile) to[at + i - offset] = bytes[i];
        }
    }
    if (count > fromFile) {
        const auto begin =
            tail.begin() + static_cast<std::ptrdiff_t>(offset + fromFile - committed);
        std::copy_n(begin, count - fromFile, to.begin() + static_cast<std::ptrdiff_t>(fromFile));
    }
    return count;
}

void CPagedFile::Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
    if (offset < committed) {
        const auto inFile =
            static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), committed - offset));
        patches.emplace_back(
            offset, Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(inFile)));
        bytes = bytes.subspan(inFile);
        offset += inFile;
    }
    if (bytes.empty()) return;
    const auto at = static_cast<std::size_t>(offset - committed);
    if (at + bytes.size() > tail.size()) tail.resize(at + bytes.size());
    std::ranges::copy(bytes, tail.begin() + static_cast<std::ptrdiff_t>(at));
}

bool CPagedFile::WriteNow(std::uint64_t offset, const Bytes& bytes) {
    errno = 0;
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.flush();
    if (file) return true;
    errorText = LastError();
    return false;
}

bool CPagedFile::Commit() {
    if (!errorText.empty()) return false;
    bool done = WriteNow(committed, tail);
    for (const auto& [offset, bytes] : patches) done = done && WriteNow(offset, bytes);
    if (!done) return false;
    committed += tail.size();
    tail.clear();
    patches.clear();
    return true;
}

}  // namespace frames
