#pragma once

#include <cstddef>
#include <cstdint>

namespace ControllerDaemon
{

constexpr size_t videoPixelBytes = 3;
constexpr size_t overlayPixelBytes = 4;

/// Lays a row of the interface layer (three colour bytes and alpha a pixel) over a row of the video layer (three bytes
/// a pixel), in place: alpha 0 keeps the video byte, 255 takes the interface byte, any other gives
/// (interface * alpha + video * (255 - alpha)) / 255, truncated. The rows need no alignment and must not overlap.
void BlendRow(uint8_t* video, const uint8_t* overlay, size_t pixels);

} // namespace ControllerDaemon
