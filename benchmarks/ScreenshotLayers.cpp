#include "benchmarks/ScreenshotLayers.h"

#include "capture/PixelBlend.h"

#include <random>

namespace Bench
{
namespace
{

using ControllerDaemon::overlayPixelBytes;
using ControllerDaemon::videoPixelBytes;

constexpr size_t pixelCount = size_t{screenWidth} * screenHeight;
constexpr unsigned noiseLevels = 64;
constexpr unsigned grainLevels = 6;

void Fill(std::vector<uint8_t>& overlay, uint32_t left, uint32_t top, uint32_t width, uint32_t height, uint32_t colour)
{
    for (uint32_t y = top; y < top + height; ++y)
    {
        for (uint32_t x = left; x < left + width; ++x)
        {
            for (size_t i = 0; i < overlayPixelBytes; ++i)
            {
                overlay[(size_t{y} * screenWidth + x) * overlayPixelBytes + i] = static_cast<uint8_t>(colour >> 8 * i);
            }
        }
    }
}

} // namespace

std::vector<uint8_t> SmoothVideo()
{
    std::vector<uint8_t> video(pixelCount * videoPixelBytes);
    for (size_t pixel = 0; pixel < pixelCount; ++pixel)
    {
        const size_t x = pixel % screenWidth;
        const size_t y = pixel / screenWidth;
        video[pixel * videoPixelBytes] = static_cast<uint8_t>(x * 255 / screenWidth);
        video[pixel * videoPixelBytes + 1] = static_cast<uint8_t>(y * 255 / screenHeight);
        video[pixel * videoPixelBytes + 2] = static_cast<uint8_t>((x + y) / 16);
    }
    return video;
}

std::vector<uint8_t> CameraVideo()
{
    std::vector<uint8_t> video = SmoothVideo();
    std::mt19937 grain(2); // NOLINT(cert-msc51-cpp): every run measures the same picture
    for (uint8_t& byte : video)
    {
        byte = static_cast<uint8_t>(byte / 2 + grain() % grainLevels);
    }
    return video;
}

std::vector<uint8_t> NoisyVideo()
{
    std::vector<uint8_t> video(pixelCount * videoPixelBytes);
    std::mt19937 noise(1); // NOLINT(cert-msc51-cpp): every run measures the same picture
    for (uint8_t& byte : video)
    {
        byte = static_cast<uint8_t>(noise() % noiseLevels);
    }
    return video;
}

std::vector<uint8_t> InterfaceOverlay()
{
    std::vector<uint8_t> overlay(pixelCount * overlayPixelBytes);
    Fill(overlay, 0, 0, screenWidth, 80, 0xFF404040);
    Fill(overlay, 0, 80, 300, screenHeight - 80, 0x80102030);
    for (uint32_t line = 0; line < 20; ++line)
    {
        for (uint32_t letter = 0; letter < 12; ++letter)
        {
            Fill(overlay, 30 + letter * 20, 120 + line * 40, 2 + letter % 10, 16, 0xFFE0E0E0);
        }
    }
    return overlay;
}

fb_var_screeninfo ScreenOf(uint32_t bytesPerPixel)
{
    fb_var_screeninfo screen{};
    screen.xres = screen.xres_virtual = screenWidth;
    screen.yres = screen.yres_virtual = screenHeight;
    screen.bits_per_pixel = bytesPerPixel * 8;
    return screen;
}

} // namespace Bench
