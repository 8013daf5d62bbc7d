#pragma once

#include "capture/CaptureErrors.h"
#include "clients/jobs/JobsMediaRecords.h"
#include "dbus_helper/PropertyMap.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <vector>

/// The one implementation of the three kinds of recording. A kind is a constant description: what it asks of the other
/// daemons, and the words of its lines. Everything runs on the loop's thread and blocks on the daemons it asks; the
/// only state is the video daemon's, read afresh each time.
namespace ControllerDaemon::Recording
{

/// States of a recording, as the video daemon tells them.
inline constexpr int32_t stateOff = 0;
inline constexpr int32_t stateRecording = 1;

/// What a kind asks of the other daemons: operations of the clients, whose results are explained there.
struct Peers
{
    int32_t (*start)(const std::string& mediaPath, const std::string& recoveryPath, const std::string& snapshotPath,
                     uint32_t width, uint32_t height, uint32_t quality);
    int32_t (*stop)();
    int32_t (*pause)();
    int32_t (*resume)();
    int32_t (*getState)(int32_t& state, std::string* errorText);
    int32_t (*getFilename)(std::string& filename, std::string* errorText);
    int32_t (*getPreviousFilename)(std::string& filename, std::string* errorText);
    int32_t (*addMediaItem)(const std::string& mediaPath, const std::string& mediaType,
                            const std::string& recActivePath, const std::string& recoveryPath,
                            const std::string& snapshotPath, const JobsManagerD::cameraAngles_t& angles,
                            const JobsManagerD::reelDistance_t& distance, int32_t& code);
    DbusHelper::CaptureErrorCode (*getNextPath)(std::string& path);
};

/// The words by which a kind goes in its lines; they are not spelled alike everywhere, and support people search for
/// them as they are.
struct Words
{
    const char* name;           ///< in most lines; the job's name for the media item is "NAME recording"
    const char* state;          ///< "... record state", "no ... recording in progress"
    const char* stopped;        ///< "Stopped ..."
    const char* startOperation; ///< "Class::Operation" of the start
    const char* thresholdFailed;
    const char* thresholdTrue;
};

/// The signature texts that open the lines of a kind's operations.
struct Signatures
{
    const char* start;
    const char* stop;
    const char* cancel;
    const char* pause;
    const char* resume;
    const char* stateChanged;
    const char* grown;
    const char* storagePropertiesChanged;
    const char* storageRemoved;
    const char* stopAndCancelInvalid;
    const char* stopAndSaveOnStoragePath;
    const char* updateMediaItem;
};

struct Kind
{
    DbusHelper::CaptureType type;
    Peers peers;
    Words words;
    Signatures signatures;
};

DbusHelper::CaptureErrorCode Start(const Kind& kind, uint32_t width, uint32_t height, uint32_t quality);
DbusHelper::CaptureErrorCode Stop(const Kind& kind);
DbusHelper::CaptureErrorCode Cancel(const Kind& kind);
DbusHelper::CaptureErrorCode Pause(const Kind& kind);
DbusHelper::CaptureErrorCode Resume(const Kind& kind);

void StateChanged(const Kind& kind, int32_t state);

/// `bus` is where signals are emitted, here and below; null when the server is not up.
void Grown(const Kind& kind, sd_bus* bus, const std::string& path, bool approachingLimit);
void StoragePropertiesChanged(const Kind& kind, sd_bus* bus, const std::string& objectPath,
                              const sdbus_utils::PropertyMap& properties);
void StorageRemoved(const Kind& kind, sd_bus* bus, const std::string& objectPath);

void StopAndCancelInvalid(const Kind& kind);
bool StopAndSaveOnStoragePath(const Kind& kind, const std::string& storagePath);

/// Has the job read a media item's file sizes anew; failures are logged.
void UpdateMediaItem(const Kind& kind, const std::string& path);

} // namespace ControllerDaemon::Recording
