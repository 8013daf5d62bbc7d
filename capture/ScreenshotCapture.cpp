#include "capture/ScreenshotCapture.h"

#include "capture/CaptureReply.h"
#include "capture/MarkerFiles.h"
#include "capture/PixelBlend.h"
#include "capture/ScreenNames.h"
#include "dbus_helper/Descriptor.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <png.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using DbusHelper::FixedString;
using DbusHelper::signature;

using ScreenshotCall = PictureCall<std::string>;

// Written out: they say "int" where the wire says int32_t.
constexpr const char* getDataText =
    "static int ControllerDaemon::ScreenshotCapture::get_framebuffer_data("
    "const std::string&, ControllerDaemon::PixelBuffer&, uint32_t&, uint32_t&, uint32_t&, uint32_t&)";
constexpr const char* readPixelsText = "static int ControllerDaemon::ScreenshotCapture::read_framebuffer_pixels("
                                       "uint8_t*, int, const fb_var_screeninfo&, uint32_t, uint32_t)";
constexpr const char* doScreenshotText =
    "static int ControllerDaemon::ScreenshotCapture::do_screenshot(const std::string&)";
constexpr const char* writePngText = "static int ControllerDaemon::ScreenshotCapture::write_PNG("
                                     "const uint8_t*, const std::string&, uint32_t, uint32_t, int32_t, uint32_t)";
constexpr FixedString screenshotName{"ControllerDaemon::ScreenshotCapture::Screenshot"};

/// The loop waits for the encoder. This is its way that takes half the time or less, for files that may be larger but
/// never large; measured in docs/screenshots.md.
constexpr uint32_t encoderFlags = PNG_IMAGE_FLAG_FAST;

/// Logs the line of a step that failed and returns the failure.
int Fail(const char* step, const char* what, int result = -1)
{
    Log::Error("%s %s failed", step, what);
    return result;
}

void LogGeometry(const char* device, const FramebufferImage& image)
{
    Log::Info("%s\n", device);
    Log::Info("width: %d\n", static_cast<int>(image.width));
    Log::Info("padding bytes: %d\n", static_cast<int>(image.padding));
    Log::Info("height: %d\n", static_cast<int>(image.height));
    Log::Info("bytes per pixel: %d\n", static_cast<int>(image.bytesPerPixel));
}

bool IsOfOneSize(const FramebufferImage& video, const FramebufferImage& overlay)
{
    return video.width == overlay.width && video.height == overlay.height;
}

bool IsOfScreenPixels(const FramebufferImage& video, const FramebufferImage& overlay)
{
    return video.bytesPerPixel == videoPixelBytes && overlay.bytesPerPixel == overlayPixelBytes;
}

/// The result of a read, and its line when it failed.
int ReadResult(int result) { return result < 0 ? Fail(readPixelsText, "read", result) : 0; }

/// Reads the visible window of a framebuffer. One that fits the video layer that it is to lie over is blended as it is
/// read, and `image` keeps none of it but its numbers. Every other one is read whole: whether it can be read is told
/// before whether it fits.
int ReadLayer(const std::string& device, FramebufferImage& image, FramebufferImage* video = nullptr)
{
    const DbusHelper::Descriptor framebuffer(open(device.c_str(), O_RDONLY | O_CLOEXEC));
    if (framebuffer.Get() < 0)
    {
        return Fail(getDataText, "open", -errno);
    }
    fb_var_screeninfo screen{};
    if (ioctl(framebuffer.Get(), FBIOGET_VSCREENINFO, &screen) < 0)
    {
        return Fail(getDataText, "ioctl", -errno);
    }
    image.width = screen.xres;
    image.height = screen.yres;
    image.bytesPerPixel = screen.bits_per_pixel / 8;
    const uint64_t rowLength = uint64_t{image.width} * image.bytesPerPixel;
    image.padding = RowPadding(rowLength);
    const bool isBlended = video != nullptr && IsOfOneSize(*video, image) && IsOfScreenPixels(*video, image);
    image.data = IsScreenSized(rowLength + image.padding, image.height)
                     ? AllocateRows(rowLength + image.padding, isBlended ? BandRows(image) : image.height)
                     : nullptr;
    if (image.data == nullptr)
    {
        return Fail(getDataText, "malloc", -ENOMEM);
    }
    const auto length = static_cast<uint32_t>(rowLength);
    const int result = isBlended ? ReadResult(BlendWindow(*video, image, framebuffer.Get(), screen))
                                 : ScreenshotCapture::read_framebuffer_pixels(image.data.get(), framebuffer.Get(),
                                                                              screen, length, image.padding);
    return result < 0 ? Fail(getDataText, "fread_framebuffer_pixels", result) : 0;
}

int ReadVideo(FramebufferImage& video)
{
    if (ScreenshotCapture::get_framebuffer_data(videoDevice, video.data, video.width, video.height, video.padding,
                                                video.bytesPerPixel) < 0)
    {
        return Fail(doScreenshotText, "get_framebuffer_data");
    }
    const PixelBuffer scratch = AllocateRows(video.Stride(), 1);
    if (scratch == nullptr)
    {
        return Fail(doScreenshotText, "malloc");
    }
    MirrorShifted(video, scratch.get());
    LogGeometry(videoDevice, video);
    return 0;
}

