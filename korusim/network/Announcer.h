/// Announces cameras by multicast DNS: on Linux with Avahi's embeddable core, which needs no
/// daemon, and on Windows with the service of the system.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace korusim {

/// The records of one camera.
struct SAnnouncement {
    std::string address;  ///< dotted IPv4
    std::string name;
};

class CAnnouncer {
   public:
    CAnnouncer();
    /// Withdraws all announcements.
    ~CAnnouncer();
    CAnnouncer(const CAnnouncer&) = delete;
    CAnnouncer& operator=(const CAnnouncer&) = delete;

    /// Announces the cameras and waits until the announcement is established. Call once. Returns a
    /// sentence with the reason of a failure, or an empty text. A Windows that cannot announce them
    /// is no failure: a message explains that they are reachable by their addresses.
    [[nodiscard]] std::string Announce(const std::vector<SAnnouncement>& cameras);

    struct SState;

   private:
    std::unique_ptr<SState> state;
};

}  // namespace korusim
