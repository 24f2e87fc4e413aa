#include "Sender.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr std::size_t batchMost = 64;

}  // namespace

SSocketQueue QueueOf(std::uint16_t port) {
    SSocketQueue queue;
    std::FILE* const table = std::fopen("/proc/net/udp", "re");
    if (table == nullptr) return queue;
    std::array<char, 512> line{};
    while (std::fgets(line.data(), line.size(), table) != nullptr) {
        unsigned localPort = 0;
        unsigned long waiting = 0;
        unsigned long dropped = 0;
        if (std::sscanf(line.data(),
                        " %*d: %*8x:%x %*8x:%*x %*x %*x:%lx %*s %*s %*s %*s %*s %*s %*s %lu",
                        &localPort, &waiting, &dropped) == 3 &&
            localPort == port) {
            queue = {true, waiting, dropped};
        }
    }
    (void)std::fclose(table);
    return queue;
}

CSender::CSender(std::uint16_t port)
    : descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), to(port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("the sender cannot connect its socket");
    }
}

CSender::~CSender() { ::close(descriptor); }

void CSender::SendBurst(std::span<iovec> packets) {
    std::array<mmsghdr, batchMost> batch{};
    while (!packets.empty()) {
        const std::size_t count = std::min(packets.size(), batch.size());
        for (std::size_t i = 0; i < count; ++i) {
            batch[i].msg_hdr.msg_iov = &packets[i];
            batch[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = ::sendmmsg(descriptor, batch.data(), static_cast<unsigned>(count), 0);
        if (sent <= 0) throw std::runtime_error("the sender cannot send");
        packets = packets.subspan(static_cast<std::size_t>(sent));
    }
}

void CSender::SendDrained(std::span<iovec> packets) {
    // A datagram occupies up to twice its size in the receive buffer, which has more than 3 MB.
    constexpr std::size_t bytesMost = 500'000;
    while (!packets.empty()) {
        const std::size_t bytesEach = packets.front().iov_len;
        const std::size_t room = (bytesMost - std::min(bytesMost, waiting)) / bytesEach;
        const std::size_t count = std::min(room, packets.size());
        SendBurst(packets.first(count));
        waiting += count * bytesEach;
        packets = packets.subspan(count);
        if (!packets.empty()) WaitUntilDrained();
    }
}

void CSender::WaitUntilDrained() {
    using namespace std::chrono_literals;
    const auto end = Clock::now() + 10s;
    do {
        std::this_thread::sleep_for(1ms);
        if (Clock::now() > end) throw std::runtime_error("the receiver does not receive");
    } while (QueueOf(to).bytes != 0);
    waiting = 0;
}

void CSender::SendPaced(std::span<iovec> packets, std::chrono::nanoseconds interval) {
    due = std::max(due, Clock::now() - std::chrono::milliseconds(1));
    for (iovec& packet : packets) {
        while (Clock::now() < due) {
        }
        if (::send(descriptor, packet.iov_base, packet.iov_len, 0) < 0) {
            throw std::runtime_error("the sender cannot send");
        }
        due += interval;
    }
}

}  // namespace bench
