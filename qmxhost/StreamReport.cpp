#include "StreamReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Process.h"

namespace qmxhost {
namespace {

std::string Fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

/// These measurements justify at most three decimals.
double Rounded(double value) { return std::round(value * 1000) / 1000; }

std::string RatesText(const frames::SFrameRates& rates, frames::Clock::duration longestGap) {
    return Fixed(rates.framesPerSecond, 1) + " frames/s, " + Fixed(rates.megabitsPerSecond, 1) +
           " Mbit/s, longest gap " + Fixed(frames::Milliseconds(longestGap), 0) + " ms";
}

/// The fields that status and summary have in common.
Json RatesJson(const char* kind, double seconds, const frames::SFrameTotals& totals,
               const frames::SFrameRates& rates) {
    return {{"kind", kind},
            {"seconds", Rounded(seconds)},
            {"frames", totals.frames},
            {"bytes", totals.bytes},
            {"framesPerSecond", Rounded(rates.framesPerSecond)},
            {"megabitsPerSecond", Rounded(rates.megabitsPerSecond)},
            {"longestGapMs", Rounded(frames::Milliseconds(totals.longestGap))},
            {"missing", totals.missing},
            {"skipped", totals.skipped},
            {"notKept", totals.notKept}};
}

/// Frames for which the queue had no room were not checked.
Json CheckJson(const frames::SCheckTotals& check, std::uint64_t unchecked) {
    return {{"good", check.good},           {"damaged", check.damaged},
            {"missing", check.missing},     {"repeated", check.repeated},
            {"backwards", check.backwards}, {"unchecked", unchecked}};
}

std::string CheckText(const frames::SCheckTotals& check, std::uint64_t unchecked) {
    const auto part = [](std::uint64_t number, const char* what) {
        return std::to_string(number) + " " + what;
    };
    return "check: " + part(check.good, "good, ") + part(check.damaged, "damaged, ") +
           part(check.missing, "missing, ") + part(check.repeated, "repeated, ") +
           part(check.backwards, "backwards, ") + part(unchecked, "unchecked");
}

std::string SummaryText(const SStreamSummary& summary, double seconds) {
    const frames::SFrameTotals& totals = summary.totals;
    std::string text = "camera " + summary.camera + ", " + summary.format + "\n" +
                       std::to_string(totals.frames) + (totals.frames == 1 ? " frame" : " frames") +
                       " in " + Fixed(seconds, 1) + " s";
    // A rate and a gap need two frames.
    if (totals.frames > 1)
        text += ": " + RatesText(frames::RatesOverall(totals), totals.longestGap);
    if (totals.missing != 0) text += ", about " + std::to_string(totals.missing) + " missing";
    if (totals.skipped != 0) text += ", " + std::to_string(totals.skipped) + " skipped";
    text += "\n";
    if (summary.saved) {
        text += "saved " + std::to_string(summary.saved->saved) + " to " + summary.savedTo + ", " +
                std::to_string(totals.notKept) + " not kept, " +
                std::to_string(summary.saved->undecodable) + " undecodable, " +
                std::to_string(summary.saved->empty) + " empty\n";
    }
    if (summary.check) text += CheckText(*summary.check, totals.notKept) + "\n";
    if (const auto& dropped = summary.loss.droppedDatagrams) {
        text += "this system dropped " + std::to_string(*dropped) +
                (*dropped == 1 ? " datagram" : " datagrams") + " for lack of receive buffer\n";
    }
    return text;
}

}  // namespace

CStreamReport::CStreamReport(bool jsonOutput, bool toError)
    : json(jsonOutput),
      resultsToError(toError),
      rewrite(!jsonOutput && platform::ErrorIsTerminal()) {}

void CStreamReport::Begin(frames::Clock::time_point now) {
    started = now;
    previousLook = now;
}

void CStreamReport::Status(frames::SFrameTotals totals, frames::Clock::time_point now) {
    const frames::SFrameRates rates = frames::RatesBetween(previous, totals, now - previousLook);
    const double seconds = frames::Seconds(now - started);
    previous = totals;
    previousLook = now;
    // A gap is shown while it lasts, not only when a frame has ended it.
    if (totals.frames != 0) totals.longestGap = std::max(totals.longestGap, now - totals.last);
    if (json) {
        PrintJson(RatesJson("status", seconds, totals, rates));
    } else {
        PrintStatus(Fixed(seconds, 1) + " s, " + std::to_string(totals.frames) + " frames, " +
                    RatesText(rates, totals.longestGap));
    }
}

void CStreamReport::PrintStatus(const std::string& line) {
    if (!rewrite) {
        std::fprintf(stderr, "%s\n", line.c_str());
        return;
    }
    // Overwrites the end of a longer line.
    const std::size_t longer = std::max(line.size(), lineLength);
    const std::string padding(longer - line.size(), ' ');
    std::fprintf(stderr, "\r%s%s", line.c_str(), padding.c_str());
    lineLength = line.size();
}

void CStreamReport::EndStatusLine() {
    if (lineLength != 0) std::fputc('\n', stderr);
    lineLength = 0;
}

void CStreamReport::Summary(const SStreamSummary& summary) {
    EndStatusLine();
    const double seconds = frames::Seconds(frames::Clock::now() - started);
    if (!json) {
        const std::string text = SummaryText(summary, seconds);
        if (!resultsToError) return Print(text);
        std::fputs(text.c_str(), stderr);
        return;
    }
    Json line = RatesJson("summary", seconds, summary.totals, frames::RatesOverall(summary.totals));
    line["camera"] = summary.camera;
    line["format"] = summary.format;
    if (summary.saved) {
        line["saved"] = summary.saved->saved;
        line["undecodable"] = summary.saved->undecodable;
        line["empty"] = summary.saved->empty;
    }
    if (const auto& dropped = summary.loss.droppedDatagrams) line["droppedDatagrams"] = *dropped;
    if (summary.check) line["check"] = CheckJson(*summary.check, summary.totals.notKept);
    PrintJson(line);
}

}  // namespace qmxhost