/// Reads the interface layer and blends it over the video layer, if it fits.
int ReadOverlay(FramebufferImage& overlay, FramebufferImage& video)
{
    if (ReadLayer(overlayDevice, overlay, &video) < 0)
    {
        return Fail(doScreenshotText, "get_framebuffer_data");
    }
    LogGeometry(overlayDevice, overlay);
    return 0;
}

int CheckLayers(const FramebufferImage& video, const FramebufferImage& overlay)
{
    if (!IsOfOneSize(video, overlay))
    {
        Log::Error("%s framebuffers don't match", doScreenshotText);
        return -1;
    }
    if (!IsOfScreenPixels(video, overlay))
    {
        Log::Error("%s framebuffers aren't of RGB / RGBA types", doScreenshotText);
        return -1;
    }
    return 0;
}

/// The screen as it is to be written, in the video layer's buffer.
int ComposeScreen(FramebufferImage& video)
{
    FramebufferImage overlay;
    return ReadVideo(video) < 0 || ReadOverlay(overlay, video) < 0 || CheckLayers(video, overlay) < 0 ? -1 : 0;
}

/// The file's path in the folder. localtime and not localtime_r, which would not notice that the zone was changed.
std::string FilePath(const std::string& folder)
{
    const std::time_t now = std::time(nullptr);
    char name[80] = "";
    if (const std::tm* local = std::localtime(&now); local != nullptr)
    {
        std::strftime(name, sizeof name, "%Y-%m-%d-%H-%M-%S", local);
    }
    return folder + "/screenshot_" + name + ".png";
}

/// Whether a file can be made or overwritten there. The name tells everybody beforehand where the next one goes: libpng
/// would wait for the reader of a pipe, and write wherever a link leads.
bool TakesFile(const std::string& path)
{
    std::error_code ignored; // what cannot be looked up cannot be written either, which libpng finds out
    const auto status = std::filesystem::symlink_status(path, ignored);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

} // namespace

int ScreenshotCapture::Screenshot(const ScreenshotCall& call)
{
    std::string folder;
    if (call.Read(folder) < 0)
    {
        return AnswerPicture(call, "",
                             Unreadable<CaptureErrorCode>(signature<sd_bus_message_handler_t, screenshotName>));
    }
    if (folder.empty())
    {
        folder = logsFolder;
    }
    std::error_code error;
    if (!std::filesystem::is_directory(FsStatus(folder, error)))
    {
        return call.Answer(folder, static_cast<int32_t>(CaptureErrorCode::Unknown), std::string("Bad directory"));
    }
    const std::string path = FilePath(folder);
    return AnswerPicture(call, path, Screenshot(path));
}

CaptureErrorCode ScreenshotCapture::Screenshot(const std::string& path)
{
    constexpr const char* text = signature<CaptureErrorCode(const std::string&), screenshotName>;
    Log::Info("%s Screenshot Filepath %s", text, path.c_str());
    const int result = do_screenshot(path);
    malloc_trim(0); // the heap would keep the layers' megabytes for the next screenshot, which may be a week away
    if (result < 0)
    {
        Log::Error("%s Failed to generate screenshot", text);
        return CaptureErrorCode::Unknown;
    }
    Log::Info("%s Stopped screenshot", text);
    return CaptureErrorCode::Success;
}

int ScreenshotCapture::do_screenshot(const std::string& path)
{
    FramebufferImage screen;
    if (ComposeScreen(screen) < 0)
    {
        return -1;
    }
    const auto stride = static_cast<int32_t>(screen.Stride());
    if (write_PNG(screen.data.get(), path, screen.width, screen.height, stride, PNG_FORMAT_BGR) < 0)
    {
        return Fail(doScreenshotText, "write_PNG");
    }
    return 0;
}

int ScreenshotCapture::get_framebuffer_data(const std::string& device, PixelBuffer& data, uint32_t& width,
                                            uint32_t& height, uint32_t& padding, uint32_t& bytesPerPixel)
{
    FramebufferImage image;
    const int result = ReadLayer(device, image);
    if (result < 0)
    {
        return result;
    }
    data = std::move(image.data);
    width = image.width;
    height = image.height;
    padding = image.padding;
    bytesPerPixel = image.bytesPerPixel;
    return 0;
}

int ScreenshotCapture::read_framebuffer_pixels(uint8_t* buffer, int descriptor, const fb_var_screeninfo& screen,
                                               uint32_t rowLength, uint32_t padding)
{
    return ReadResult(ReadWindow(descriptor, screen, rowLength, padding, buffer));
}

int ScreenshotCapture::write_PNG(const uint8_t* pixels, const std::string& path, uint32_t width, uint32_t height,
                                 int32_t rowStride, uint32_t format)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = format;
    image.flags = encoderFlags;
    if (!TakesFile(path) || png_image_write_to_file(&image, path.c_str(), 0, pixels, rowStride, nullptr) == 0)
    {
        return Fail(writePngText, "png_image_write_to_file");
    }
    return 0;
}

} // namespace ControllerDaemon
