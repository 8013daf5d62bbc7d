#pragma once

#include "clients/jobs/JobsMediaRecords.h"
#include "dbus_helper/DbusListener.h"
#include "dbus_helper/PropertyMap.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <string>
#include <vector>

namespace libjobsdaemon
{

/// How "SearchJobs" compares the text that it is given with that of a job.
enum class SearchCriterion : uint8_t
{
    Contains = 0,
    StartsWith = 1,
    Exactly = 2,
};

/// Numbers of media items of a job, in the jobs daemon's own order.
struct MediaCounts
{
    int32_t first = 0;
    int32_t second = 0;
    int32_t third = 0;
    int32_t fourth = 0;
    int32_t fifth = 0;
};

auto Fields(DbusHelper::ConstOrNot<MediaCounts> auto& counts)
{
    return std::tie(counts.first, counts.second, counts.third, counts.fourth, counts.fifth);
}

/// Client of the jobs manager daemon, "com.tavilon.common.JobsManagerDaemon1": jobs on the storage devices and the
/// media items recorded into them.
///
/// Every operation is one blocking call on a user-bus connection of its own; nothing is kept between calls. It returns
/// sd-bus's result: negative errno-style, logged, with every out-argument as it was. Otherwise `code` is the jobs
/// daemon's own result code (0 succeeded; see ErrorText) and the data are what it sent along, which is empty when it
/// refused. A refusal is a success here: it is for the caller to judge. Devices, jobs and media items are named by
/// their IDs; texts that describe more than one value are JSON. Static operations may run on any thread; signals are
/// dispatched on the loop's.
class JobsManager
{
  public:
    using DeviceSignal = sigc::signal<void, std::string, const sdbus_utils::PropertyMap&>; ///< object path, changes
    using TargetDeviceSignal = sigc::signal<void, std::string>;                            ///< the new device ID

    explicit JobsManager(sd_event* event);

    /// Subscribes to the changes of the jobs daemon's device properties, on all of its objects. Returns 0, negative
    /// errno-style on failure.
    [[nodiscard]] int32_t Listen();

    DeviceSignal& DevicePropertiesChanged() { return devicePropertiesChanged_; }
    TargetDeviceSignal& TargetDeviceIDChanged() { return targetDeviceIdChanged_; }

    /// The text of a result code of the jobs daemon, "Unknown error code" for one that it does not have.
    [[nodiscard]] static const char* ErrorText(int32_t code);

    /// Chooses the device on which new jobs are made.
    [[nodiscard]] static int32_t SetTargetDeviceID(const std::string& deviceID, int32_t& code);

    [[nodiscard]] static int32_t MoveJob(const std::string& sourceDeviceID, const std::string& jobID,
                                         const std::string& targetDeviceID, int32_t& code);
    [[nodiscard]] static int32_t CopyJob(const std::string& sourceDeviceID, const std::string& jobID,
                                         const std::string& targetDeviceID, int32_t& code);
    [[nodiscard]] static int32_t MoveAllJobs(const std::string& sourceDeviceID, const std::string& targetDeviceID,
                                             int32_t& code);
    [[nodiscard]] static int32_t CopyAllJobs(const std::string& sourceDeviceID, const std::string& targetDeviceID,
                                             int32_t& code);
    [[nodiscard]] static int32_t MoveJobList(const std::string& sourceDeviceID, const std::string& targetDeviceID,
                                             const std::vector<std::string>& jobIDs, int32_t& code);
    [[nodiscard]] static int32_t CopyJobList(const std::string& sourceDeviceID, const std::string& targetDeviceID,
                                             const std::vector<std::string>& jobIDs, int32_t& code);
    [[nodiscard]] static int32_t DeleteJob(const std::string& deviceID, const std::string& jobID, int32_t& code);
    [[nodiscard]] static int32_t DeleteAllJobs(const std::string& deviceID, int32_t& code);
    [[nodiscard]] static int32_t DeleteJobList(const std::string& deviceID, const std::vector<std::string>& jobIDs,
                                               int32_t& code);
    /// Ends whatever long operation runs on the device.
    [[nodiscard]] static int32_t CancelCMD(const std::string& deviceID, int32_t& code);

