#include "benchmarks/LayerFloor.h"
#include "benchmarks/Measurements.h"
#include "benchmarks/ScreenshotLayers.h"
#include "capture/Framebuffer.h"
#include "capture/PixelBlend.h"
#include "dbus_helper/Descriptor.h"
#include "dbus_helper/Handles.h"

#include <png.h>

#include <fcntl.h>
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace Bench
{
namespace
{

using ControllerDaemon::FramebufferImage;

constexpr double composeGoal = 2.0;
constexpr uint32_t videoBytes = ControllerDaemon::videoPixelBytes;
constexpr uint32_t overlayBytes = ControllerDaemon::overlayPixelBytes;
constexpr size_t screenBytes = size_t{screenWidth} * screenHeight * videoBytes;

double OwnCpuSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Time and this process's processor time.
Cost CostOf(const std::function<void()>& work)
{
    const double cpu = OwnCpuSeconds();
    const Clock::time_point begin = Clock::now();
    work();
    return {std::chrono::duration<double>(Clock::now() - begin).count(), OwnCpuSeconds() - cpu};
}

template <typename T>
void WriteFile(const std::filesystem::path& path, const T* data, size_t count)
{
    std::ofstream file(path, std::ios::binary);
    if (!file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(count * sizeof(T))))
    {
        throw Failure("cannot write " + path.string());
    }
}

/// The files that are the screen's layers.
struct Layers
{
    std::filesystem::path video;
    std::filesystem::path overlay;

    explicit Layers(const BenchUnit& unit) : video(unit.Layers() / "fb0"), overlay(unit.Layers() / "fb1")
    {
        const std::vector<uint8_t> pixels = InterfaceOverlay();
        WriteFile(overlay, pixels.data(), pixels.size());
        for (const auto& [path, bytesPerPixel] : {std::pair(video, videoBytes), std::pair(overlay, overlayBytes)})
        {
            const fb_var_screeninfo screen = ScreenOf(bytesPerPixel);
            WriteFile(path.string() + ".info", &screen, 1);
        }
    }

    void Show(const std::vector<uint8_t>& pixels) const { WriteFile(video, pixels.data(), pixels.size()); }
};

FramebufferImage EmptyImage(uint32_t bytesPerPixel)
{
    FramebufferImage image;
    image.width = screenWidth;
    image.height = screenHeight;
    image.bytesPerPixel = bytesPerPixel;
    return image;
}

/// What the daemon does before it encodes, its memory included.
FramebufferImage Compose(const Layers& layers)
{
    const DbusHelper::Descriptor video(open(layers.video.c_str(), O_RDONLY | O_CLOEXEC));
    FramebufferImage screen = EmptyImage(videoBytes);
    screen.data = ControllerDaemon::AllocateRows(screen.Stride(), screenHeight);
    int result = ControllerDaemon::ReadWindow(video.Get(), ScreenOf(videoBytes), screen.Stride(), 0, screen.data.get());
    MirrorShifted(screen, ControllerDaemon::AllocateRows(screen.Stride(), 1).get());
    const DbusHelper::Descriptor over(open(layers.overlay.c_str(), O_RDONLY | O_CLOEXEC));
    FramebufferImage overlay = EmptyImage(overlayBytes);
    overlay.data = ControllerDaemon::AllocateRows(overlay.Stride(), BandRows(overlay));
    result = result < 0 ? result : BlendWindow(screen, overlay, over.Get(), ScreenOf(overlayBytes));
    if (result < 0)
    {
        throw Failure("the layers cannot be read");
    }
    return screen;
}

/// Writes as the daemon does.
void Encode(const uint8_t* pixels, const std::filesystem::path& path, uint32_t flags = PNG_IMAGE_FLAG_FAST)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = screenWidth;
    image.height = screenHeight;
    image.format = PNG_FORMAT_BGR;
    image.flags = flags;
    if (png_image_write_to_file(&image, path.c_str(), 0, pixels, screenWidth * videoBytes, nullptr) == 0)
    {
        throw Failure("the encoder failed");
    }
}

