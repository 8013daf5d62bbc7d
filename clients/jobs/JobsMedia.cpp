#include "clients/jobs/JobsCalls.h"
#include "clients/jobs/JobsManager.h"

namespace libjobsdaemon
{

using DbusHelper::Outcome;
using DbusHelper::Step;
using std::string;

namespace
{

/// A member that registers a media item, and the names under which its lines go.
struct Adder
{
    const char* member;
    const char* operation;
    const char* failedCall;
};

constexpr Adder snapshotAdder{"AddSnapshotMedia", "AddSnapshotMediaItem",
                              "AddSnapshotMediaItemm"}; // the doubled m is deliberate: the line has always had it
constexpr Adder videoAdder{"AddVideoMedia", "AddVideoMediaItem", "AddVideoMediaItem"};
constexpr Adder autologAdder{"AddAutologMedia", "AddAutologMediaItem", "AddAutologMediaItem"};
constexpr Adder photoTalkAdder{"AddPhotoTalkMedia", "AddPhotoTalkMediaItem", "AddPhotoTalkMediaItem"};

/// The adders' own lines, written for every outcome.
int32_t Report(const Adder& adder, const Outcome& outcome, int32_t code)
{
    switch (outcome.step)
    {
    case Step::Open:
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_open_user failed r = %d", adder.operation, outcome.result);
        break;
    case Step::Read:
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_message_read failed r = %d", adder.operation,
                   outcome.result);
        break;
    case Step::Done:
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_message_read ok. rtnCode = %d, Error - %s", adder.operation,
                   code, JobsManager::ErrorText(code));
        break;
    default:
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_call_method failed r = %d reason: %s", adder.failedCall,
                   outcome.result, outcome.errorText.c_str());
    }
    return outcome.result;
}

/// Sends the texts, then the fields of both records one by one.
template <typename... Texts>
int32_t AddItem(const Adder& adder, int32_t& code, const JobsManagerD::cameraAngles_t& angles,
                const JobsManagerD::reelDistance_t& distance, const Texts&... texts)
{
    Log::Debug("%s", adder.operation);
    const auto call = [&](const auto&... fields) {
        return DbusHelper::Call(jobsDaemon, adder.member, std::tie(code), texts..., fields...);
    };
    const Outcome outcome = std::apply(call, std::tuple_cat(Fields(angles), Fields(distance)));
    return Report(adder, outcome, code);
}

} // namespace

