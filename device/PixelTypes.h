/// The pixel types of this plug-in's images.
#pragma once

#include "qmx.h"

namespace qmx::cam::priv {

/// Uncompressed 16-bit images, registered as "F7M0".
inline constexpr SGuid pixelTypeRaw = {
    0x44ACBC8C, 0x03B3, 0x4599, {0xB7, 0x84, 0x14, 0xDA, 0xD5, 0xC4, 0xBB, 0xF8}};
/// JPEG-LS images; not registered.
inline constexpr SGuid pixelTypeJpegLs = {
    0xADA2658E, 0x40C0, 0x4C31, {0x9C, 0x44, 0x76, 0x67, 0xB8, 0x16, 0x9F, 0xF6}};
/// JPEG images; not registered.
inline constexpr SGuid pixelTypeJpeg = {
    0xBD7EEE6E, 0x81B9, 0x4D4D, {0xA7, 0x95, 0xD4, 0x0C, 0x99, 0xD6, 0xD9, 0x1B}};
/// Family of the radiometric types. Also the pixel type of a device whose format was never set.
inline constexpr SGuid pixelFamilyRadiometric = {
    0x6D4A7D67, 0xC5FB, 0x4DE1, {0x99, 0x04, 0xE5, 0x6F, 0x06, 0x7A, 0xB1, 0x26}};
/// Family of the visual types.
inline constexpr SGuid pixelFamilyVisual = {
    0x1B6BF263, 0x9221, 0x4B15, {0xB2, 0x47, 0xD6, 0x6E, 0x66, 0x4A, 0x61, 0x70}};

/// Registers the nine pixel types with the host; repeating it does no harm. Ignores the host's
/// results, because a device works without the registration. Always returns true.
bool RegisterPixelTypes();

}  // namespace qmx::cam::priv
