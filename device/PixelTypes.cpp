#include "PixelTypes.h"

#include <cstdint>

namespace qmx::cam::priv {

bool RegisterPixelTypes() {
    constexpr EDataType radiometric{3};
    constexpr EDataType visual{10};
    struct SRow {
        const char* name;
        SGuid pixelType;
        std::uint8_t byte;
        EDataType dataType;
        SGuid family;
    };
    // Only the first one occurs in a catalogue. The byte of "Y800" is 2, as for the packed types,
    // not 1.
    static constexpr SRow rows[] = {
        {"F7M0", pixelTypeRaw, 2, radiometric, pixelFamilyRadiometric},
        {"F7M2",
         {0xF5143BE1, 0x3F5C, 0x46E8, {0x99, 0xB7, 0xE5, 0xBC, 0x2A, 0x0A, 0x99, 0x90}},
         2,
         radiometric,
         pixelFamilyRadiometric},
        {"F7M3",
         {0x6AAAF0FA, 0x3BCF, 0x41A4, {0x84, 0x2E, 0xEE, 0xE1, 0x7B, 0xFA, 0x1C, 0x00}},
         2,
         visual,
         pixelFamilyVisual},
        {"UYVY",
         {0xBB8A3D05, 0xC4F6, 0x4193, {0xB1, 0x98, 0x08, 0xD9, 0xE7, 0x97, 0xE8, 0x86}},
         2,
         visual,
         pixelFamilyVisual},
        {"YUY2",
         {0x88DF0B84, 0x7417, 0x41CB, {0x9B, 0x49, 0x2F, 0x58, 0x53, 0x23, 0xD6, 0x20}},
         2,
         visual,
         pixelFamilyVisual},
        {"YVYU",
         {0xBA6665B6, 0x45C6, 0x4F68, {0xAD, 0x9E, 0x2D, 0x77, 0x88, 0x47, 0x76, 0xA3}},
         2,
         visual,
         pixelFamilyVisual},
        {"YUYV",
         {0x296020A9, 0x9BFF, 0x4ADD, {0x97, 0x63, 0x74, 0xCA, 0x3E, 0x85, 0xFC, 0x35}},
         2,
         visual,
         pixelFamilyVisual},
        {"Y800",
         {0x327F8ED5, 0x4584, 0x48C7, {0x9F, 0xB1, 0xE3, 0x26, 0x37, 0x6C, 0xD4, 0xB8}},
         2,
         visual,
         pixelFamilyVisual},
        {"BGR8",
         {0x5BA4C88B, 0xEBB4, 0x4676, {0x88, 0xE4, 0xFC, 0x5C, 0x0F, 0xF6, 0xEB, 0x36}},
         3,
         visual,
         pixelFamilyVisual},
    };
    for (const SRow& row : rows) {
        RegisterPixelType(row.pixelType, row.name, row.byte, row.dataType, row.family);
    }
    return true;
}

}  // namespace qmx::cam::priv
