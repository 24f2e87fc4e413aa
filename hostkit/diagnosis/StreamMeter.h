/// Starts a stream through the host interface and records what can be measured of it.
#pragma once

#include <string>

#include "Diagnosis.h"
#include "PluginHost.h"

namespace hostkit {

/// Watches for times in which this program does not run: because it was stopped (Ctrl-Z, a
/// debugger, a closed laptop) or because the machine was busy. Used by one thread.
class CStallWatch {
   public:
    /// Begins a wait that should end after `limit`, or sooner.
    void BeginWait(frames::Clock::duration limit) { due = frames::Clock::now() + limit; }
    void EndWait() { longest = std::max(longest, frames::Clock::now() - due); }
    /// Returns the longest time, in seconds, by which a wait has lasted too long.
    [[nodiscard]] double LongestStall() const {
        return std::chrono::duration<double>(longest).count();
    }

   private:
    frames::Clock::time_point due;
    frames::Clock::duration longest{};
};

/// Streams a format of an open camera for some seconds, or until a stop signal. On return the
/// stream has ended. Without a start the result has a `refusal`.
[[nodiscard]] SStreamMeasurement MeasureStream(COpenCamera& camera,
                                               const qmx::cam::IDevice::SFormat& format,
                                               double seconds, const platform::SRoute& route);

/// Returns the frame rate that a camera promises: that of a raw camera, in its node tree. The
/// property of a compressed camera is the rate that the host would request.
[[nodiscard]] std::optional<double> PromisedRate(const COpenCamera& camera,
                                                 const qmx::cam::IDevice::SFormat& format);
/// Returns why a start has failed. Closes the camera and asks it, because the plug-in reports only
/// the step.
[[nodiscard]] SRefusal WhyNotStarted(const COpenCamera& camera,
                                     const qmx::cam::IDevice::SFormat& format);
/// Returns true if datagrams wait in this process and none of them is read: the receive thread has
/// ended. Takes a twentieth of a second; false if the system does not show it.
[[nodiscard]] bool DatagramsStayUnread();

/// Measures the other traffic of this machine during half a second.
[[nodiscard]] SBackground MeasureBackground(const platform::SRoute& route);

}  // namespace hostkit
