#pragma once

#include "clients/hardware/HalvexTypes.h"
#include "controllerctl/Answer.h"
#include "controllerctl/Inquiry.h"
#include "controllerctl/Siblings.h"
#include "dbus_helper/SdbusUtils.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace ControllerCtl
{

/// What the video daemon says of one kind of recording.
struct RecordingLook
{
    Reply<int32_t> state;
    Reply<std::string> file;
};

/// A storage device, as far as the storage daemon tells of it.
struct StorageLook
{
    std::string path; ///< of its object
    std::string id;
    std::string mountPoint;
    bool isMounted = false;
    bool isReadOnly = false;
    bool isBelowMinimum = false;
    bool isBelowWarning = false;
    std::optional<uint64_t> freeBytes;
};

/// The fields of "GetTime".
using ClockFields = std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, bool>;

/// One look at the whole unit: each daemon's own answers, asked of all at once.
struct UnitLook
{
    std::array<RecordingLook, kindsOfRecording.size()> recordings;
    Reply<int32_t> playbackState;
    Reply<std::string> playbackFile;
    Reply<int64_t> playbackPosition;
    Reply<int64_t> playbackDuration;
    Reply<sdbus_utils::object_manager::ManagedObjects> storages;
    Reply<std::string> primaryStorage;
    Reply<std::tuple<std::string>> job;
    Reply<std::tuple<std::string>> jobDevice;
    Reply<std::tuple<std::tuple<int32_t, std::string>>> jobName; ///< asked where there is a job
    Reply<int32_t> powerSource;
    Reply<int32_t> powerLevel;
    Reply<std::pair<int32_t, int32_t>> charge; ///< percent, right and left
    Reply<std::pair<bool, bool>> lowBattery;   ///< right and left
    Reply<Halvexd::permittedActions_t> permitted;
    Reply<bool> setting; ///< one, to see whether the settings daemon is there
    Reply<bool> syncing;
    Reply<ClockFields> clock;
    std::map<std::string, Reply<Json>> properties; ///< of the controller, by key; lists are left out

    /// How each sibling has answered, by its place in the table.
    [[nodiscard]] std::array<Heard, siblings.size()> Presence() const;
    /// The storage devices, by their paths.
    [[nodiscard]] std::vector<StorageLook> Devices() const;
};

/// Parts of the look, for who needs no more.
void AskRecordings(Inquiry& inquiry, UnitLook& look);
void AskStorages(Inquiry& inquiry, UnitLook& look);

/// How long each side has for its answers.
struct LookLimits
{
    double siblingSeconds;
    double controllerSeconds;
};

/// Looks. Siblings that are silent cost their time once, together. What the controller itself would ask a silent
/// sibling for is not asked: it would wait there for half a minute, and serve nobody meanwhile. Negative errno-style
/// without a bus.
[[nodiscard]] int LookAtUnit(sd_bus* bus, const LookLimits& limits, UnitLook& look);

} // namespace ControllerCtl
