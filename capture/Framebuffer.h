#pragma once

#include <linux/fb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace ControllerDaemon
{

struct MemoryReleaser
{
    void operator()(void* memory) const { std::free(memory); } // NOLINT(cppcoreguidelines-no-malloc)
};

/// Pixels, row after row. Not initialised: a screen has millions of bytes, all of which are read into it.
using PixelBuffer = std::unique_ptr<uint8_t[], MemoryReleaser>;

/// The visible window of a framebuffer.
struct FramebufferImage
{
    PixelBuffer data; ///< height rows and one spare row of zeros, which the mirror needs
    uint32_t width = 0;
    uint32_t padding = 0; ///< bytes after the pixels of a row, of no meaning, that make it a multiple of four bytes
    uint32_t height = 0;
    uint32_t bytesPerPixel = 0;

    /// Bytes from the start of a row to the start of the next.
    [[nodiscard]] uint32_t Stride() const { return width * bytesPerPixel + padding; }
};

/// Bytes that make a row of `rowLength` bytes a multiple of four bytes: 0 to 3.
[[nodiscard]] constexpr uint32_t RowPadding(uint64_t rowLength) { return (4 - rowLength % 4) % 4; }

/// Whether so many rows of `stride` bytes, and a spare row, are at most 256 MiB, eight times a 4K screen: what claims
/// to be larger is no screen, and the memory that the kernel might promise for it is not there.
[[nodiscard]] bool IsScreenSized(uint64_t stride, uint64_t height);

/// Memory for `height` rows of `stride` bytes and a spare row, which is zeroed. Null when there is no such memory, and
/// for what is not screen-sized.
[[nodiscard]] PixelBuffer AllocateRows(uint64_t stride, uint64_t height);

/// Rows of a window, which has them all.
struct Band
{
    uint32_t first;
    uint32_t count;
};

/// Reads rows of the visible window of an open framebuffer into rows of `rowLength` + `padding` bytes, in a single
/// read(2) where they lie in one piece. Returns 0, or the negative errno: -EIO when the framebuffer ends early, -EINVAL
/// for a window that is empty, wider than its virtual screen or beyond what a file can hold.
[[nodiscard]] int ReadBand(int descriptor, const fb_var_screeninfo& screen, const Band& band, uint32_t rowLength,
                           uint32_t padding, uint8_t* rows);

/// The same with all of its rows.
[[nodiscard]] inline int ReadWindow(int descriptor, const fb_var_screeninfo& screen, uint32_t rowLength,
                                    uint32_t padding, uint8_t* rows)
{
    return ReadBand(descriptor, screen, {0, screen.yres}, rowLength, padding, rows);
}

/// Exchanges row i with row height - i for every i below height / 2. Deliberately not i with height - 1 - i: the
/// picture comes out one row lower, its first row is the zeros of the spare row, and of an odd height the two rows in
/// the middle stay where they are. `scratch` holds one row.
void MirrorShifted(FramebufferImage& image, uint8_t* scratch);

/// How many rows of the interface layer are still in the cache when they are blended; at least one. The layer has rows,
/// and they have bytes.
[[nodiscard]] uint32_t BandRows(const FramebufferImage& overlay);

/// Reads the visible window of an open interface layer (four bytes a pixel), a band at a time, and blends it over the
/// video layer (three), which has the same size. `overlay` has room for a band. Returns what ReadBand does; after a
/// failure the video layer is blended in part.
[[nodiscard]] int BlendWindow(FramebufferImage& video, const FramebufferImage& overlay, int descriptor,
                              const fb_var_screeninfo& screen);

} // namespace ControllerDaemon
