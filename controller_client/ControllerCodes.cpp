#include "controller_client/ControllerCodes.h"

#include <array>
#include <cstddef>

namespace Controllerd
{
namespace
{

/// Of the numbers from `first` downwards.
template <size_t Size>
const char* Find(const std::array<const char*, Size>& texts, int first, int number, const char* otherwise)
{
    return number <= first && number > first - static_cast<int>(Size) ? texts[static_cast<size_t>(first - number)]
                                                                      : otherwise;
}

} // namespace

const char* CaptureErrorCode::Text(int code)
{
    constexpr std::array texts{"Ran successfully",
                               "Unknown error",
                               "Power is too low - unable to record",
                               "Storage is too low - unable to record",
                               "Unable to create path for recording",
                               "Recording file already exists - unable to overwrite",
                               "Recording file already exists - overwrite existing file?",
                               "No current job - unable to record",
                               "Not in correct state to perform record action",
                               "No storage available",
                               "Failed to add media item to job"};
    return Find(texts, Success, code, "Invalid capture error");
}

const char* CaptureRuntimeError::Text(int error)
{
    constexpr std::array texts{"Unknown runtime error", "Power is too low - unable to continue recording",
                               "Storage is too low - unable to continue recording",
                               "Storage was removed - unable to continue recording"};
    return Find(texts, Unknown, error, "Invalid capture runtime error");
}

const char* CaptureType::Text(int type)
{
    constexpr std::array texts{"Video file size limit reached.", "PhotoTalk file size limit reached.",
                               "Autolog file size limit reached."};
    return Find(texts, Video, type, "Invalid capture type");
}

const char* PlaybackErrorCode::Text(int code)
{
    constexpr std::array texts{"Ran successfully", "Unknown error", "Playback file doesn't exist",
                               "Not in correct state to perform playback action"};
    return Find(texts, Success, code, "Invalid playback error");
}

const char* PlaybackRuntimeError::Text(int error)
{
    constexpr std::array texts{"Unknown runtime error", "Power is too low - unable to continue playback",
                               "Storage was removed - unable to continue playback"};
    return Find(texts, Unknown, error, "Invalid playback runtime error");
}

} // namespace Controllerd
