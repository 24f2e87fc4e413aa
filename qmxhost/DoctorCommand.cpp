#include "DoctorCommand.h"

#include <algorithm>
#include <cstdio>

#include "Arguments.h"
#include "Diagnosis.h"
#include "Process.h"
#include "RtspProbe.h"
#include "StreamMeter.h"
#include "Streaming.h"

namespace qmxhost {
namespace {

constexpr std::uint32_t connectLimit = 2000;  // milliseconds

/// Returns the address of a camera, even of one that the plug-in does not list.
std::string AddressOf(CPluginHost& host, const std::string& camera) {
    if (IsAddress(camera)) return camera;
    const std::vector<SAnnouncement> announced = AnnouncedCameras();
    const auto named = [&](const SAnnouncement& each) { return each.name == camera; };
    if (std::ranges::count_if(announced, named) == 1) {
        return std::ranges::find_if(announced, named)->address;
    }
    return ParameterText(host.Find(camera), "IP");
}

void ProbeServices(SCameraMeasurement& measured) {
    using platform::EConnect;
    measured.treeConnect = platform::TryConnect(measured.address, treePort, connectLimit);
    measured.rtspConnect = platform::TryConnect(measured.address, rtspPort, connectLimit);
    if (measured.treeConnect == EConnect::Connected) measured.tree = ProbeTree(measured.address);
    if (measured.rtspConnect != EConnect::Connected) return;
    CRtspProbe probe(measured.address);
    const auto response = probe.Request("OPTIONS", "*");
    if (response) measured.optionsStatus = response->status;
}

std::vector<qmx::cam::IDevice::SFormat> FormatsOf(CPluginHost& host, const std::string& address,
                                                  std::uint32_t flags) {
    try {
        return COpenCamera(host, address, flags).Formats();
    } catch (const CFailure&) {
        return {};  // the finding about RTSP reports it
    }
}

void MeasureStreams(CPluginHost& host, const SDoctorOptions& options,
                    SCameraMeasurement& measured) {
    const bool tree =
        !options.camera.noTree && measured.treeConnect == platform::EConnect::Connected;
    const std::uint32_t flags = tree ? openTree | openStream : openStream;
    const auto formats = FormatsOf(host, measured.address, flags);
    measured.formats = formats.size();
    if (!formats.empty()) measured.background = MeasureBackground(*measured.route);
    for (const auto& format : formats) {
        if (platform::StopRequested()) return;
        PrintHint("streaming " + FormatText(format));
        try {
            // Opened for each format, because a start that failed closes the camera.
            COpenCamera camera(host, measured.address, flags);
            measured.streams.push_back(
                MeasureStream(camera, format, options.seconds, *measured.route));
        } catch (const CFailure&) {
            SStreamMeasurement& lost = measured.streams.emplace_back();
            lost.format = FormatText(format);
            lost.refusal = {OpenObstacle(measured.address, tree), "start the doctor again"};
        }
        // The findings about the stream explain that no other one can start.
        if (measured.streams.back().afterwards != platform::EConnect::Connected) return;
    }
}

SCameraMeasurement Measure(CPluginHost& host, const SDoctorOptions& options) {
    SCameraMeasurement measured;
    measured.camera = options.camera.nameOrAddress;
    measured.address = AddressOf(host, measured.camera);
    measured.route = platform::RouteTo(measured.address);
    if (!measured.route) return measured;
    ProbeServices(measured);
    if (measured.optionsStatus == 200) MeasureStreams(host, options, measured);
    return measured;
}

const char* Word(EVerdict verdict) {
    if (verdict == EVerdict::Ok) return "ok";
    return verdict == EVerdict::Warning ? "warning" : "failed";
}

void PrintFindings(const SDiagnosis& diagnosis) {
    std::size_t widest = 0;
    for (const SFinding& each : diagnosis.findings) widest = std::max(widest, each.step.size());
    for (const SFinding& each : diagnosis.findings) {
        std::string line = Word(each.verdict);
        line.resize(9, ' ');
        line += each.step + std::string(widest + 2 - each.step.size(), ' ') + each.text;
        if (!each.advice.empty()) line += "; " + each.advice;
        Print(line + "\n");
    }
    const bool fine = std::ranges::all_of(
        diagnosis.findings, [](const SFinding& each) { return each.verdict == EVerdict::Ok; });
    Print((fine ? "" : "Most likely cause: ") + diagnosis.cause + "\n");
}

Json AsJson(const SCameraMeasurement& measured, const SDiagnosis& diagnosis) {
    Json steps = Json::array();
    for (const SFinding& each : diagnosis.findings) {
        steps.push_back({{"step", each.step},
                         {"result", Word(each.verdict)},
                         {"measured", each.text},
                         {"advice", each.advice}});
    }
    return {{"camera", measured.camera},
            {"address", measured.address},
            {"steps", steps},
            {"cause", diagnosis.cause}};
}

}  // namespace

EExit RunDoctor(CPluginHost& host, const SDoctorOptions& options) {
    platform::WatchStopSignals();
    const SCameraMeasurement measured = Measure(host, options);
    const SDiagnosis diagnosis = Diagnose(measured);
    if (options.json) {
        PrintJson(AsJson(measured, diagnosis));
    } else {
        PrintFindings(diagnosis);
    }
    return diagnosis.failed() ? EExit::Failed : EExit::Done;
}

}  // namespace qmxhost
