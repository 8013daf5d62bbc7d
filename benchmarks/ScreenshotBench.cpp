// Measures a screenshot of 1920 x 1080 pixels: what comes before the PNG encoder beside one loop over the rows that
// does the same, and the encoder's two ways.

#include "benchmarks/Comparison.h"
#include "benchmarks/ScreenshotLayers.h"
#include "benchmarks/Table.h"
#include "capture/Framebuffer.h"
#include "capture/PixelBlend.h"
#include "capture/ScreenshotCapture.h"

#include <png.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace Bench;
using ControllerDaemon::AllocateRows;
using ControllerDaemon::FramebufferImage;
using ControllerDaemon::PixelBuffer;
using ControllerDaemon::ScreenshotCapture;

constexpr uint32_t videoStride = screenWidth * ControllerDaemon::videoPixelBytes;
constexpr uint32_t overlayStride = screenWidth * ControllerDaemon::overlayPixelBytes;
constexpr double mostOfFused = 2.0;
constexpr double mostSeconds = 0.010;

[[noreturn]] void GiveUp(const char* what)
{
    std::fprintf(stderr, "%s could not be measured\n", what);
    std::exit(EXIT_FAILURE);
}

double Seconds(const std::function<void()>& action)
{
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

FramebufferImage ReadLayer(const MemoryFile& file, uint32_t bytesPerPixel)
{
    FramebufferImage image;
    image.width = screenWidth;
    image.height = screenHeight;
    image.bytesPerPixel = bytesPerPixel;
    image.data = AllocateRows(image.Stride(), image.height);
    if (image.data == nullptr || ScreenshotCapture::read_framebuffer_pixels(
                                     image.data.get(), file.Get(), ScreenOf(bytesPerPixel), image.Stride(), 0) < 0)
    {
        GiveUp("a screenshot");
    }
    return image;
}

/// What the daemon does before it encodes, its memory included.
FramebufferImage Compose(const MemoryFile& video, const MemoryFile& overlay)
{
    FramebufferImage screen = ReadLayer(video, ControllerDaemon::videoPixelBytes);
    const PixelBuffer scratch = AllocateRows(screen.Stride(), 1);
    MirrorShifted(screen, scratch.get());
    BlendLayers(screen, ReadLayer(overlay, ControllerDaemon::overlayPixelBytes));
    return screen;
}

void ReadRow(const MemoryFile& file, uint8_t* row, uint32_t stride, uint32_t number)
{
    if (pread(file.Get(), row, stride, static_cast<off_t>(stride) * number) != static_cast<ssize_t>(stride))
    {
        GiveUp("the fused loop");
    }
}

/// The same picture in one loop, which holds no layer as a whole and reads each row to where it belongs. (The height is
/// even, so that no row stays in the middle.)
PixelBuffer ComposeFused(const MemoryFile& video, const MemoryFile& overlay)
{
    PixelBuffer screen = AllocateRows(videoStride, screenHeight);
    const PixelBuffer overlayRow = AllocateRows(overlayStride, 1);
    for (uint32_t y = 0; y < screenHeight; ++y)
    {
        uint8_t* row = screen.get() + size_t{y} * videoStride;
        if (y == 0)
        {
            std::memset(row, 0, videoStride);
        }
        else
        {
            ReadRow(video, row, videoStride, screenHeight - y);
        }
        ReadRow(overlay, overlayRow.get(), overlayStride, y);
        ControllerDaemon::BlendRow(row, overlayRow.get(), screenWidth);
    }
    return screen;
}

/// As it is written down, for the compiler to make of it what it can.
void BlendPlainly(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    for (size_t i = 0; i < pixels; ++i)
    {
        const uint32_t alpha = overlay[i * 4 + 3];
        for (size_t j = 0; j < 3; ++j)
        {
            video[i * 3 + j] =
                static_cast<uint8_t>((overlay[i * 4 + j] * alpha + (255 - alpha) * video[i * 3 + j]) / 255);
        }
    }
}

std::string Milliseconds(double seconds) { return Text("%.2f ms", seconds * 1e3); }

void AddComparison(Table& table, const char* name, const Comparison& comparison, const std::string& goal)
{
    const Spread ratio = comparison.Ratio(0);
    table.Add({name, Milliseconds(comparison.MeasuredSpread(0).median), Milliseconds(comparison.BareSpread(0).median),
               Text("%.2f", ratio.least), Text("%.2f", ratio.median), Text("%.2f", ratio.most), goal});
}

void MeasureComposing(size_t rounds)
{
    const MemoryFile video(NoisyVideo());
    const MemoryFile overlay(InterfaceOverlay());
    if (std::memcmp(Compose(video, overlay).data.get(), ComposeFused(video, overlay).get(),
                    size_t{videoStride} * screenHeight) != 0)
    {
        GiveUp("two ways that differ");
    }
    const auto composing = Interleave(
        rounds, [&] { return Cost{Seconds([&] { Compose(video, overlay); })}; },
        [&] { return Cost{Seconds([&] { ComposeFused(video, overlay); })}; });
    FramebufferImage screen = ReadLayer(video, ControllerDaemon::videoPixelBytes);
    const FramebufferImage top = ReadLayer(overlay, ControllerDaemon::overlayPixelBytes);
    const auto blending = Interleave(
        rounds, [&] { return Cost{Seconds([&] { BlendLayers(screen, top); })}; },
        [&] {
            return Cost{
                Seconds([&] { BlendPlainly(screen.data.get(), top.data.get(), size_t{screenWidth} * screenHeight); })};
        });
    const double ratio = composing.Ratio(0).median;
    const double seconds = composing.MeasuredSpread(0).median;
    Table table({"1920 x 1080", "daemon", "other", "min", "median", "max", "goal"});
    AddComparison(table, "read, mirror, blend / one fused loop", composing,
                  Text("<= %.0f %s, <= %.0f ms %s", mostOfFused, Verdict(ratio <= mostOfFused), mostSeconds * 1e3,
                       Verdict(seconds <= mostSeconds)));
    AddComparison(table, "blend / plain loop", blending, "-");
    table.Print();
}

/// Writes as the daemon does, but for the flags.
void Encode(const FramebufferImage& screen, const std::string& path, uint32_t flags)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = screen.width;
    image.height = screen.height;
    image.format = PNG_FORMAT_BGR;
    image.flags = flags;
    const auto stride = static_cast<int32_t>(screen.Stride());
    if (png_image_write_to_file(&image, path.c_str(), 0, screen.data.get(), stride, nullptr) == 0)
    {
        GiveUp("the encoder");
    }
}

