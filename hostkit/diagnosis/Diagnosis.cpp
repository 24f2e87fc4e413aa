#include "Diagnosis.h"

#include <algorithm>
#include <cstdio>

#include "StreamDiagnosis.h"

namespace hostkit {
namespace {

SFinding AddressStep(const SCameraMeasurement& measured) {
    const bool byName = measured.camera != measured.address;
    return {
        "address",
        EVerdict::Ok,
        byName ? "'" + measured.camera + "' is announced at " + measured.address : measured.address,
        {},
        {}};
}

SFinding RouteStep(const SCameraMeasurement& measured) {
    if (!measured.route) {
        return {"route", EVerdict::Failed, "this machine has no route to " + measured.address,
                "check the address, the cable and the network settings of this machine",
                "This machine has no route to " + measured.address + "."};
    }
    std::string text = "from " + measured.route->localAddress;
    if (!measured.route->interfaceName.empty()) {
        text += " by interface " + measured.route->interfaceName;
    }
    return {"route", EVerdict::Ok, text, {}, {}};
}

/// Returns true if neither service of the camera accepts a connection.
bool NothingThere(const SCameraMeasurement& measured) {
    return measured.treeConnect != platform::EConnect::Connected &&
           measured.rtspConnect != platform::EConnect::Connected;
}

SFinding TreeStep(const SCameraMeasurement& measured) {
    SFinding finding{"node tree", EVerdict::Failed, {}, {}, {}};
    const std::string camera = "The camera at " + measured.address + " ";
    if (measured.treeConnect != platform::EConnect::Connected) {
        finding.text = "the camera " + ConnectObstacle(measured.treeConnect, treePort);
        finding.advice = "restart the camera, or open it by its address with --no-tree";
        finding.cause = camera + ConnectObstacle(measured.treeConnect, treePort) +
                        ", its node tree, without which it is not listed.";
        return finding;
    }
    if (measured.tree.state == ETree::NoConnection) {
        finding.text = "TCP port 4554 accepts connections, but no node tree responds there";
        finding.advice = "restart the camera";
        finding.cause = camera + "has no working node tree, and is therefore not listed.";
        return finding;
    }
    if (measured.tree.state != ETree::Ready) {
        finding.text = TreeObstacle(measured.tree.state);
        finding.cause = camera + "is not listed: " + TreeObstacle(measured.tree.state) + ".";
        return finding;
    }
    finding.verdict = EVerdict::Ok;
    finding.text = "allows streaming";
    if (measured.tree.frameRate) {
        finding.text += ", promises " + Decimal(*measured.tree.frameRate, 1) + " frames/s";
    }
    return finding;
}

SFinding RtspStep(const SCameraMeasurement& measured) {
    SFinding finding{"RTSP", EVerdict::Failed, {}, {}, {}};
    const std::string camera = "The camera at " + measured.address + " ";
    if (measured.rtspConnect != platform::EConnect::Connected) {
        finding.text = "the camera " + ConnectObstacle(measured.rtspConnect, rtspPort);
        finding.advice =
            "check that the address is that of a camera, and that no firewall blocks it";
        finding.cause = NothingThere(measured)
                            ? "There is no camera at " + measured.address + ": it " +
                                  ConnectObstacle(measured.rtspConnect, rtspPort) + "."
                            : camera + ConnectObstacle(measured.rtspConnect, rtspPort) + " (RTSP).";
    } else if (!measured.optionsStatus) {
        finding.text = "accepts connections to TCP port 554, but does not respond within 5 s";
        finding.advice = "restart the camera";
        finding.cause = camera + "accepts RTSP connections, but does not respond to requests.";
    } else if (*measured.optionsStatus != 200) {
        finding.text = "refuses OPTIONS with status " + std::to_string(*measured.optionsStatus);
        finding.advice = "check that it is a camera of this kind";
        finding.cause = camera + "refuses the first RTSP request.";
    } else if (measured.formats == 0) {
        finding.text = "responds, but describes neither a raw nor a JPEG-LS stream";
        finding.advice = "enable such a stream in the camera";
        finding.cause = camera + "offers neither a raw nor a JPEG-LS stream.";
    } else {
        finding.verdict = EVerdict::Ok;
        finding.text = "responds, and describes " + std::to_string(measured.formats) +
                       (measured.formats == 1 ? " format" : " formats");
    }
    return finding;
}

/// Returns the cause of the first failed finding, or of the first warning.
std::string MostLikelyCause(const std::vector<SFinding>& findings) {
    for (const EVerdict verdict : {EVerdict::Failed, EVerdict::Warning}) {
        const auto found = std::ranges::find(findings, verdict, &SFinding::verdict);
        if (found != findings.end()) return found->cause;
    }
    return {};
}

}  // namespace

std::string Decimal(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

bool SDiagnosis::failed() const {
    return std::ranges::any_of(
        findings, [](const SFinding& each) { return each.verdict == EVerdict::Failed; });
}

SDiagnosis Diagnose(const SCameraMeasurement& measured) {
    SDiagnosis diagnosis;
    auto& findings = diagnosis.findings;
    findings.push_back(AddressStep(measured));
    findings.push_back(RouteStep(measured));
    if (measured.route) {
        if (!NothingThere(measured)) findings.push_back(TreeStep(measured));
        findings.push_back(RtspStep(measured));
    }
    for (const SStreamMeasurement& stream : measured.streams) {
        for (SFinding& finding : DiagnoseStream(stream, measured)) {
            findings.push_back(std::move(finding));
        }
    }
    diagnosis.cause = MostLikelyCause(findings);
    if (diagnosis.cause.empty()) {
        diagnosis.cause = "No fault was found: the camera at " + measured.address +
                          " streams in every format without a loss.";
    }
    return diagnosis;
}

}  // namespace hostkit
