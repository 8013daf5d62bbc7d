#include "capture/Framebuffer.h"

#include "capture/ScreenshotCapture.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <tuple>
#include <vector>

namespace
{

using DbusHelper::Handler;
using DbusHelper::OnMethodCall;
using namespace ControllerDaemon;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = SyslogCapture::Line;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t largestNumber = std::numeric_limits<uint32_t>::max();
constexpr uint32_t half = 1U << 31;

/// A framebuffer whose bytes tell their place.
class Device
{
  public:
    explicit Device(size_t size) : descriptor_(memfd_create("framebuffer", MFD_CLOEXEC)), bytes_(size)
    {
        for (size_t i = 0; i < size; ++i)
        {
            bytes_[i] = static_cast<uint8_t>((i * 2654435761U) >> 16);
        }
        EXPECT_EQ(write(descriptor_, bytes_.data(), size), static_cast<ssize_t>(size));
    }
    ~Device() { close(descriptor_); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    Device(Device&&) = delete;
    Device& operator=(Device&&) = delete;

    [[nodiscard]] int Get() const { return descriptor_; }
    [[nodiscard]] Bytes Part(size_t from, size_t length) const
    {
        const auto start = bytes_.begin() + static_cast<ptrdiff_t>(from);
        return {start, start + static_cast<ptrdiff_t>(length)};
    }

  private:
    int descriptor_;
    Bytes bytes_;
};

fb_var_screeninfo Screen(uint32_t width, uint32_t height, uint32_t bits)
{
    fb_var_screeninfo screen{};
    screen.xres = screen.xres_virtual = width;
    screen.yres = screen.yres_virtual = height;
    screen.bits_per_pixel = bits;
    return screen;
}

fb_var_screeninfo Panned(fb_var_screeninfo screen, uint32_t x, uint32_t y, uint32_t spareColumns)
{
    screen.xoffset = x;
    screen.yoffset = y;
    screen.xres_virtual = x + screen.xres + spareColumns;
    screen.yres_virtual = y + screen.yres;
    return screen;
}

TEST(Framebuffer, PadsRowsToFourBytes)
{
    EXPECT_EQ(RowPadding(0), 0U);
    EXPECT_EQ(RowPadding(1 * 3), 1U);
    EXPECT_EQ(RowPadding(2 * 3), 2U);
    EXPECT_EQ(RowPadding(3 * 3), 3U);
    EXPECT_EQ(RowPadding(4 * 3), 0U);
    EXPECT_EQ(RowPadding(3 * 4), 0U);
}

/// Width, horizontal offset, spare columns at the right.
class FramebufferWindow : public testing::TestWithParam<std::tuple<uint32_t, uint32_t, uint32_t>>
{};

TEST_P(FramebufferWindow, IsReadAndNothingAroundIt)
{
    const auto [width, x, spareColumns] = GetParam();
    const uint32_t height = 3;
    const uint32_t y = 2;
    const auto screen = Panned(Screen(width, height, 24), x, y, spareColumns);
    const size_t pitch = size_t{screen.xres_virtual} * 3;
    const size_t rowLength = size_t{width} * 3;
    const uint32_t padding = RowPadding(rowLength);
    const Device device(pitch * screen.yres_virtual);
    Bytes rows((rowLength + padding) * height, 0xEE);
    ASSERT_EQ(ReadWindow(device.Get(), screen, static_cast<uint32_t>(rowLength), padding, rows.data()), 0);
    for (size_t row = 0; row < height; ++row)
    {
        Bytes expected = device.Part((y + row) * pitch + size_t{x} * 3, rowLength);
        expected.resize(rowLength + padding, 0xEE); // the padding is left alone
        const auto start = rows.begin() + static_cast<ptrdiff_t>(row * (rowLength + padding));
        EXPECT_EQ(Bytes(start, start + static_cast<ptrdiff_t>(rowLength + padding)), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Windows, FramebufferWindow,
                         testing::Combine(testing::Range(1U, 9U), testing::Values(0U, 1U, 3U),
                                          testing::Values(0U, 1U, 2U)));

TEST(Framebuffer, ThatEndsEarlyIsAFailedRead)
{
    Bytes rows(4 * 4 * 4);
    EXPECT_EQ(ReadWindow(Device(63).Get(), Screen(4, 4, 32), 16, 0, rows.data()), -EIO);
    EXPECT_EQ(ReadWindow(Device(0).Get(), Screen(4, 4, 32), 16, 0, rows.data()), -EIO);
    EXPECT_EQ(ReadWindow(Device(63).Get(), Panned(Screen(2, 4, 32), 2, 0, 0), 8, 0, rows.data()), -EIO);
    EXPECT_EQ(ReadWindow(Device(64).Get(), Screen(4, 4, 32), 16, 0, rows.data()), 0);
    EXPECT_EQ(ReadWindow(-1, Screen(4, 4, 32), 16, 0, rows.data()), -EBADF);
}

TEST(Framebuffer, ThatTellsNonsenseIsRefusedUnread)
{
    const Device device(64);
    const auto refused = [&](fb_var_screeninfo screen) { return ReadWindow(device.Get(), screen, 12, 0, nullptr); };
    EXPECT_EQ(refused(Screen(0, 4, 24)), -EINVAL);
    EXPECT_EQ(refused(Screen(4, 0, 24)), -EINVAL);
    auto narrow = Screen(4, 4, 24);
    narrow.xres_virtual = 3;
    EXPECT_EQ(refused(narrow), -EINVAL);
    auto outside = Screen(4, 4, 24);
    outside.xoffset = largestNumber; // would wrap round in 32 bits
    EXPECT_EQ(refused(outside), -EINVAL);
    auto far = Screen(4, 4, largestNumber);
    far.xres_virtual = far.yoffset = largestNumber; // would wrap round in 64 bits
    EXPECT_EQ(refused(far), -EINVAL);
}

TEST(Framebuffer, FarAwayIsBehindTheEnd)
{
    const Device device(64);
    Bytes row(12);
    auto screen = Screen(4, 1, 24);
    screen.xres_virtual = screen.yoffset = half;
    EXPECT_LT(ReadWindow(device.Get(), screen, 12, 0, row.data()), 0);
}

TEST(Framebuffer, WithoutWholeBytesAPixelHasNothingToRead)
{
    EXPECT_EQ(ReadWindow(-1, Screen(largestNumber, largestNumber, 1), 0, 0, nullptr), 0);
}

TEST(Framebuffer, GetsMemoryWithASpareRowOfZeros)
{
    const PixelBuffer rows = AllocateRows(12, 3);
    ASSERT_NE(rows, nullptr);
    std::memset(rows.get(), 0xEE, 36);
    EXPECT_THAT(Bytes(rows.get() + 36, rows.get() + 48), Each(0));
    EXPECT_NE(AllocateRows(0, 0), nullptr);
    EXPECT_NE(AllocateRows(0, largestNumber), nullptr);
}

TEST(Framebuffer, AScreenLiesWhereTheKernelHasHugePages)
{
    constexpr uint64_t stride = 1920 * 3;
    constexpr uint64_t height = 1080;
    const PixelBuffer rows = AllocateRows(stride, height);
    ASSERT_NE(rows, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(rows.get()) % (uintptr_t{2} << 20U), 0);
    const uint8_t* spare = rows.get() + stride * height;
    EXPECT_THAT(Bytes(spare, spare + stride), Each(0));
}

TEST(Framebuffer, GetsNoMemoryForWhatIsNoScreen)
{
    EXPECT_EQ(AllocateRows(uint64_t{half} * 3, 1), nullptr);
    EXPECT_EQ(AllocateRows(4, half), nullptr);
    EXPECT_EQ(AllocateRows(uint64_t{1} << 61, largestNumber), nullptr);
    EXPECT_EQ(AllocateRows(uint64_t{1} << 32, largestNumber), nullptr); // a product that wraps round to a small one
}

/// The first pixel bytes of each row, after the mirror, of rows that were numbered from 1.
std::vector<int> Mirrored(uint32_t height)
{
    FramebufferImage image;
    image.width = 3;
    image.bytesPerPixel = 3;
    image.padding = 3;
    image.height = height;
    image.data = AllocateRows(image.Stride(), height);
    for (uint32_t row = 0; row < height; ++row)
    {
        std::memset(image.data.get() + size_t{row} * image.Stride(), static_cast<int>(row + 1), image.Stride());
    }
    Bytes scratch(image.Stride());
    MirrorShifted(image, scratch.data());
    std::vector<int> rows;
    for (uint32_t row = 0; row < height; ++row)
    {
        const uint8_t* start = image.data.get() + size_t{row} * image.Stride();
        EXPECT_EQ(std::count(start, start + image.Stride(), *start), image.Stride()) << "whole rows move";
        rows.push_back(*start);
    }
    return rows;
}

TEST(Framebuffer, IsMirroredOneRowTooLow)
{
    EXPECT_THAT(Mirrored(0), IsEmpty());
    EXPECT_THAT(Mirrored(1), ElementsAre(1));
    EXPECT_THAT(Mirrored(2), ElementsAre(0, 2));
    EXPECT_THAT(Mirrored(3), ElementsAre(0, 2, 3));
    EXPECT_THAT(Mirrored(4), ElementsAre(0, 4, 3, 2));
    EXPECT_THAT(Mirrored(5), ElementsAre(0, 5, 3, 4, 2));
    EXPECT_THAT(Mirrored(6), ElementsAre(0, 6, 5, 4, 3, 2));
    EXPECT_THAT(Mirrored(7), ElementsAre(0, 7, 6, 4, 5, 3, 2));
}

TEST(Framebuffer, WithoutBytesIsMirroredAtOnce)
{
    FramebufferImage image;
    image.width = image.height = largestNumber;
    MirrorShifted(image, nullptr);
    EXPECT_EQ(image.data, nullptr);
}

constexpr const char* getData =
    "static int ControllerDaemon::ScreenshotCapture::get_framebuffer_data(const std::string&, "
    "ControllerDaemon::PixelBuffer&, uint32_t&, uint32_t&, uint32_t&, uint32_t&)";
constexpr const char* readPixels =
    "static int ControllerDaemon::ScreenshotCapture::read_framebuffer_pixels(uint8_t*, int, "
    "const fb_var_screeninfo&, uint32_t, uint32_t)";

TEST(ScreenshotSteps, LeaveTheResultsAloneWhenTheyFail)
{
    SyslogCapture::Take();
    FramebufferImage image;
    image.width = 1;
    EXPECT_EQ(ScreenshotCapture::get_framebuffer_data("/nowhere/fb0", image.data, image.width, image.height,
                                                      image.padding, image.bytesPerPixel),
              -ENOENT);
    EXPECT_EQ(ScreenshotCapture::get_framebuffer_data("/dev/null", image.data, image.width, image.height, image.padding,
                                                      image.bytesPerPixel),
              -ENOTTY);
    EXPECT_EQ(image.data, nullptr);
    EXPECT_EQ(image.width, 1U);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, std::string(getData) + " open failed"},
                                                   Line{LOG_ERR, std::string(getData) + " ioctl failed"}));
}

TEST(ScreenshotSteps, TellAFailedReadOnce)
{
    SyslogCapture::Take();
    Bytes rows(16);
    EXPECT_EQ(ScreenshotCapture::read_framebuffer_pixels(rows.data(), Device(16).Get(), Screen(4, 1, 32), 16, 0), 0);
    EXPECT_EQ(ScreenshotCapture::read_framebuffer_pixels(rows.data(), Device(15).Get(), Screen(4, 1, 32), 16, 0), -EIO);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, std::string(readPixels) + " read failed"}));
}

TEST(ScreenshotSteps, TellARequestThatHoldsNoFolder)
{
    SyslogCapture::Take();
    EXPECT_LT(OnMethodCall<Handler(&ScreenshotCapture::Screenshot)>(nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "static int ControllerDaemon::ScreenshotCapture::Screenshot(sd_bus_message*, "
                                          "void*, sd_bus_error*) sd_bus_message_read() failed"},
                            Line{LOG_ERR, "[CaptureError::ErrorReason] Unknown error"}));
}

} // namespace
