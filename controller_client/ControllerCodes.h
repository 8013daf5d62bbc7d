#pragma once

#include "controller_client/Export.h"

namespace Controllerd
{

// What the controller answers and tells, as numbers with names and texts. The numbers compare with the `int` in which
// they come; `Text` has the message that goes with a number on the bus, and one for numbers that have none. The texts
// are English, live for ever and are the same in every version.

/// The `code` of recordings and pictures.
struct CaptureErrorCode
{
    enum Value : int
    {
        Success = 0,
        Unknown = -1,
        PowerTooLow = -2,
        StorageTooLow = -3,
        PathNotCreated = -4, ///< the folder for the file could not be made
        FileExists = -5,
        FileExistsAskOverwrite = -6,
        NoCurrentJob = -7,
        WrongState = -8, ///< as a stop when nothing is recorded
        NoStorage = -9,
        MediaItemNotAdded = -10, ///< the job did not take the file
    };
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static const char* Text(int code);
};

/// The first argument of the signal "CaptureError": what ended a recording.
struct CaptureRuntimeError
{
    enum Value : int
    {
        Unknown = -1,
        PowerTooLow = -2,
        StorageTooLow = -3,
        StorageRemoved = -4, ///< or became read-only
    };
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static const char* Text(int error);
};

/// The first argument of the signal "CaptureSizeLimitReached": which recording was ended and saved.
struct CaptureType
{
    enum Value : int
    {
        AutoLog = 0,
        PhotoTalk = 1,
        Video = 2,
    };
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static const char* Text(int type);
};

/// The `code` of playback.
struct PlaybackErrorCode
{
    enum Value : int
    {
        Success = 0,
        Unknown = -1,
        NoFile = -2,
        WrongState = -3,
    };
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static const char* Text(int code);
};

/// The first argument of the signal "PlaybackError": what ended a playback. Not the numbers of CaptureRuntimeError.
struct PlaybackRuntimeError
{
    enum Value : int
    {
        Unknown = -1,
        PowerTooLow = -2,
        StorageRemoved = -3,
    };
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static const char* Text(int error);
};

} // namespace Controllerd