int32_t JobsManager::GetNewMediaPathComponents(int32_t& code, string& folder, string& stem)
{
    return CallForStructure("GetNewMediaPathComponents", std::tie(code, folder, stem));
}
int32_t JobsManager::AddSnapshotMediaItem(const string& mediaPath, const string& mediaType,
                                          const JobsManagerD::cameraAngles_t& angles,
                                          const JobsManagerD::reelDistance_t& distance, int32_t& code)
{
    return AddItem(snapshotAdder, code, angles, distance, mediaPath, mediaType);
}
int32_t JobsManager::AddVideoMediaItem(const string& mediaPath, const string& mediaType, const string& recActivePath,
                                       const string& recoveryPath, const string& snapshotPath,
                                       const JobsManagerD::cameraAngles_t& angles,
                                       const JobsManagerD::reelDistance_t& distance, int32_t& code)
{
    return AddItem(videoAdder, code, angles, distance, mediaPath, mediaType, recActivePath, recoveryPath, snapshotPath);
}
int32_t JobsManager::AddAutologMediaItem(const string& mediaPath, const string& mediaType, const string& recActivePath,
                                         const string& recoveryPath, const string& snapshotPath,
                                         const JobsManagerD::cameraAngles_t& angles,
                                         const JobsManagerD::reelDistance_t& distance, int32_t& code)
{
    return AddItem(autologAdder, code, angles, distance, mediaPath, mediaType, recActivePath, recoveryPath,
                   snapshotPath);
}
int32_t JobsManager::AddPhotoTalkMediaItem(const string& mediaPath, const string& mediaType,
                                           const string& recActivePath, const string& recoveryPath,
                                           const string& snapshotPath, const JobsManagerD::cameraAngles_t& angles,
                                           const JobsManagerD::reelDistance_t& distance, int32_t& code)
{
    return AddItem(photoTalkAdder, code, angles, distance, mediaPath, mediaType, recActivePath, recoveryPath,
                   snapshotPath);
}
int32_t JobsManager::UpdateMediaFileSizes(const string& mediaPath, int32_t& code)
{
    return Call("UpdateMediaFileSizes", code, mediaPath);
}
int32_t JobsManager::DeleteMediaItem(const string& deviceID, const string& jobID, const string& mediaID, int32_t& code)
{
    return Call("DeleteMediaItem", code, deviceID, jobID, mediaID);
}
int32_t JobsManager::GetMediaID(const string& mediaPath, int32_t& code, string& mediaID)
{
    return CallForStructure("GetMediaID", std::tie(code, mediaID), mediaPath);
}
int32_t JobsManager::GetMediaItem(const string& deviceID, const string& jobID, const string& mediaID, int32_t& code,
                                  string& item)
{
    return CallForStructure("GetMediaItem", std::tie(code, item), deviceID, jobID, mediaID);
}
int32_t JobsManager::GetMediaName(const string& deviceID, const string& jobID, const string& mediaID, int32_t& code,
                                  string& name)
{
    return CallForStructure("GetMediaName", std::tie(code, name), deviceID, jobID, mediaID);
}
int32_t JobsManager::SetMediaName(const string& deviceID, const string& jobID, const string& mediaID,
                                  const string& name, int32_t& code)
{
    return Call("SetMediaName", code, deviceID, jobID, mediaID, name);
}
int32_t JobsManager::GetMediaNotes(const string& deviceID, const string& jobID, const string& mediaID, int32_t& code,
                                   string& notes)
{
    return CallForStructure("GetMediaNotes", std::tie(code, notes), deviceID, jobID, mediaID);
}
int32_t JobsManager::SetMediaNotes(const string& deviceID, const string& jobID, const string& mediaID,
                                   const string& notes, int32_t& code)
{
    return Call("SetMediaNotes", code, deviceID, jobID, mediaID, notes);
}
int32_t JobsManager::GetMediaPrivateNotes(const string& deviceID, const string& jobID, const string& mediaID,
                                          int32_t& code, string& notes)
{
    return CallForStructure("GetMediaPrivateNotes", std::tie(code, notes), deviceID, jobID, mediaID);
}
int32_t JobsManager::SetMediaPrivateNotes(const string& deviceID, const string& jobID, const string& mediaID,
                                          const string& notes, int32_t& code)
{
    return Call("SetMediaPrivateNotes", code, deviceID, jobID, mediaID, notes);
}
int32_t JobsManager::GetMediaUserData(const string& deviceID, const string& jobID, const string& mediaID, int32_t& code,
                                      string& userData)
{
    return CallForStructure("GetMediaUserData", std::tie(code, userData), deviceID, jobID, mediaID);
}
int32_t JobsManager::SetMediaUserData(const string& deviceID, const string& jobID, const string& mediaID,
                                      const string& userData, int32_t& code)
{
    return Call("SetMediaUserData", code, deviceID, jobID, mediaID, userData);
}
int32_t JobsManager::GetMediaIsIncludedInReport(const string& deviceID, const string& jobID, const string& mediaID,
                                                int32_t& code, int32_t& included)
{
    return CallForStructure("GetMediaIsIncludedInReport", std::tie(code, included), deviceID, jobID, mediaID);
}
int32_t JobsManager::SetMediaIsIncludedInReport(const string& deviceID, const string& jobID, const string& mediaID,
                                                int32_t included, int32_t& code)
{
    return Call("SetMediaIsIncludedInReport", code, deviceID, jobID, mediaID, included);
}
int32_t JobsManager::GetJobMediaCounts(const string& deviceID, const string& jobID, int32_t& code, MediaCounts& counts)
{
    return CallForStructure("GetJobMediaCounts", std::tuple_cat(std::tie(code), Fields(counts)), deviceID, jobID);
}
int32_t JobsManager::CurrentJobMediaCounts(int32_t& code, MediaCounts& counts)
{
    return CallForStructure("CurrentJobMediaCounts", std::tuple_cat(std::tie(code), Fields(counts)));
}

} // namespace libjobsdaemon
