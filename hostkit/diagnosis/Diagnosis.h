/// From measurements of a camera to findings, and to the most likely cause of its trouble. Pure:
/// uses no network and no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CameraProbe.h"
#include "MissingFrames.h"
#include "NetworkCounters.h"
#include "RtspProbe.h"

namespace hostkit {

/// The arrival of a frame.
struct SArrival {
    frames::Clock::time_point when;
    std::uint32_t length = 0;                ///< bytes
    std::optional<std::uint64_t> datagrams;  ///< that programs of this system had read by then
};

/// Differences of the system's counters, of all programs, during a stream.
struct SCounterSteps {
    std::optional<std::uint64_t> datagrams;
    std::optional<std::uint64_t> dropped;  ///< because a receive buffer was full
    std::optional<std::uint64_t> interfacePackets;
    std::optional<std::uint64_t> interfaceDropped;
};

/// Traffic of other programs on this machine, per second, measured without a stream.
struct SBackground {
    double datagrams = 0;         ///< UDP, read by programs
    double interfacePackets = 0;  ///< received by the interface towards the camera
};

struct SStreamMeasurement {
    std::string format;          ///< such as "640x512 raw"
    std::uint64_t rawBytes = 0;  ///< of a frame of this size without compression
    bool raw = true;
    std::optional<SRefusal> refusal;  ///< why it did not start
    std::optional<double> promisedRate;
    double seconds = 0;  ///< measured, without the time in which this program did not run
    std::vector<SArrival> arrivals;
    SCounterSteps counters;
    platform::SReceiveBuffers buffers;                ///< while it streamed
    double longestStall = 0;                          ///< seconds in which this program did not run
    double silenceAtEnd = 0;                          ///< seconds since the last frame
    std::optional<std::uint64_t> datagramsInSilence;  ///< of all programs, since the last frame
    bool unread = false;         ///< datagrams wait in this program, and nothing reads them
    bool controlClosed = false;  ///< the camera has closed its control connection
    platform::EConnect afterwards = platform::EConnect::Connected;  ///< to RTSP, if it has
};

struct SCameraMeasurement {
    std::string camera;  ///< as the user named it
    std::string address;
    std::optional<platform::SRoute> route;
    STreeProbe tree;
    platform::EConnect treeConnect = platform::EConnect::Failed;
    platform::EConnect rtspConnect = platform::EConnect::Failed;
    std::optional<int> optionsStatus;  ///< empty without a response
    std::size_t formats = 0;           ///< that the host interface lists
    SBackground background;
    std::vector<SStreamMeasurement> streams;
};

enum class EVerdict { Ok, Warning, Failed };

struct SFinding {
    std::string step;
    EVerdict verdict = EVerdict::Ok;
    std::string text;    ///< what was measured
    std::string advice;  ///< what to do; empty if nothing is to be done
    std::string cause;   ///< a sentence for `SDiagnosis::cause`; empty for a verdict of Ok
};

struct SDiagnosis {
    std::vector<SFinding> findings;
    std::string cause;  ///< the most likely one, or that there is no fault

    [[nodiscard]] bool failed() const;
};

[[nodiscard]] SDiagnosis Diagnose(const SCameraMeasurement& measured);

/// The receive buffer that the plug-in requests, as a multiple of the system's initial size.
inline constexpr std::uint64_t requestedBuffers = 8;
/// Returns what to do about a receive buffer that was full. `stall` is the longest time, in
/// seconds, in which the program did not run: a program that was stopped needs no larger buffer.
[[nodiscard]] std::string ReceiveBufferAdvice(const platform::SReceiveBuffers& buffers,
                                              double stall);
/// Returns a text such as "1664 KiB of 1664 KiB requested".
[[nodiscard]] std::string ReceiveBufferText(const platform::SReceiveBuffers& buffers);

}  // namespace hostkit
