#include "capture/PixelBlend.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace
{

using namespace ControllerDaemon;

uint8_t Blended(unsigned interfaceByte, unsigned alpha, unsigned videoByte)
{
    return static_cast<uint8_t>((interfaceByte * alpha + (255 - alpha) * videoByte) / 255);
}

/// Bytes without a period that could hide an exchange of pixels.
uint8_t Mixed(size_t number) { return static_cast<uint8_t>((number * 2654435761U) >> 16); }

std::vector<uint8_t> MixedBytes(size_t count, size_t seed)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
    {
        bytes[i] = Mixed(i + seed);
    }
    return bytes;
}

/// For one interface byte and alpha, all video bytes in one row; returns how many came out wrong.
int WrongOf(unsigned interfaceByte, unsigned alpha)
{
    constexpr size_t pixels = 256;
    std::array<uint8_t, pixels * videoPixelBytes> video{};
    std::array<uint8_t, pixels * overlayPixelBytes> overlay{};
    for (size_t i = 0; i < video.size(); ++i)
    {
        video[i] = static_cast<uint8_t>(i % 256);
    }
    for (size_t i = 0; i < overlay.size(); ++i)
    {
        overlay[i] = static_cast<uint8_t>(i % 4 == 3 ? alpha : interfaceByte);
    }
    BlendRow(video.data(), overlay.data(), pixels);
    int wrong = 0;
    for (size_t i = 0; i < video.size(); ++i)
    {
        wrong += video[i] != Blended(interfaceByte, alpha, i % 256) ? 1 : 0;
    }
    return wrong;
}

TEST(PixelBlend, IsExactForEveryCombinationOfBytes)
{
    for (unsigned interfaceByte = 0; interfaceByte < 256; ++interfaceByte)
    {
        for (unsigned alpha = 0; alpha < 256; ++alpha)
        {
            ASSERT_EQ(WrongOf(interfaceByte, alpha), 0) << "interface " << interfaceByte << ", alpha " << alpha;
        }
    }
}

TEST(PixelBlend, KeepsTheVideoUnderClearPixelsAndHidesItUnderOpaqueOnes)
{
    std::array<uint8_t, 9> video{1, 2, 3, 4, 5, 6, 0, 0, 0};
    const std::array<uint8_t, 12> overlay{9, 9, 9, 0, 7, 8, 9, 255, 255, 255, 255, 128};
    BlendRow(video.data(), overlay.data(), 3);
    EXPECT_EQ(video, (std::array<uint8_t, 9>{1, 2, 3, 7, 8, 9, 128, 128, 128}));
}

TEST(PixelBlend, SeesTheFaintestPixelAmongClearOnes)
{
    constexpr size_t pixels = 40;
    for (size_t seen = 0; seen < pixels; ++seen)
    {
        std::vector<uint8_t> video(pixels * videoPixelBytes, 0);
        std::vector<uint8_t> overlay(pixels * overlayPixelBytes, 255);
        for (size_t pixel = 0; pixel < pixels; ++pixel)
        {
            overlay[pixel * overlayPixelBytes + 3] = pixel == seen ? 1 : 0;
        }
        BlendRow(video.data(), overlay.data(), pixels);
        for (size_t i = 0; i < video.size(); ++i)
        {
            ASSERT_EQ(video[i], i / videoPixelBytes == seen ? 1 : 0) << "pixel " << seen << ", byte " << i;
        }
    }
}

class PixelBlendOfWidth : public testing::TestWithParam<size_t>
{};

TEST_P(PixelBlendOfWidth, TakesEachPixelFromItsPlaceAndTouchesNothingElse)
{
    const size_t pixels = GetParam();
    const size_t guard = 5;
    // Odd addresses: rows follow each other without regard to alignment.
    for (size_t shift = 0; shift < 4; ++shift)
    {
        const auto before = MixedBytes(shift + pixels * videoPixelBytes + guard, 7);
        const auto overlay = MixedBytes(shift + pixels * overlayPixelBytes, 1000);
        auto expected = before;
        for (size_t i = 0; i < pixels * videoPixelBytes; ++i)
        {
            const size_t pixel = shift + i / videoPixelBytes * overlayPixelBytes;
            expected[shift + i] = Blended(overlay[pixel + i % videoPixelBytes], overlay[pixel + 3], before[shift + i]);
        }
        auto video = before;
        BlendRow(video.data() + shift, overlay.data() + shift, pixels);
        EXPECT_EQ(video, expected) << "shifted by " << shift;
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, PixelBlendOfWidth, testing::Range<size_t>(0, 71));

} // namespace
