/// Devices and descriptions for the device tests.
#pragma once

#include <type_traits>

#include "KORURTSPInterface.h"
#include "ScriptedPeer.h"
#include "qmxcam.h"

namespace test {

inline qmx::TSharedPtr<qmx::cam::IDevice> MakeDevice() {
    return qmx::cam::CKORURTSPInterface().CreateDevice();
}

inline qmx::cam::SDeviceInfo Camera(const char* address = "127.0.0.1") {
    qmx::cam::SDeviceInfo info = qmx::cam::CKORURTSPInterface().defaultDevice;
    info.parameters["IP"].setValue(address);
    return info;
}

/// Sets a property to a bool or to a number.
bool Set(qmx::cam::IDevice& device, const char* property, auto value) {
    qmx::CVariant variant;
    variant = std::conditional_t<std::is_same_v<decltype(value), bool>, bool, double>(value);
    return device.properties.set(property, variant);
}

/// Returns a property as text, or "failed".
inline std::string Get(const qmx::cam::IDevice& device, const char* property) {
    qmx::CVariant value;
    return device.properties.get(property, value) ? value.ToString().c_str() : "failed";
}

/// Returns the URL path that one of the requests to a camera named.
inline std::string UrlPath(const CScriptedPeer& camera, std::size_t request) {
    const std::string text = camera.Requests().at(request);
    const std::size_t begin = text.find(":554") + 4;
    return text.substr(begin, text.find(' ', begin) - begin);
}

inline void Ignore(void*, const std::uint8_t*, std::uint32_t) {}

constexpr std::uint32_t treeAndStreams = 3;
constexpr std::uint32_t streamsOnly = 2;
constexpr std::uint16_t rtspPort = 554;
constexpr std::uint16_t treePort = 4554;

inline const char* const rawBody =
    "v=0\nm=video 0 RTP/AVP 96 97\na=rtpmap:96 ZRAW/90000\na=framesize:96 640-480\n"
    "a=rtpmap:97 ZRAW/90000\na=framesize:97 320-240\n";
inline const char* const mjlsBody =
    "v=0\nm=video 0 RTP/AVP 96 97\na=rtpmap:96 MJLS/9\na=rtpmap:97 MJLX\na=framesize:8-6\n";
inline const char* const jpegBody =
    "v=0\nm=video 0 RTP/AVP 26 27\na=rtpmap:26 JPEG/9\na=rtpmap:27 JPEX\na=framesize:8-6\n";
inline const char* const setUp = "Session: s\r\nTransport: server_port=7000-7001\r\n";

// Responses of a raw camera to opening, start and stop, and of a JPEG-LS camera to opening.
inline const Answers opening = {Ok(), Description(rawBody)};
inline const Answers starting = {Ok(setUp), Ok("Session: s\r\n")};
inline const Answers stopping = {Ok(), Ok()};
inline const Answers openingMjls = {Ok(), Refusal(), Description(mjlsBody), Refusal()};

}  // namespace test
