#include "Socket.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Sockets.h"

namespace {

platform::SSocketAddress To(const char* address, std::uint16_t port) {
    return platform::MakeSocketAddress(platform::ParseIpv4(address).value(), port);
}

// A socket bound only to the loopback address would receive nothing from a real camera.
TEST(Socket, ReceivesOnEveryLocalAddress) {
    const platform::CSocket receiver(platform::OpenUdpSocket());
    const platform::CSocket sender(platform::OpenUdpSocket());
    ASSERT_TRUE(platform::BindToAnyPort(receiver.handle()));
    const std::uint16_t port = platform::LocalPort(receiver.handle()).value();
    char buffer[8] = {};
    for (const char* const address : {"127.0.0.1", "127.0.0.2", "127.8.9.10"}) {
        EXPECT_EQ(platform::SendDatagram(sender.handle(), address, 8, To(address, port)), 8);
        ASSERT_TRUE(test::Readable(receiver, 20000)) << address;
        EXPECT_EQ(platform::ReceiveDatagram(receiver.handle(), buffer, sizeof(buffer)), 8);
    }
}

TEST(Socket, ReceivesADatagramAsAWholeOrNotAtAll) {
    const platform::CSocket receiver(platform::OpenUdpSocket());
    const platform::CSocket sender(platform::OpenUdpSocket());
    ASSERT_TRUE(platform::BindToAnyPort(receiver.handle()));
    const auto to = To("127.0.0.1", platform::LocalPort(receiver.handle()).value());
    for (const std::size_t size : {16u, 17u, 4000u, 0u, 1u}) {
        const std::string sent(size, 's');
        ASSERT_EQ(platform::SendDatagram(sender.handle(), sent.data(), size, to),
                  static_cast<std::ptrdiff_t>(size));
        std::string room(32, '.');
        const auto received = platform::ReceiveDatagram(receiver.handle(), room.data(), 16);
        EXPECT_EQ(received, size > 16 ? -1 : static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(room.substr(16), std::string(16, '.')) << "beyond the buffer";
    }
}

TEST(Socket, ResolvesAddressesAndNames) {
    EXPECT_EQ(platform::ResolveIpv4("localhost"), platform::ParseIpv4("127.0.0.1"));
    EXPECT_EQ(platform::ResolveIpv4("10.0.0.5"), platform::ParseIpv4("10.0.0.5"));
    for (const char* const nobody :
         {"255.255.255.255", "0xffffffff", "4294967295", "037777777777", "10.0.0.5x"}) {
        EXPECT_FALSE(platform::ResolveIpv4(nobody)) << nobody;
    }
}

}  // namespace
