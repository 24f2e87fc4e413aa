/// Announces cameras by multicast DNS with Avahi's embeddable core, which needs no daemon.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace korusim {

/// What one camera is announced as.
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

    /// Announces the cameras, once, and waits until the network knows them. Gives a sentence that
    /// says why that failed, or nothing.
    [[nodiscard]] std::string Announce(const std::vector<SAnnouncement>& cameras);

    struct SState;

   private:
    std::unique_ptr<SState> state;
};

}  // namespace korusim
