#include "capture/Framebuffer.h"

#include "capture/PixelBlend.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ControllerDaemon
{
namespace
{

constexpr uint64_t largestImageBytes = uint64_t{256} * 1024 * 1024;

int ReadFully(int descriptor, uint8_t* bytes, size_t length, int64_t offset)
{
    while (length > 0)
    {
        const ssize_t count = pread(descriptor, bytes, length, offset);
        if (count == 0)
        {
            return -EIO;
        }
        if (count < 0 && errno != EINTR)
        {
            return -errno;
        }
        const auto done = static_cast<size_t>(std::max<ssize_t>(count, 0));
        bytes += done;
        length -= done;
        offset += static_cast<int64_t>(done);
    }
    return 0;
}

/// What a kernel whose pages have 4 KiB can hand out in one piece.
constexpr uint64_t hugePage = uint64_t{2} << 20U;

/// Memory for so many bytes. For what needs more than a huge page of it, in huge pages where the kernel has them, which
/// takes less than half the time; and handed out all at once in any case, since page by page, as it is written to,
/// takes the longest. A kernel that can do neither, or has none, says so in its own time.
uint8_t* TakeMemory(uint64_t length)
{
    constexpr uint64_t largestScreen = uint64_t{64} << 20U; // what is larger is no screen but a driver's mistake
    const bool isScreen = length > hugePage && length <= largestScreen;
    const uint64_t whole = (length + hugePage - 1) / hugePage * hugePage;
    void* memory = isScreen ? std::aligned_alloc(hugePage, whole) : std::malloc(length);
    if (memory != nullptr && isScreen)
    {
        madvise(memory, whole, MADV_HUGEPAGE);
#ifdef MADV_POPULATE_WRITE
        madvise(memory, length, MADV_POPULATE_WRITE);
#endif
    }
    return static_cast<uint8_t*>(memory);
}

} // namespace

bool IsScreenSized(uint64_t stride, uint64_t height)
{
    return stride <= largestImageBytes && stride * (height + 1) <= largestImageBytes;
}

PixelBuffer AllocateRows(uint64_t stride, uint64_t height)
{
    if (!IsScreenSized(stride, height))
    {
        return nullptr;
    }
    const uint64_t visible = stride * height;
    // At least a byte, since no bytes may well be a null pointer.
    PixelBuffer rows(TakeMemory(std::max<uint64_t>(visible + stride, 1)));
    if (rows != nullptr)
    {
        std::memset(rows.get() + visible, 0, stride);
    }
    return rows;
}

int ReadBand(int descriptor, const fb_var_screeninfo& screen, const Band& band, uint32_t rowLength, uint32_t padding,
             uint8_t* rows)
{
    const uint64_t pixelBytes = screen.bits_per_pixel / 8;
    const uint64_t pitch = screen.xres_virtual * pixelBytes;
    const uint64_t lastRow = uint64_t{screen.yoffset} + screen.yres;
    int64_t end = 0;
    if (screen.xres == 0 || screen.yres == 0 || uint64_t{screen.xoffset} + screen.xres > screen.xres_virtual ||
        __builtin_mul_overflow(lastRow, pitch, &end))
    {
        return -EINVAL;
    }
    const bool isInOnePiece = padding == 0 && rowLength == pitch;
    const uint64_t pieces = isInOnePiece ? 1 : band.count;
    const uint64_t pieceLength = isInOnePiece ? pitch * band.count : rowLength;
    const uint64_t stride = uint64_t{rowLength} + padding;
    const uint64_t first = (uint64_t{screen.yoffset} + band.first) * pitch + screen.xoffset * pixelBytes;
    int result = 0;
    for (uint64_t i = 0; i < pieces && result == 0; ++i)
    {
        result = ReadFully(descriptor, rows + i * stride, pieceLength, static_cast<int64_t>(first + i * pitch));
    }
    return result;
}

void MirrorShifted(FramebufferImage& image, uint8_t* scratch)
{
    const size_t stride = image.Stride();
    uint8_t* upper = image.data.get();
    uint8_t* lower = upper + stride * image.height;
    for (uint32_t i = 0; stride > 0 && i < image.height / 2; ++i, upper += stride, lower -= stride)
    {
        std::memcpy(scratch, upper, stride);
        std::memcpy(upper, lower, stride);
        std::memcpy(lower, scratch, stride);
    }
}

uint32_t BandRows(const FramebufferImage& overlay)
{
    constexpr uint32_t bytes = 64 * 1024;
    return std::clamp(bytes / overlay.Stride(), 1U, overlay.height);
}

int BlendWindow(FramebufferImage& video, const FramebufferImage& overlay, int descriptor,
                const fb_var_screeninfo& screen)
{
    const uint32_t rowLength = overlay.Stride() - overlay.padding;
    uint8_t* videoRow = video.data.get();
    for (Band band{0, BandRows(overlay)}; band.first < overlay.height; band.first += band.count)
    {
        band.count = std::min(band.count, overlay.height - band.first);
        const int result = ReadBand(descriptor, screen, band, rowLength, overlay.padding, overlay.data.get());
        if (result < 0)
        {
            return result;
        }
        const uint8_t* overlayRow = overlay.data.get();
        for (uint32_t i = 0; i < band.count; ++i, videoRow += video.Stride(), overlayRow += overlay.Stride())
        {
            BlendRow(videoRow, overlayRow, video.width);
        }
    }
    return 0;
}

} // namespace ControllerDaemon
