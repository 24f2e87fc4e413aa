#include "CaptureFile.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "LinkLayer.h"
#include "Path.h"

namespace korusim {
namespace {

/// A capture may claim any time. Later ones, from the year 2242 on, would overflow the nanoseconds.
constexpr std::int64_t maxSeconds = std::int64_t{1} << 33;
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

/// Removes the name of the file from the beginning of a message, because the caller adds it.
std::string WithoutName(std::string message, const std::string& name) {
    if (message.starts_with(name + ": ")) message.erase(0, name.size() + 2);
    return message;
}

}  // namespace

struct CCaptureFile::SPcap {
    explicit SPcap(pcap_t* opened) : handle(opened) {}
    SPcap(const SPcap&) = delete;
    SPcap& operator=(const SPcap&) = delete;
    ~SPcap() { pcap_close(handle); }
    pcap_t* handle;
};

CCaptureFile::CCaptureFile(const std::filesystem::path& file) {
    if (std::filesystem::is_directory(file)) throw std::runtime_error("it is a folder");
    // It is read twice, which a pipe does not allow.
    if (std::filesystem::exists(file) && !std::filesystem::is_regular_file(file)) {
        throw std::runtime_error("it is not a file");
    }
    std::array<char, PCAP_ERRBUF_SIZE> reason{};
    pcap_init(PCAP_CHAR_ENC_UTF_8, reason.data());  // for the name, whatever language it is in
    const std::string fileName = platform::Utf8Text(file);
    pcap_t* const handle = pcap_open_offline_with_tstamp_precision(
        fileName.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason.data());
    if (handle == nullptr) throw std::runtime_error(WithoutName(reason.data(), fileName));
    pcap = std::make_unique<SPcap>(handle);
    const int linkType = pcap_datalink(handle);
    if (!IsKnownLinkType(linkType)) {
        const char* const name = pcap_datalink_val_to_name(linkType);
        throw std::runtime_error("its link type " +
                                 (name != nullptr ? name : std::to_string(linkType)) +
                                 " is not supported; capture on an Ethernet interface");
    }
}

CCaptureFile::CCaptureFile(CCaptureFile&&) noexcept = default;
CCaptureFile& CCaptureFile::operator=(CCaptureFile&&) noexcept = default;
CCaptureFile::~CCaptureFile() = default;

std::optional<SCapturedFrame> CCaptureFile::Next() {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(pcap->handle, &header, &bytes);
    if (result != 1) {
        if (result == PCAP_ERROR) damageText = pcap_geterr(pcap->handle);
        return std::nullopt;
    }
    // With this precision the field contains nanoseconds.
    const std::int64_t seconds = std::clamp<std::int64_t>(header->ts.tv_sec, 0, maxSeconds);
    const std::int64_t fraction =
        std::clamp<std::int64_t>(header->ts.tv_usec, 0, nanosecondsPerSecond - 1);
    return SCapturedFrame{seconds * nanosecondsPerSecond + fraction,
                          pcap_datalink(pcap->handle),
                          {bytes, header->caplen}};
}

}  // namespace korusim
