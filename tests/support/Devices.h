/// Devices and descriptions as the device tests need them.
#pragma once

#include "KORURTSPInterface.h"
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

inline void Ignore(void*, const std::uint8_t*, std::uint32_t) {}

constexpr std::uint32_t treeAndStreams = 3;
constexpr std::uint32_t streamsOnly = 2;
constexpr std::uint16_t rtspPort = 554;
constexpr std::uint16_t treePort = 4554;

inline const char* const rawBody =
    "v=0\nm=video 0 RTP/AVP 96 97\na=rtpmap:96 ZRAW/90000\na=framesize:96 640-480\n"
    "a=rtpmap:97 ZRAW/90000\na=framesize:97 320-240\n";
inline const char* const mjlsBody =
    "v=0\nm=video 0 RTP/AVP 96\na=rtpmap:96 MJLS/9\na=framesize:96 8-6\n";
inline const char* const setUp = "Session: s\r\nTransport: server_port=7000-7001\r\n";

}  // namespace test
