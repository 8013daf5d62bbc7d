#pragma once

#include <linux/fb.h>

#include <cstdint>
#include <vector>

namespace Bench
{

inline constexpr uint32_t screenWidth = 1920;
inline constexpr uint32_t screenHeight = 1080;

/// The pixels of a screen's video layer: smooth surfaces; the same with a camera's grain; darkness gained up to noise.
[[nodiscard]] std::vector<uint8_t> SmoothVideo();
[[nodiscard]] std::vector<uint8_t> CameraVideo();
[[nodiscard]] std::vector<uint8_t> NoisyVideo();
/// The pixels of an interface layer: a few opaque and translucent areas and lines of text on an otherwise clear screen.
[[nodiscard]] std::vector<uint8_t> InterfaceOverlay();

/// What a layer's device tells of itself.
[[nodiscard]] fb_var_screeninfo ScreenOf(uint32_t bytesPerPixel);

} // namespace Bench
