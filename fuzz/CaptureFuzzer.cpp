// A capture from anywhere: its table of contents, the choice of a stream, the responses of the
// recorded camera and the packets of the replay. Every packet that is sent is RTP, or RTCP, of a
// size that the stream has announced.
//
// Input: 1 byte for the link type, followed by frames: 1 byte for the time since the previous
// frame, 2 for the length, and the bytes.
#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "CaptureIndex.h"
#include "FuzzInput.h"
#include "RecordedResponses.h"
#include "ReplayReader.h"
#include "ReplaySchedule.h"
#include "RtspServer.h"

namespace {

using namespace korusim;

class CMemoryCapture : public CFrameSource {
   public:
    explicit CMemoryCapture(std::span<const std::uint8_t> capture)
        : input(capture.data(), capture.size()), kind(input.Take<std::uint8_t>()) {}

    std::optional<SCapturedFrame> Next() override {
        constexpr std::array linkTypes{101, 1, 113, 276, 0, 228, 108, 12};
        if (input.empty()) return std::nullopt;
        const auto step = input.Take<std::uint8_t>();
        // A large step is one of days.
        time += step < 250 ? std::int64_t{step} * 1'000'000 : std::int64_t{step} << 43;
        frame = fuzz::ExactCopy(input.TakeBytes(input.Take<std::uint16_t>()));
        return SCapturedFrame{time, linkTypes[kind % linkTypes.size()], frame};
    }

   private:
    fuzz::CFuzzInput input;
    std::uint8_t kind;
    std::int64_t time = 1'700'000'000'000'000'000;
    fuzz::ExactBytes frame;
};

/// Requests what the capture contains, and more.
void AskServer(const SCaptureContents& contents, const SRecordedStream& stream) {
    const auto recorded = std::make_shared<SRecordedResponses>();
    recorded->exchanges = stream.exchanges;
    const auto& others = contents.exchanges.at(stream.server);
    recorded->exchanges.insert(recorded->exchanges.end(), others.begin(), others.end());
    recorded->session = stream.session;
    recorded->recordedAddress = AddressText(stream.server.address);
    CRtspServer server({}, {7000, 7001},
                       std::make_unique<const CRecordedResponses>(recorded, "127.0.0.1"));
    const auto ask = [&](const std::string& method, const std::string& url) {
        const SRtspRequest request{method,
                                   url,
                                   "RTSP/1.0",
                                   {{"CSeq", "1"},
                                    {"Transport", "RTP/AVP;unicast;client_port=5000-5001"},
                                    {"Session", stream.session}}};
        const SRtspResponse response = server.Respond(1, request);
        FUZZ_REQUIRE(response.head.starts_with("RTSP/") && response.head.ends_with("\r\n\r\n"));
    };
    for (const SRtspExchange& each : recorded->exchanges) ask(each.method, each.url);
    for (const char* const method : {"SETUP", "PLAY", "PAUSE", "PLAY", "OTHER", "TEARDOWN"}) {
        ask(method, stream.exchanges.front().url);
    }
    FUZZ_REQUIRE(server.Refuse({}).head.ends_with("\r\n\r\n"));
}

void ReplayStream(std::span<const std::uint8_t> capture, const SRecordedStream& stream) {
    const CReplaySchedule schedule(stream.flow);
    CReplayReader reader([&] { return std::make_unique<CMemoryCapture>(capture); }, stream, true);
    SReplayBatch batch;
    for (int batches = 0; batches < 2; ++batches) {
        reader.Fill(batch);
        for (const SReplayPacket& packet : batch.packets) {
            const auto bytes = batch.BytesOf(packet);
            FUZZ_REQUIRE(schedule.DueTime(packet.time, packet.round).count() >= 0);
            if (packet.rtcp) {
                (void)schedule.AdaptRtcp(bytes, packet.round, 1);
                continue;
            }
            schedule.AdaptRtp(bytes, packet.round);
            FUZZ_REQUIRE(ReadRtpHeader(bytes) && bytes.size() <= stream.flow.maxDatagramBytes());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span capture(data, size);
    CCaptureIndex index;
    CMemoryCapture source(capture);
    while (const auto frame = source.Next()) index.Add(*frame);
    const SCaptureContents contents = index.Finish();
    for (std::uint32_t number = 0; number <= 4; ++number) {
        try {
            const SRecordedStream& stream = contents.streams[ChooseStream(contents, number)];
            if (IsDescribed(contents, stream)) AskServer(contents, stream);
            ReplayStream(capture, stream);
        } catch (const std::runtime_error&) {
            // Most captures cannot be replayed, and say so.
        }
    }
    return 0;
}
