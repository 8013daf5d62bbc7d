#pragma once

#include "dbus_helper/FixedString.h"
#include "dbus_helper/Signature.h"

#include <systemd/sd-bus.h>

#include <cstdint>

namespace DbusHelper
{

/// Result of a capture call; travels as "i". Any other value is possible on the wire and has a text of its own.
enum class CaptureErrorCode : int32_t
{
    Success = 0,
    Unknown = -1,
    PowerTooLow = -2,
    StorageTooLow = -3,
    PathNotCreated = -4,
    FileExists = -5,
    FileExistsAskOverwrite = -6,
    NoCurrentJob = -7,
    WrongState = -8,
    NoStorage = -9,
    MediaItemNotAdded = -10,
};

/// What ended a recording that was running: the argument of "CaptureError". Storage that was removed and storage that
/// became read-only share a code.
enum class CaptureRuntimeError : int32_t
{
    Unknown = -1,
    PowerTooLow = -2,
    StorageTooLow = -3,
    StorageRemoved = -4,
};

/// The recording that nears its size limit: the argument of "CaptureSizeLimitReached".
enum class CaptureType : int32_t
{
    AutoLog = 0,
    PhotoTalk = 1,
    Video = 2,
};

/// Result of a playback call; travels as "i".
enum class PlaybackErrorCode : int32_t
{
    Success = 0,
    Unknown = -1,
    NoFile = -2,
    WrongState = -3,
};

/// What ended a playback that was running: the argument of "PlaybackError". Not the numbers of CaptureRuntimeError:
/// playback has no code for low storage.
enum class PlaybackRuntimeError : int32_t
{
    Unknown = -1,
    PowerTooLow = -2,
    StorageRemoved = -3,
};

template <>
inline constexpr auto typeText<CaptureErrorCode> = FixedString{"DbusHelper::CaptureErrorCode"};
template <>
inline constexpr auto typeText<PlaybackErrorCode> = FixedString{"DbusHelper::PlaybackErrorCode"};

} // namespace DbusHelper

namespace ControllerDaemon
{

/// The message of a code, which is logged: LOG_INFO for success, LOG_ERR otherwise. Never null.
const char* CaptureErrorReason(DbusHelper::CaptureErrorCode code);
const char* PlaybackErrorReason(DbusHelper::PlaybackErrorCode code);

/// Log the message of the argument, then emit the signal with it from the controller's object on `bus`. A failure to
/// emit is logged and not told otherwise; a null bus is such a failure.
void EmitCaptureError(sd_bus* bus, DbusHelper::CaptureRuntimeError error);
void EmitCaptureSizeLimitReached(sd_bus* bus, DbusHelper::CaptureType type);
void EmitPlaybackError(sd_bus* bus, DbusHelper::PlaybackRuntimeError error);

} // namespace ControllerDaemon
