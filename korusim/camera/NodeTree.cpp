#include "NodeTree.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace korusim {
namespace {

constexpr std::size_t maxRequestBytes = 4096;

constexpr std::string_view switchPath = ".rtp.caps.config.rtsp.streaming.enabled";
constexpr std::string_view frequencyPath = ".rtp.frequency";

/// Removes and returns the first word. The rest begins after the blank that follows it.
std::string_view TakeWord(std::string_view& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return word;
}

std::string NumberText(double value) {
    char digits[32];  // the shortest exact form of a double has at most 24 characters
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    return std::string(digits, end);
}

struct SReplyText {
    std::string operator()(const std::string& text) const { return "OK string " + text; }
    std::string operator()(bool flag) const { return flag ? "OK bool true" : "OK bool false"; }
    std::string operator()(double number) const { return "OK double " + NumberText(number); }
};

std::string NoSuchNode(std::string_view path) { return "ERROR no node " + std::string(path); }

}  // namespace

CNodeTree::CNodeTree(const SCameraSettings& settings) : rate(settings.rate) {
    nodes.emplace(".version.hwtype", "korusim");
    nodes.emplace(".version.product.name", "KORU simulated camera");
    nodes.emplace(".version.product.serial", "SIM-" + settings.address);
    nodes.emplace(".caps.config.segment", "simulation");
    if (settings.tree == ETree::Gcam) nodes.emplace(".gcam.version", "1.0");
    if (settings.tree == ETree::NoRtp) return;
    nodes.emplace(frequencyPath, rate);
    if (settings.tree == ETree::NoSwitch) return;
    nodes.emplace(switchPath, settings.tree != ETree::SwitchedOff);
}

std::string CNodeTree::Reply(std::string_view request) {
    const std::string_view verb = TakeWord(request);
    const std::string_view path = TakeWord(request);
    if (verb == "VERIFY" && request.empty()) return Verify(path);
    if (verb == "GET" && request.empty()) return Get(path);
    if (verb == "SET") return Set(path, request);
    return "ERROR unknown request";
}

std::string CNodeTree::Verify(std::string_view path) const {
    if (path.empty()) return NoSuchNode(path);
    if (nodes.contains(path)) return "OK";
    // An inner node exists if there is a leaf below it. In sorted order that is the next leaf.
    const std::string branch = std::string(path) + ".";
    const auto next = nodes.lower_bound(branch);
    return next != nodes.end() && next->first.starts_with(branch) ? "OK" : NoSuchNode(path);
}

std::string CNodeTree::Get(std::string_view path) const {
    const auto node = nodes.find(path);
    if (node == nodes.end()) return NoSuchNode(path);
    return std::visit(SReplyText(), node->second);
}

std::string CNodeTree::Set(std::string_view path, std::string_view typeAndValue) {
    const auto node = nodes.find(path);
    if (node == nodes.end()) return NoSuchNode(path);
    if (path != frequencyPath) return "ERROR " + std::string(path) + " cannot be set";
    if (TakeWord(typeAndValue) != "double") return "ERROR wrong type";
    double value = 0;
    const char* const last = typeAndValue.data() + typeAndValue.size();
    const auto [end, error] = std::from_chars(typeAndValue.data(), last, value);
    if (error != std::errc() || end != last) return "ERROR not a number";
    if (!(value > 0 && value <= maxFrameRate)) return "ERROR out of range";
    rate = value;
    node->second = value;
    return "OK";
}

std::string CNodeTreeReader::Feed(std::string_view bytes, CNodeTree& tree) {
    pending += bytes;
    std::string replies;
    std::size_t begin = 0;
    for (std::size_t end; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
        replies += tree.Reply(std::string_view(pending).substr(begin, end - begin)) + '\n';
    }
    pending.erase(0, begin);
    return replies;
}

bool CNodeTreeReader::broken() const noexcept { return pending.size() > maxRequestBytes; }

}  // namespace korusim