    [[nodiscard]] static int32_t FindJobs(const std::string& deviceID, int32_t& code);
    [[nodiscard]] static int32_t ConvertJobs(const std::string& deviceID, int32_t& code);
    /// `count` and `flag` are passed through: the jobs daemon defines them.
    [[nodiscard]] static int32_t SearchJobs(const std::string& deviceID, const std::string& text,
                                            SearchCriterion criterion, uint16_t count, bool flag, int32_t& code);
    [[nodiscard]] static int32_t GetSearchStats(const std::string& deviceID, int32_t& code, std::string& stats);
    /// The two numbers choose a page of the results.
    [[nodiscard]] static int32_t GetSearchResults(const std::string& deviceID, uint16_t first, uint16_t second,
                                                  int32_t& code, std::string& jobs);
    [[nodiscard]] static int32_t GetJobListStats(const std::string& deviceID, int32_t& code, std::string& stats);
    /// The first two numbers choose the order, the last two a page of the list.
    [[nodiscard]] static int32_t GetJobList(const std::string& deviceID, uint8_t firstKey, uint8_t secondKey,
                                            uint16_t first, uint16_t second, int32_t& code, std::string& jobs);

    /// Folder and file stem (without extension) for the next media item of the current job; code 7 without one.
    [[nodiscard]] static int32_t GetNewMediaPathComponents(int32_t& code, std::string& folder, std::string& stem);

    /// Registers a new media item in the current job, with what camera and reel said when it was captured. The code is
    /// logged together with its text, whatever it is.
    [[nodiscard]] static int32_t AddSnapshotMediaItem(const std::string& mediaPath, const std::string& mediaType,
                                                      const JobsManagerD::cameraAngles_t& angles,
                                                      const JobsManagerD::reelDistance_t& distance, int32_t& code);
    /// The same for recordings, with their two marker files and their snapshot.
    [[nodiscard]] static int32_t AddVideoMediaItem(const std::string& mediaPath, const std::string& mediaType,
                                                   const std::string& recActivePath, const std::string& recoveryPath,
                                                   const std::string& snapshotPath,
                                                   const JobsManagerD::cameraAngles_t& angles,
                                                   const JobsManagerD::reelDistance_t& distance, int32_t& code);
    [[nodiscard]] static int32_t AddAutologMediaItem(const std::string& mediaPath, const std::string& mediaType,
                                                     const std::string& recActivePath, const std::string& recoveryPath,
                                                     const std::string& snapshotPath,
                                                     const JobsManagerD::cameraAngles_t& angles,
                                                     const JobsManagerD::reelDistance_t& distance, int32_t& code);
    [[nodiscard]] static int32_t AddPhotoTalkMediaItem(const std::string& mediaPath, const std::string& mediaType,
                                                       const std::string& recActivePath,
                                                       const std::string& recoveryPath, const std::string& snapshotPath,
                                                       const JobsManagerD::cameraAngles_t& angles,
                                                       const JobsManagerD::reelDistance_t& distance, int32_t& code);

    /// Has the sizes of the item's files read again.
    [[nodiscard]] static int32_t UpdateMediaFileSizes(const std::string& mediaPath, int32_t& code);
    [[nodiscard]] static int32_t DeleteMediaItem(const std::string& deviceID, const std::string& jobID,
                                                 const std::string& mediaID, int32_t& code);
    [[nodiscard]] static int32_t GetMediaID(const std::string& mediaPath, int32_t& code, std::string& mediaID);
    [[nodiscard]] static int32_t GetMediaItem(const std::string& deviceID, const std::string& jobID,
                                              const std::string& mediaID, int32_t& code, std::string& item);
    [[nodiscard]] static int32_t GetMediaName(const std::string& deviceID, const std::string& jobID,
                                              const std::string& mediaID, int32_t& code, std::string& name);
    [[nodiscard]] static int32_t SetMediaName(const std::string& deviceID, const std::string& jobID,
                                              const std::string& mediaID, const std::string& name, int32_t& code);
    [[nodiscard]] static int32_t GetMediaNotes(const std::string& deviceID, const std::string& jobID,
                                               const std::string& mediaID, int32_t& code, std::string& notes);
    [[nodiscard]] static int32_t SetMediaNotes(const std::string& deviceID, const std::string& jobID,
                                               const std::string& mediaID, const std::string& notes, int32_t& code);
    [[nodiscard]] static int32_t GetMediaPrivateNotes(const std::string& deviceID, const std::string& jobID,
                                                      const std::string& mediaID, int32_t& code, std::string& notes);
    [[nodiscard]] static int32_t SetMediaPrivateNotes(const std::string& deviceID, const std::string& jobID,
                                                      const std::string& mediaID, const std::string& notes,
                                                      int32_t& code);
    [[nodiscard]] static int32_t GetMediaUserData(const std::string& deviceID, const std::string& jobID,
                                                  const std::string& mediaID, int32_t& code, std::string& userData);
    [[nodiscard]] static int32_t SetMediaUserData(const std::string& deviceID, const std::string& jobID,
                                                  const std::string& mediaID, const std::string& userData,
                                                  int32_t& code);
    [[nodiscard]] static int32_t GetMediaIsIncludedInReport(const std::string& deviceID, const std::string& jobID,
                                                            const std::string& mediaID, int32_t& code,
                                                            int32_t& included);
    [[nodiscard]] static int32_t SetMediaIsIncludedInReport(const std::string& deviceID, const std::string& jobID,
                                                            const std::string& mediaID, int32_t included,
                                                            int32_t& code);
    [[nodiscard]] static int32_t GetJobMediaCounts(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                                   MediaCounts& counts);
    [[nodiscard]] static int32_t CurrentJobMediaCounts(int32_t& code, MediaCounts& counts);

