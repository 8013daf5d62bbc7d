#include "benchmarks/LayerFloor.h"

#include "benchmarks/ChildProcess.h"
#include "benchmarks/ScreenshotLayers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace Bench
{
namespace
{

constexpr size_t videoRow = size_t{screenWidth} * 3;
constexpr size_t overlayRow = size_t{screenWidth} * 4;

class Mapping
{
  public:
    Mapping(const std::filesystem::path& path, size_t length) : length_(length)
    {
        const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        bytes_ = mmap(nullptr, length, PROT_READ, MAP_SHARED | MAP_POPULATE, descriptor, 0);
        close(descriptor);
        if (bytes_ == MAP_FAILED)
        {
            throw Failure("a layer cannot be mapped");
        }
    }
    ~Mapping() { munmap(bytes_, length_); }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    Mapping(Mapping&&) = delete;
    Mapping& operator=(Mapping&&) = delete;

    [[nodiscard]] const uint8_t* Row(size_t number, size_t length) const
    {
        return static_cast<const uint8_t*>(bytes_) + number * length;
    }

  private:
    size_t length_;
    void* bytes_ = nullptr;
};

#ifdef __x86_64__
#define WITH_VARIANTS [[gnu::target_clones("avx2", "default")]]
#else
#define WITH_VARIANTS
#endif

/// Four pixels, of which clear ones are only copied; of the video layer and the screen so many bytes are touched.
template <size_t length>
[[gnu::always_inline]] inline void LayFour(uint8_t* screen, const uint8_t* video, const uint8_t* overlay)
{
    using Bytes [[gnu::vector_size(16)]] = uint8_t;
    using Numbers [[gnu::vector_size(32)]] = uint16_t;
    constexpr uint64_t alphas = 0xFF000000FF000000;
    uint64_t halves[2];
    Bytes under{};
    Bytes over;
    std::memcpy(halves, overlay, sizeof halves);
    std::memcpy(&over, overlay, sizeof over);
    std::memcpy(&under, video, length);
    if (((halves[0] | halves[1]) & alphas) != 0)
    {
        const Bytes colour = __builtin_shufflevector(over, over, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0);
        const Bytes alpha = __builtin_shufflevector(over, over, 3, 3, 3, 7, 7, 7, 11, 11, 11, 15, 15, 15, 3, 3, 3, 3);
        const Numbers weight = __builtin_convertvector(alpha, Numbers);
        const Numbers sum = __builtin_convertvector(colour, Numbers) * weight +
                            __builtin_convertvector(under, Numbers) * (255 - weight);
        under = __builtin_convertvector((sum + 1 + (sum >> 8)) >> 8, Bytes); // exactly a 255th of the sum
    }
    std::memcpy(screen, &under, length);
}

/// Sixteen bytes are touched where twelve are meant: the next four pixels put right what lies behind.
WITH_VARIANTS void LayRow(uint8_t* screen, const uint8_t* video, const uint8_t* overlay)
{
    constexpr size_t last = screenWidth / 4 - 1;
    for (size_t four = 0; four < last; ++four)
    {
        LayFour<16>(screen + four * 12, video + four * 12, overlay + four * 16);
    }
    LayFour<12>(screen + last * 12, video + last * 12, overlay + last * 16);
}

} // namespace

std::unique_ptr<uint8_t[]> ComposeByMapping(const std::filesystem::path& video, const std::filesystem::path& overlay)
{
    const Mapping below(video, videoRow * screenHeight);
    const Mapping above(overlay, overlayRow * screenHeight);
    auto screen = std::make_unique_for_overwrite<uint8_t[]>(videoRow * screenHeight);
    const auto black = std::make_unique<uint8_t[]>(videoRow);
    for (size_t y = 0; y < screenHeight; ++y)
    {
        LayRow(screen.get() + y * videoRow, y == 0 ? black.get() : below.Row(screenHeight - y, videoRow),
               above.Row(y, overlayRow));
    }
    return screen;
}

} // namespace Bench