void MeasureEncoding(Table& table, const char* name, const std::vector<uint8_t>& video, size_t rounds)
{
    const FramebufferImage screen = Compose(MemoryFile(video), MemoryFile(InterfaceOverlay()));
    for (const bool isFast : {false, true})
    {
        std::vector<double> seconds;
        uint64_t size = 0;
        for (size_t i = 0; i < rounds; ++i)
        {
            ThrowIfInterrupted();
            const MemoryFile file;
            const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
            seconds.push_back(Seconds([&] { Encode(screen, path, isFast ? PNG_IMAGE_FLAG_FAST : 0); }));
            size = file.Size();
        }
        const Spread spread = SpreadOf(seconds);
        table.Add({name, isFast ? "fast" : "thorough", Milliseconds(spread.least), Milliseconds(spread.median),
                   Text("%.0f KiB", static_cast<double>(size) / 1024)});
    }
}

} // namespace

int main(int count, char** arguments)
{
    const bool isQuick = count == 2 && arguments[1] == std::string_view("--quick");
    if (count != 1 && !isQuick)
    {
        std::fputs("usage: screenshot_bench [--quick]\n", stderr);
        return 2;
    }
    ListenToInterrupts();
    try
    {
        MeasureComposing(isQuick ? 41 : 301);
        std::printf("\n");
        Table table({"PNG encoder", "way", "least", "median", "size"});
        MeasureEncoding(table, "interface over smooth video", SmoothVideo(), isQuick ? 3 : 15);
        MeasureEncoding(table, "interface over camera video", CameraVideo(), isQuick ? 3 : 15);
        MeasureEncoding(table, "interface over noise", NoisyVideo(), isQuick ? 3 : 15);
        table.Print();
    }
    catch (const Interrupted&)
    {
        std::fprintf(stderr, "interrupted\n");
        return 130;
    }
    return EXIT_SUCCESS;
}
