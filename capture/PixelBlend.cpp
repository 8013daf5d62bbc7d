#include "capture/PixelBlend.h"

#include <cstring>

#if defined(__x86_64__) && __has_include(<sys/platform/x86.h>)
#include <sys/platform/x86.h>
#define CCU_X86_FEATURES
#endif
#if defined(__arm__) && !defined(__ARM_NEON)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#define CCU_ARM_FEATURES
#endif

namespace ControllerDaemon
{
namespace
{

// The layers do not have the same number of bytes a pixel, which defeats a compiler's own vectorising: so the shuffles
// that bring each interface byte and its alpha to the place of the video byte are spelled out. They need the byte
// shuffles that plain x86-64 lacks, and 32-bit ARM without its vector unit, hence the variants below.

using Bytes = uint8_t __attribute__((vector_size(16)));
using Words = uint16_t __attribute__((vector_size(32)));

constexpr size_t blockPixels = 16;
constexpr size_t vectorBytes = sizeof(Bytes);

/// Exact for every sum of a blend, 0 to 255 * 255.
constexpr uint32_t DivideBy255(uint32_t sum) { return (sum + 1 + (sum >> 8)) >> 8; }

[[gnu::always_inline]] inline void BlendPixel(uint8_t* video, const uint8_t* overlay)
{
    const uint32_t alpha = overlay[3];
    for (size_t i = 0; i < videoPixelBytes; ++i)
    {
        video[i] = static_cast<uint8_t>(DivideBy255(overlay[i] * alpha + video[i] * (255 - alpha)));
    }
}

/// Sixteen video bytes under the interface's bytes and alphas that belong to them. No branch for the extremes of a
/// byte: the formula gives both.
[[gnu::always_inline]] inline void BlendVector(uint8_t* video, const Bytes& colours, const Bytes& alphas)
{
    Bytes bytes;
    std::memcpy(&bytes, video, vectorBytes);
    const Words alpha = __builtin_convertvector(alphas, Words);
    const Words sum =
        __builtin_convertvector(colours, Words) * alpha + __builtin_convertvector(bytes, Words) * (255 - alpha);
    bytes = __builtin_convertvector((sum + 1 + (sum >> 8)) >> 8, Bytes);
    std::memcpy(video, &bytes, vectorBytes);
}

/// Whether sixteen pixels show nothing of the interface, as most of a screen's do.
[[gnu::always_inline]] inline bool IsClear(const Bytes& a, const Bytes& b, const Bytes& c, const Bytes& d)
{
    using Halves = uint64_t __attribute__((vector_size(16)));
    constexpr uint8_t alphas[8] = {0, 0, 0, 255, 0, 0, 0, 255};
    uint64_t mask = 0;
    std::memcpy(&mask, alphas, sizeof mask);
    const Halves all = reinterpret_cast<Halves>(a | b | c | d);
    return ((all[0] | all[1]) & mask) == 0;
}

/// 64 interface bytes over 48 video bytes.
[[gnu::always_inline]] inline void BlendBlock(uint8_t* video, const uint8_t* overlay)
{
    Bytes a;
    Bytes b;
    Bytes c;
    Bytes d;
    std::memcpy(&a, overlay, vectorBytes);
    std::memcpy(&b, overlay + vectorBytes, vectorBytes);
    std::memcpy(&c, overlay + 2 * vectorBytes, vectorBytes);
    std::memcpy(&d, overlay + 3 * vectorBytes, vectorBytes);
    if (IsClear(a, b, c, d))
    {
        return;
    }
    BlendVector(video, __builtin_shufflevector(a, b, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20),
                __builtin_shufflevector(a, b, 3, 3, 3, 7, 7, 7, 11, 11, 11, 15, 15, 15, 19, 19, 19, 23));
    BlendVector(video + vectorBytes,
                __builtin_shufflevector(b, c, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25),
                __builtin_shufflevector(b, c, 7, 7, 11, 11, 11, 15, 15, 15, 19, 19, 19, 23, 23, 23, 27, 27));
    BlendVector(video + 2 * vectorBytes,
                __builtin_shufflevector(c, d, 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25, 26, 28, 29, 30),
                __builtin_shufflevector(c, d, 11, 15, 15, 15, 19, 19, 19, 23, 23, 23, 27, 27, 27, 31, 31, 31));
}

[[gnu::always_inline]] inline void BlendPixels(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    size_t pixel = 0;
    for (; pixel + blockPixels <= pixels; pixel += blockPixels)
    {
        BlendBlock(video + pixel * videoPixelBytes, overlay + pixel * overlayPixelBytes);
    }
    for (; pixel < pixels; ++pixel)
    {
        BlendPixel(video + pixel * videoPixelBytes, overlay + pixel * overlayPixelBytes);
    }
}

#ifdef CCU_X86_FEATURES
[[gnu::target("avx2")]] void BlendWithAvx2(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    BlendPixels(video, overlay, pixels);
}

[[gnu::target("sse4.1")]] void BlendWithSse41(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    BlendPixels(video, overlay, pixels);
}
#endif

#ifdef CCU_ARM_FEATURES
[[gnu::target("fpu=neon")]] void BlendWithNeon(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    BlendPixels(video, overlay, pixels);
}

/// Without any vector unit blocks are dearer than their pixels.
void BlendPixelByPixel(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
    for (size_t pixel = 0; pixel < pixels; ++pixel)
    {
        BlendPixel(video + pixel * videoPixelBytes, overlay + pixel * overlayPixelBytes);
    }
}
#endif

} // namespace

void BlendRow(uint8_t* video, const uint8_t* overlay, size_t pixels)
{
#ifdef CCU_X86_FEATURES
    // Asked of the C library, which knows: the compiler's own variants ask the processor anew at each start, and that
    // is a trap in a virtual machine, a hundredth of a start.
    if (CPU_FEATURE_ACTIVE(AVX2))
    {
        return BlendWithAvx2(video, overlay, pixels);
    }
    if (CPU_FEATURE_ACTIVE(SSE4_1))
    {
        return BlendWithSse41(video, overlay, pixels);
    }
#endif
#ifdef CCU_ARM_FEATURES
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0 ? BlendWithNeon(video, overlay, pixels)
                                                   : BlendPixelByPixel(video, overlay, pixels);
#else
    BlendPixels(video, overlay, pixels);
#endif
}

} // namespace ControllerDaemon