    /// Empty without a current job. These two have no code.
    [[nodiscard]] static int32_t GetCurrentJobID(std::string& jobID);
    [[nodiscard]] static int32_t GetCurrentJobDeviceID(std::string& deviceID);

    /// Makes a job of the description and opens it; `jobID` and `job` tell what was made.
    [[nodiscard]] static int32_t CreateJob(const std::string& deviceID, const std::string& description, int32_t& code,
                                           std::string& jobID, std::string& job);
    [[nodiscard]] static int32_t OpenJob(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                         std::string& openedJobID, std::string& job);
    [[nodiscard]] static int32_t CloseJob(int32_t& code, std::string& jobID);
    [[nodiscard]] static int32_t GetJob(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                        std::string& job);
    [[nodiscard]] static int32_t GetJobFolderPath(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                                  std::string& path);
    [[nodiscard]] static int32_t GetJobLocked(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                              bool& locked);
    [[nodiscard]] static int32_t SetJobLocked(const std::string& deviceID, const std::string& jobID, bool locked,
                                              int32_t& code);

    [[nodiscard]] static int32_t GetJobName(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                            std::string& name);
    [[nodiscard]] static int32_t SetJobName(const std::string& deviceID, const std::string& jobID,
                                            const std::string& name, int32_t& code);
    [[nodiscard]] static int32_t GetJobNotes(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                             std::string& notes);
    [[nodiscard]] static int32_t SetJobNotes(const std::string& deviceID, const std::string& jobID,
                                             const std::string& notes, int32_t& code);
    [[nodiscard]] static int32_t GetJobPrivateNotes(const std::string& deviceID, const std::string& jobID,
                                                    int32_t& code, std::string& notes);
    [[nodiscard]] static int32_t SetJobPrivateNotes(const std::string& deviceID, const std::string& jobID,
                                                    const std::string& notes, int32_t& code);
    [[nodiscard]] static int32_t GetJobUserData(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                                std::string& userData);
    [[nodiscard]] static int32_t SetJobUserData(const std::string& deviceID, const std::string& jobID,
                                                const std::string& userData, int32_t& code);
    [[nodiscard]] static int32_t GetJobAddress(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                               std::string& address);
    [[nodiscard]] static int32_t SetJobAddress(const std::string& deviceID, const std::string& jobID,
                                               const std::string& address, int32_t& code);
    [[nodiscard]] static int32_t ClearJobAddress(const std::string& deviceID, const std::string& jobID, int32_t& code);
    [[nodiscard]] static int32_t GetJobCustomer(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                                std::string& customer);
    [[nodiscard]] static int32_t SetJobCustomer(const std::string& deviceID, const std::string& jobID,
                                                const std::string& customer, int32_t& code);
    [[nodiscard]] static int32_t ClearJobCustomer(const std::string& deviceID, const std::string& jobID, int32_t& code);

    [[nodiscard]] static int32_t GetJobContacts(const std::string& deviceID, const std::string& jobID, int32_t& code,
                                                std::string& contacts);
    [[nodiscard]] static int32_t RemoveJobContacts(const std::string& deviceID, const std::string& jobID,
                                                   int32_t& code);
    /// A contact is known by its index, which is given when it is added.
    [[nodiscard]] static int32_t AddJobContact(const std::string& deviceID, const std::string& jobID,
                                               const std::string& contact, int32_t& code, uint8_t& index);
    [[nodiscard]] static int32_t GetJobContact(const std::string& deviceID, const std::string& jobID, uint8_t index,
                                               int32_t& code, std::string& contact);
    [[nodiscard]] static int32_t UpdateJobContact(const std::string& deviceID, const std::string& jobID,
                                                  const std::string& contact, int32_t& code);
    [[nodiscard]] static int32_t RemoveJobContact(const std::string& deviceID, const std::string& jobID, uint8_t index,
                                                  int32_t& code);

  private:
    static int PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* error);

    DbusHelper::DbusListener listener_;
    DeviceSignal devicePropertiesChanged_;
    TargetDeviceSignal targetDeviceIdChanged_;
};

} // namespace libjobsdaemon
