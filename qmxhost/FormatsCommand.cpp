#include <cstdio>

#include "Commands.h"
#include "PixelTypeNames.h"

namespace qmxhost {

std::uint32_t OpenFlags(const SCameraChoice& choice) noexcept {
    return choice.noTree ? openStream : openTree | openStream;
}

EExit RunFormats(CPluginHost& host, const SCameraChoice& choice, bool json) {
    COpenCamera camera(host, choice.nameOrAddress, OpenFlags(choice));
    // Used for both outputs, so that they agree.
    Json list = Json::array();
    for (const auto& format : camera.Formats()) {
        list.push_back({{"index", list.size()},
                        {"width", format.width},
                        {"height", format.height},
                        {"type", frames::TypeName(format.pixelType)},
                        {"pixelType", frames::GuidText(format.pixelType)}});
    }
    if (json) {
        PrintJson({{"camera", camera.address()}, {"formats", list}});
        return EExit::Done;
    }
    for (const Json& entry : list) {
        const std::string size = entry["width"].dump() + "x" + entry["height"].dump();
        char columns[64];
        std::snprintf(columns, sizeof(columns), "%3s  %-11s  ", entry["index"].dump().c_str(),
                      size.c_str());
        Print(columns + entry["type"].get<std::string>() + "\n");
    }
    PrintHint("try: qmxhost stream " + camera.address() + " --format 0 --duration 10");
    return EExit::Done;
}

}  // namespace qmxhost
