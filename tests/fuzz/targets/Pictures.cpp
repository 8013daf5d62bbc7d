/// Framebuffers that tell of any screen, and the blending of their pixels.

#include "capture/Framebuffer.h"
#include "capture/PixelBlend.h"
#include "dbus_helper/Descriptor.h"
#include "tests/fuzz/targets/Input.h"

#include <sys/mman.h>
#include <unistd.h>

#include <vector>

namespace
{

using namespace ControllerDaemon;

/// A file of so many bytes, in the place of a device.
class Device
{
  public:
    explicit Device(size_t size) : descriptor_(memfd_create("framebuffer", MFD_CLOEXEC))
    {
        const std::vector<uint8_t> bytes(size, 0x5A);
        Require(write(Get(), bytes.data(), size) == static_cast<ssize_t>(size), "a device");
    }

    [[nodiscard]] int Get() const { return descriptor_.Get(); }

  private:
    DbusHelper::Descriptor descriptor_;
};

/// Small ones most of the time, and any at all.
uint32_t Dimension(Input& input)
{
    const auto number = input.Take<uint32_t>();
    return input.Take<uint8_t>() < 250 ? number % 70 : number;
}

fb_var_screeninfo Screen(Input& input, uint32_t bits)
{
    fb_var_screeninfo screen{};
    screen.xres = Dimension(input);
    screen.yres = Dimension(input);
    screen.xoffset = input.TakeFlag() ? Dimension(input) : 0;
    screen.yoffset = input.TakeFlag() ? Dimension(input) : 0;
    screen.xres_virtual = input.TakeFlag() ? Dimension(input) : screen.xres + screen.xoffset;
    screen.yres_virtual = screen.yres + screen.yoffset;
    screen.bits_per_pixel = bits;
    return screen;
}

FramebufferImage ImageOf(const fb_var_screeninfo& screen)
{
    FramebufferImage image;
    image.bytesPerPixel = screen.bits_per_pixel / 8;
    image.width = screen.xres;
    image.height = screen.yres;
    const uint64_t rowLength = uint64_t{screen.xres} * image.bytesPerPixel;
    image.padding = RowPadding(rowLength);
    const uint64_t stride = rowLength + image.padding;
    constexpr uint64_t enough = 1U << 20U; // large ones take time and show nothing more
    image.data = IsScreenSized(stride, image.height) && stride * image.height < enough
                     ? AllocateRows(stride, image.height)
                     : nullptr;
    return image;
}

void TryWindow(Input& input)
{
    const uint32_t bits = input.TakeFlag() ? 24 : 32;
    const fb_var_screeninfo screen = Screen(input, bits);
    FramebufferImage image = ImageOf(screen);
    const Device device(input.Take<uint16_t>());
    if (image.data == nullptr)
    {
        return;
    }
    const uint32_t rowLength = image.Stride() - image.padding;
    if (ReadWindow(device.Get(), screen, rowLength, image.padding, image.data.get()) == 0)
    {
        Require(screen.xres > 0 && screen.yres > 0, "an empty window is refused");
        Require(image.data[0] == 0x5A && image.data[rowLength - 1] == 0x5A, "a row is read");
        std::vector<uint8_t> scratch(image.Stride());
        MirrorShifted(image, scratch.data());
        Require(image.height < 2 || image.data[0] == 0, "the picture comes out one row lower");
    }
}

void TryBlend(Input& input)
{
    const fb_var_screeninfo screen = Screen(input, 32);
    fb_var_screeninfo below = screen;
    below.bits_per_pixel = 24;
    FramebufferImage video = ImageOf(below);
    const FramebufferImage overlay = ImageOf(screen);
    const Device device(input.Take<uint16_t>());
    if (video.data == nullptr || overlay.data == nullptr || screen.xres == 0 || screen.yres == 0)
    {
        return;
    }
    std::memset(video.data.get(), 0x5A, size_t{video.Stride()} * video.height);
    if (BlendWindow(video, overlay, device.Get(), screen) == 0)
    {
        Require(video.data[0] == 0x5A, "a colour over itself stays");
    }
}

uint8_t Blended(uint8_t above, uint8_t below, uint8_t alpha)
{
    return static_cast<uint8_t>((above * alpha + below * (255 - alpha)) / 255);
}

void TryRow(Input& input)
{
    const size_t pixels = input.TakeBelow(100);
    const size_t shift = input.TakeBelow(16);
    std::vector<uint8_t> overlay(shift + pixels * overlayPixelBytes);
    std::vector<uint8_t> video(shift + pixels * videoPixelBytes);
    for (auto* row : {&overlay, &video})
    {
        for (uint8_t& byte : *row)
        {
            byte = input.Take<uint8_t>();
        }
    }
    std::vector<uint8_t> expected = video;
    for (size_t i = 0; i < pixels * videoPixelBytes; ++i)
    {
        const size_t pixel = shift + i / videoPixelBytes * overlayPixelBytes;
        expected[shift + i] =
            Blended(overlay[pixel + i % videoPixelBytes], video[shift + i], overlay[pixel + overlayPixelBytes - 1]);
    }
    BlendRow(video.data() + shift, overlay.data() + shift, pixels);
    Require(video == expected, "a row is blended as its description says");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    switch (input.TakeBelow(3))
    {
    case 0:
        TryWindow(input);
        break;
    case 1:
        TryBlend(input);
        break;
    default:
        TryRow(input);
    }
    return 0;
}