void MeasureComposing(const Layers& layers, const Sizes& sizes, Table& table)
{
    layers.Show(NoisyVideo());
    if (std::memcmp(Compose(layers).data.get(), ComposeByMapping(layers.video, layers.overlay).get(), screenBytes) != 0)
    {
        throw Failure("the floor's picture is another");
    }
    const auto compare = [&](const std::string& name, const std::function<void()>& prepare) {
        const auto cost = [&](const std::function<void()>& compose) {
            prepare();
            return CostOf(compose);
        };
        const Comparison comparison = Interleave(
            sizes.screenshotRounds * 5, [&] { return cost([&] { static_cast<void>(Compose(layers)); }); },
            [&] { return cost([&] { static_cast<void>(ComposeByMapping(layers.video, layers.overlay)); }); });
        AddRatio(table, "layers read and blended " + name, comparison, 0, composeGoal);
        AddRatio(table, "layers read and blended " + name + ", CPU", comparison, 1, 0);
    };
    compare("into new memory", [] { malloc_trim(0); });
    // Blocks of any size stay with the heap.
    mallopt(M_MMAP_THRESHOLD, 1 << 25);
    mallopt(M_TRIM_THRESHOLD, 1 << 26);
    compare("into memory at hand", [] {});
}

/// The whole call, the file included, which is removed again.
Cost TakeScreenshot(const BenchUnit& unit, const Service& daemon)
{
    DbusHelper::BusError error;
    sd_bus_message* message = nullptr;
    const double cpu = daemon.process.CpuSeconds();
    const Clock::time_point begin = Clock::now();
    const int result =
        sd_bus_call_method(unit.Bus(), daemonEndpoint.service, daemonEndpoint.path, daemonEndpoint.interface,
                           "Screenshot", error.Get(), &message, "s", unit.Media().c_str());
    const double taken = std::chrono::duration<double>(Clock::now() - begin).count();
    const double cpuTaken = daemon.process.CpuSeconds() - cpu;
    const DbusHelper::MessageHandle reply(message);
    const char* path = nullptr;
    int32_t code = -1;
    const char* text = "no answer";
    if (result < 0 || sd_bus_message_read(reply.get(), "sis", &path, &code, &text) <= 0 || code != 0)
    {
        throw Failure(std::string("Screenshot answered: ") + (error.Message() != nullptr ? error.Message() : text));
    }
    std::filesystem::remove(path);
    return {taken, cpuTaken};
}

} // namespace

void MeasureScreenshot(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    struct Picture
    {
        const char* name;
        std::vector<uint8_t> (*video)();
        double goal;
    };
    const Layers layers(unit);
    const Service daemon = unit.StartDaemonWithLayers();
    const std::filesystem::path path = unit.Media() / "encoded.png";
    for (const Picture& picture :
         {Picture{"smooth picture", &SmoothVideo, 1.2}, Picture{"camera's picture", &CameraVideo, 1.05},
          Picture{"noise", &NoisyVideo, 1.05}})
    {
        layers.Show(picture.video());
        const auto pixels = ComposeByMapping(layers.video, layers.overlay);
        const auto encode = [&](uint32_t flags) {
            std::filesystem::remove(path);
            return CostOf([&] { Encode(pixels.get(), path, flags); });
        };
        const std::string name = std::string("Screenshot / encoder, ") + picture.name;
        const Comparison whole = Interleave(
            sizes.screenshotRounds, [&] { return TakeScreenshot(unit, daemon); },
            [&] { return encode(PNG_IMAGE_FLAG_FAST); });
        AddRatio(table, name, whole, 0, picture.goal);
        AddRatio(table, name + ", CPU", whole, 1, 0);
        const auto kib = [&] { return std::filesystem::file_size(path) / 1024; };
        const Comparison ways = Interleave(
            sizes.screenshotRounds / 4 + 1, [&] { return encode(PNG_IMAGE_FLAG_FAST); }, [&] { return encode(0); });
        encode(0);
        const auto thorough = kib();
        encode(PNG_IMAGE_FLAG_FAST);
        AddRatio(table, Text("encoder fast (%ju KiB) / thorough (%ju KiB)", kib(), thorough), ways, 0, 0);
    }
    MeasureComposing(layers, sizes, table);
}

} // namespace Bench
