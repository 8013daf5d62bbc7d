#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

namespace Bench
{

/// The screen as it is to be written, from the files of its layers, of screenWidth x screenHeight pixels. The floor of
/// what the daemon does before it encodes: it maps the layers and shares no code with the daemon. Throws Failure.
[[nodiscard]] std::unique_ptr<uint8_t[]> ComposeByMapping(const std::filesystem::path& video,
                                                          const std::filesystem::path& overlay);

} // namespace Bench
