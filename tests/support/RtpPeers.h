/// The peers of a receiver: the UDP socket of a camera, and a host that collects frames.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Socket.h"
#include "Sockets.h"

namespace test {

/// Returns a number as bytes in network order.
inline std::string Big(std::uint64_t value, int bytes) {
    std::string text;
    while (bytes-- > 0) text += static_cast<char>(value >> (8 * bytes));
    return text;
}

/// Collects frames as strings.
class CFrames {
   public:
    static void Callback(void* context, const std::uint8_t* frame, std::uint32_t length) {
        auto& self = *static_cast<CFrames*>(context);
        const std::lock_guard<std::mutex> guard(self.lock);
        self.frames.emplace_back(reinterpret_cast<const char*>(frame), length);
        self.threads.insert(std::this_thread::get_id());
        self.arrived.notify_all();
    }
    /// Returns true when this many frames have arrived, false after 20 s.
    bool WaitFor(std::size_t count) {
        std::unique_lock<std::mutex> guard(lock);
        return arrived.wait_for(guard, std::chrono::seconds(20),
                                [&] { return frames.size() >= count; });
    }
    std::vector<std::string> frames;
    std::set<std::thread::id> threads;

   private:
    std::mutex lock;
    std::condition_variable arrived;
};

/// A UDP socket that sends to ports of this machine and receives on its own.
class CUdpPeer {
   public:
    CUdpPeer() { EXPECT_TRUE(platform::BindToAnyPort(socket.handle())); }
    std::uint16_t port() const { return platform::LocalPort(socket.handle()).value_or(0); }
    void Send(std::uint16_t to, const std::string& bytes) const {
        const auto address = platform::MakeSocketAddress(*platform::ParseIpv4("127.0.0.1"), to);
        ASSERT_EQ(platform::SendDatagram(socket.handle(), bytes.data(), bytes.size(), address),
                  static_cast<std::ptrdiff_t>(bytes.size()));
    }
    /// Sends an RTP packet. The low half of its SSRC is its sequence number.
    void SendRtp(std::uint16_t to, unsigned sequence, unsigned time, bool last,
                 const std::string& payload) const {
        Send(to, "\x80" + std::string(last ? "\xE0" : "\x60") + Big(sequence, 2) + Big(time, 4) +
                     "SS" + Big(sequence, 2) + payload);
    }
    /// Sends one line of two pixels of an uncompressed frame.
    void SendLine(std::uint16_t to, unsigned sequence, unsigned time, unsigned line, bool last,
                  const std::string& pixels) const {
        SendRtp(to, sequence, time, last, Big(2, 4) + Big(line, 2) + Big(0, 2) + pixels);
    }
    /// Sends an uncompressed frame of one packet.
    void SendFrame(std::uint16_t to, unsigned sequence, const std::string& pixels) const {
        SendLine(to, sequence, sequence, 0, true, pixels);
    }
    /// Returns the next datagram, or an empty string if none arrives in time.
    std::string Next(int milliseconds = 20000) const {
        std::string bytes(2048, '\0');
        if (!Readable(socket, milliseconds)) return {};
        const auto size = platform::ReceiveDatagram(socket.handle(), bytes.data(), bytes.size());
        return bytes.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0);
    }

   private:
    platform::CSocket socket{platform::OpenUdpSocket()};
};

}  // namespace test
