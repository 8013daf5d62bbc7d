#include "capture/ScreenshotCapture.h"

#include "capture/PixelBlend.h"
#include "dbus_helper/Codec.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/OperationText.h"

#include <png.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using DbusHelper::operationText;

constexpr const char* videoDevice = "/dev/fb0";
constexpr const char* overlayDevice = "/dev/fb1";
constexpr const char* defaultFolder = "/mnt/ccu-data/logs";

#define SIGNATURE_OF(operation, type) (operationText<type, "ControllerDaemon::ScreenshotCapture::" #operation>.c_str())

// Written out: operationText takes an int for what it is on the wire, an int32_t.
#define STEP(name, types) ("static int ControllerDaemon::ScreenshotCapture::" name "(" types ")")
constexpr const char* getDataText =
    STEP("get_framebuffer_data",
         "const std::string&, ControllerDaemon::PixelBuffer&, uint32_t&, uint32_t&, uint32_t&, uint32_t&");
constexpr const char* readPixelsText =
    STEP("read_framebuffer_pixels", "uint8_t*, int, const fb_var_screeninfo&, uint32_t, uint32_t");
constexpr const char* doScreenshotText = STEP("do_screenshot", "const std::string&");
constexpr const char* writePngText =
    STEP("write_PNG", "const uint8_t*, const std::string&, uint32_t, uint32_t, int32_t, uint32_t");

/// The loop waits for the encoder. This is its way that takes half the time or less, for files that may be larger but
/// never large; measured in docs/screenshots.md.
constexpr uint32_t encoderFlags = PNG_IMAGE_FLAG_FAST;

class Descriptor
{
  public:
    explicit Descriptor(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0)
        {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    [[nodiscard]] int Get() const { return descriptor_; }

  private:
    int descriptor_;
};

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

int ReadLayer(const char* device, FramebufferImage& image)
{
    return ScreenshotCapture::get_framebuffer_data(device, image.data, image.width, image.height, image.padding,
                                                   image.bytesPerPixel);
}

int ReadVideo(FramebufferImage& video)
{
    if (ReadLayer(videoDevice, video) < 0)
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

int ReadOverlay(FramebufferImage& overlay)
{
    if (ReadLayer(overlayDevice, overlay) < 0)
    {
        return Fail(doScreenshotText, "get_framebuffer_data");
    }
    LogGeometry(overlayDevice, overlay);
    return 0;
}

int CheckLayers(const FramebufferImage& video, const FramebufferImage& overlay)
{
    if (video.width != overlay.width || video.height != overlay.height)
    {
        Log::Error("%s framebuffers don't match", doScreenshotText);
        return -1;
    }
    if (video.bytesPerPixel != videoPixelBytes || overlay.bytesPerPixel != overlayPixelBytes)
    {
        Log::Error("%s framebuffers aren't of RGB / RGBA types", doScreenshotText);
        return -1;
    }
    return 0;
}

/// The screen as it is to be written, in the video layer's buffer; the interface layer's is released.
int ComposeScreen(FramebufferImage& video)
{
    FramebufferImage overlay;
    if (ReadVideo(video) < 0 || ReadOverlay(overlay) < 0 || CheckLayers(video, overlay) < 0)
    {
        return -1;
    }
    BlendLayers(video, overlay);
    return 0;
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

int Reply(sd_bus_message* message, const std::string& path, CaptureErrorCode code, const char* text)
{
    return sd_bus_reply_method_return(message, "sis", path.c_str(), static_cast<int32_t>(code), text);
}

} // namespace

int ScreenshotCapture::Screenshot(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    std::string folder;
    if (DbusHelper::Codec<std::string>::Read(message, folder) <= 0)
    {
        Fail(SIGNATURE_OF(Screenshot, sd_bus_message_handler_t), "sd_bus_message_read()");
        return Reply(message, "", CaptureErrorCode::Unknown, CaptureErrorReason(CaptureErrorCode::Unknown));
    }
    if (folder.empty())
    {
        folder = defaultFolder;
    }
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
    {
        return Reply(message, folder, CaptureErrorCode::Unknown, "Bad directory");
    }
    const std::string path = FilePath(folder);
    const CaptureErrorCode code = Screenshot(path);
    return Reply(message, path, code, CaptureErrorReason(code));
}

CaptureErrorCode ScreenshotCapture::Screenshot(const std::string& path)
{
    const char* signature = SIGNATURE_OF(Screenshot, CaptureErrorCode(const std::string&));
    Log::Info("%s Screenshot Filepath %s", signature, path.c_str());
    const int result = do_screenshot(path);
    malloc_trim(0); // the heap would keep the layers' megabytes for the next screenshot, which may be a week away
    if (result < 0)
    {
        Log::Error("%s Failed to generate screenshot", signature);
        return CaptureErrorCode::Unknown;
    }
    Log::Info("%s Stopped screenshot", signature);
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
    const Descriptor framebuffer(device);
    if (framebuffer.Get() < 0)
    {
        return Fail(getDataText, "open", -errno);
    }
    fb_var_screeninfo screen{};
    if (ioctl(framebuffer.Get(), FBIOGET_VSCREENINFO, &screen) < 0)
    {
        return Fail(getDataText, "ioctl", -errno);
    }
    const uint64_t rowLength = uint64_t{screen.xres} * (screen.bits_per_pixel / 8);
    const uint32_t rowPadding = RowPadding(rowLength);
    PixelBuffer rows = AllocateRows(rowLength + rowPadding, screen.yres);
    if (rows == nullptr)
    {
        return Fail(getDataText, "malloc", -ENOMEM);
    }
    const int result =
        read_framebuffer_pixels(rows.get(), framebuffer.Get(), screen, static_cast<uint32_t>(rowLength), rowPadding);
    if (result < 0)
    {
        return Fail(getDataText, "fread_framebuffer_pixels", result);
    }
    data = std::move(rows);
    width = screen.xres;
    height = screen.yres;
    padding = rowPadding;
    bytesPerPixel = screen.bits_per_pixel / 8;
    return 0;
}

int ScreenshotCapture::read_framebuffer_pixels(uint8_t* buffer, int descriptor, const fb_var_screeninfo& screen,
                                               uint32_t rowLength, uint32_t padding)
{
    const int result = ReadWindow(descriptor, screen, rowLength, padding, buffer);
    return result < 0 ? Fail(readPixelsText, "read", result) : 0;
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
    if (png_image_write_to_file(&image, path.c_str(), 0, pixels, rowStride, nullptr) == 0)
    {
        return Fail(writePngText, "png_image_write_to_file");
    }
    return 0;
}

} // namespace ControllerDaemon
