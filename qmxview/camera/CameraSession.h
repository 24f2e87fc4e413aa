/// One camera: opened, streamed and controlled on a thread, because each of these calls may block
/// for seconds.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "Failure.h"
#include "FormatChoice.h"
#include "FrameFeed.h"
#include "PluginHost.h"
#include "Signal.h"

namespace qmxview {

/// The camera of a pane, and how to open it.
struct SCameraRequest {
    std::string camera;  ///< address or name
    std::uint32_t openFlags = hostkit::openTree | hostkit::openStream;
    hostkit::SFormatChoice format;
    std::optional<double> rate;  ///< frames per second to request
};

enum class EPhase {
    Opening,
    Streaming,
    Paused,  ///< by the camera
    Failed,  ///< see `failure`
};

/// A snapshot of a session.
struct SCameraState {
    EPhase phase = EPhase::Opening;
    std::string address;  ///< empty until the camera has been found
    std::vector<qmx::cam::IDevice::SFormat> formats;
    qmx::cam::IDevice::SFormat format{};  ///< of the stream; valid from the first start on
    std::optional<double> rate;           ///< frames per second that the camera is set to
    bool busy = false;                    ///< a command is being carried out
    unsigned attempts = 0;                ///< to open the camera
    std::string notice;                   ///< why the last command failed; empty if it has not
    std::optional<hostkit::CFailure> failure;
};

struct SSetFormat {
    std::size_t index = 0;  ///< in the catalogue
};
struct SSetRate {
    double framesPerSecond = 0;
};
struct SSetPaused {
    bool paused = false;
};
/// Closes everything and begins again, after the camera was gone.
struct SReconnect {};
using SessionCommand = std::variant<SSetFormat, SSetRate, SSetPaused, SReconnect>;

/// The thread of a camera. It begins by opening the camera and starting the stream.
class CCameraSession {
   public:
    /// The frames go to `frameFeed`. Host and feed must outlive the session.
    CCameraSession(hostkit::CPluginHost& pluginHost, SCameraRequest cameraRequest,
                   CFrameFeed& frameFeed);
    /// Stops the stream, closes the camera and waits for both.
    ~CCameraSession();
    CCameraSession(const CCameraSession&) = delete;
    CCameraSession& operator=(const CCameraSession&) = delete;

    /// Carries out a command after those before it. A command of the same kind that is still
    /// waiting is replaced. Returns at once.
    void Request(const SessionCommand& command);
    /// Makes the thread stop the stream and end after the command that it carries out. Returns at
    /// once, so that several cameras stop at the same time.
    void Stop();
    [[nodiscard]] SCameraState State() const;
    /// Returns true when the thread has stopped everything, so that the destructor does not wait.
    [[nodiscard]] bool ended() const noexcept { return hasEnded; }

   private:
    void Run();
    template <class Step>
    void Attempt(Step step);
    void Open();
    void Connect();
    void Disconnect();
    void Start(const qmx::cam::IDevice::SFormat& format);
    [[nodiscard]] bool StopStream();
    void SetRate(double framesPerSecond);
    void Do(const SSetFormat& command);
    void Do(const SSetRate& command);
    void Do(const SSetPaused& command);
    void Do(const SReconnect& command);
    [[nodiscard]] hostkit::COpenCamera& Device();
    template <class Change>
    void Update(Change change);

    hostkit::CPluginHost& host;
    SCameraRequest request;  // used only by the thread; follows the commands
    CFrameFeed& feed;
    std::unique_ptr<hostkit::COpenCamera> device;  // used only by the thread
    mutable std::mutex lock;                       // guards `state` and `commands`
    SCameraState state;
    std::deque<SessionCommand> commands;
    CSignal wake;
    std::atomic<bool> stopping{false};
    std::atomic<bool> hasEnded{false};
    std::thread thread;
};

}  // namespace qmxview
