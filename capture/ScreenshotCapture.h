#pragma once

#include "capture/CaptureReply.h"
#include "capture/Framebuffer.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

/// Saves what the display shows as a PNG file, for support and documentation: the video layer ("/dev/fb0", three bytes
/// a pixel) with the interface layer ("/dev/fb1", four bytes a pixel) laid over it. A screenshot belongs to no job and
/// no sibling is asked. All operations are static and run on the loop's thread, for some tens of milliseconds on a
/// development machine, nearly all of it in the PNG encoder.
class ScreenshotCapture
{
  public:
    /// Writes the screen to the file, which is overwritten. Unknown when a layer cannot be read, the layers do not fit
    /// each other, memory is short or the file cannot be written; then no file is left.
    static DbusHelper::CaptureErrorCode Screenshot(const std::string& path);

    /// Method handler: takes a folder, empty for "/mnt/ccu-data/logs", and replies "sis", the file's path, the code and
    /// its message. The file is named after the local time in seconds. A folder that is none replies itself, -1 and
    /// "Bad directory".
    static int Screenshot(const PictureCall<std::string>& call);

    // The steps of a screenshot keep the names that open their log lines, which support people search for.
    // NOLINTBEGIN(readability-identifier-naming)

    /// Reads the visible window of a framebuffer. The results change on success alone; for them see FramebufferImage.
    /// Returns 0 or the negative errno, -ENOMEM for a window that AllocateRows refuses.
    static int get_framebuffer_data(const std::string& device, PixelBuffer& data, uint32_t& width, uint32_t& height,
                                    uint32_t& padding, uint32_t& bytesPerPixel);
    /// Reads the window out of an open framebuffer; see ReadWindow.
    static int read_framebuffer_pixels(uint8_t* buffer, int descriptor, const fb_var_screeninfo& screen,
                                       uint32_t rowLength, uint32_t padding);
    /// Reads, mirrors, blends and writes; returns 0 or -1.
    static int do_screenshot(const std::string& path);
    /// Writes rows of pixels, `rowStride` bytes apart, as a PNG file; the format is one of libpng's PNG_FORMAT_. Width
    /// and height are at least 1. Returns 0 or -1; a file that was begun is removed again.
    static int write_PNG(const uint8_t* pixels, const std::string& path, uint32_t width, uint32_t height,
                         int32_t rowStride, uint32_t format);

    // NOLINTEND(readability-identifier-naming)
};

} // namespace ControllerDaemon
