#include "clients/jobs/JobsManager.h"

#include "clients/jobs/JobsCalls.h"

#include <array>
#include <string_view>

namespace libjobsdaemon
{

using DbusHelper::Outcome;
using DbusHelper::Step;
using std::string;
using std::vector;

namespace
{

constexpr std::string_view deviceInterface = "com.tavilon.common.JobsManagerDaemon1.Device";
constexpr const char* targetDeviceProperty = "TargetDeviceID";

/// By code. That 16 is the current job and 17 the locked one is the jobs daemon's order, whatever their texts suggest.
constexpr std::array errorTexts{
    "Succeeded",
    "Failed: Device busy",
    "Failed: Device not found",
    "Failed: Filesystem is read only",
    "Failed: Insufficient space",
    "Failed: Filesystem error",
    "Failed: Unsupported format",
    "Failed: No current job",
    "Failed: Job not open",
    "Failed: Job ID not found",
    "Failed: Media ID not found",
    "Failed: Missing fields",
    "Failed: Job has active recording",
    "Failed: Job has active playback",
    "Failed: Media has active playback",
    "Failed: Current job open",
    "Failed: Cannot delete/move current job",
    "Failed: Cannot delete/move locked job",
    "Failed: Job file has missing fields",
    "Failed: Invalid json",
    "Failed: Json has invalid or missing fields",
    "Failed: Unsupported operation",
    "Failed: Dbus communication error",
    "Failed: Entry not found",
    "Failed: Entry already exists",
    "Failed: List full",
    "Failed: Filesystems are duplicates",
    "Failed: Job file not found",
    "Failed: Job file already exists",
    "Failed: Invalid range",
};
static_assert(errorTexts.size() == 30);

} // namespace

int32_t Report(const char* member, const Outcome& outcome)
{
    if (outcome.step == Step::Open)
    {
        // the user bus is opened and the system bus named: deliberate, support tools search for this text
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_open_system(&bus) failed r = %d", member, outcome.result);
    }
    else if (outcome.step == Step::Read)
    {
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_message_read failed r = %d", member, outcome.result);
    }
    else if (!outcome.Ok())
    {
        Log::Error("libjobsdaemon::JobsManager::%s: sd_bus_call_method failed r = %d, message = %s", member,
                   outcome.result, outcome.errorText.c_str());
    }
    return outcome.result;
}

const char* JobsManager::ErrorText(int32_t code)
{
    const bool known = code >= 0 && static_cast<size_t>(code) < errorTexts.size();
    return known ? errorTexts[static_cast<size_t>(code)] : "Unknown error code";
}

int32_t JobsManager::SetTargetDeviceID(const string& deviceID, int32_t& code)
{
    constexpr const char* member = "SetTargetDeviceID";
    Log::Debug("%s deviceID = %s", member, deviceID.c_str());
    return Report(member, DbusHelper::Call(jobsDaemon, member, std::tie(code), deviceID));
}

int32_t JobsManager::MoveJob(const string& sourceDeviceID, const string& jobID, const string& targetDeviceID,
                             int32_t& code)
{
    return Call("MoveJob", code, sourceDeviceID, jobID, targetDeviceID);
}
int32_t JobsManager::CopyJob(const string& sourceDeviceID, const string& jobID, const string& targetDeviceID,
                             int32_t& code)
{
    return Call("CopyJob", code, sourceDeviceID, jobID, targetDeviceID);
}
int32_t JobsManager::MoveAllJobs(const string& sourceDeviceID, const string& targetDeviceID, int32_t& code)
{
    return Call("MoveAllJobs", code, sourceDeviceID, targetDeviceID);
}
int32_t JobsManager::CopyAllJobs(const string& sourceDeviceID, const string& targetDeviceID, int32_t& code)
{
    return Call("CopyAllJobs", code, sourceDeviceID, targetDeviceID);
}
int32_t JobsManager::MoveJobList(const string& sourceDeviceID, const string& targetDeviceID,
                                 const vector<string>& jobIDs, int32_t& code)
{
    return Call("MoveJobList", code, sourceDeviceID, targetDeviceID, jobIDs);
}
int32_t JobsManager::CopyJobList(const string& sourceDeviceID, const string& targetDeviceID,
                                 const vector<string>& jobIDs, int32_t& code)
{
    return Call("CopyJobList", code, sourceDeviceID, targetDeviceID, jobIDs);
}
int32_t JobsManager::DeleteJob(const string& deviceID, const string& jobID, int32_t& code)
{
    return Call("DeleteJob", code, deviceID, jobID);
}
int32_t JobsManager::DeleteAllJobs(const string& deviceID, int32_t& code)
{
    return Call("DeleteAllJobs", code, deviceID);
}
int32_t JobsManager::DeleteJobList(const string& deviceID, const vector<string>& jobIDs, int32_t& code)
{
    return Call("DeleteJobList", code, deviceID, jobIDs);
}
int32_t JobsManager::CancelCMD(const string& deviceID, int32_t& code) { return Call("CancelCMD", code, deviceID); }
int32_t JobsManager::FindJobs(const string& deviceID, int32_t& code) { return Call("FindJobs", code, deviceID); }
int32_t JobsManager::ConvertJobs(const string& deviceID, int32_t& code) { return Call("ConvertJobs", code, deviceID); }
int32_t JobsManager::SearchJobs(const string& deviceID, const string& text, SearchCriterion criterion, uint16_t count,
                                bool flag, int32_t& code)
{
    return Call("SearchJobs", code, deviceID, text, criterion, count, flag);
}
int32_t JobsManager::GetSearchStats(const string& deviceID, int32_t& code, string& stats)
{
    return CallForStructure("GetSearchStats", std::tie(code, stats), deviceID);
}
int32_t JobsManager::GetSearchResults(const string& deviceID, uint16_t first, uint16_t second, int32_t& code,
                                      string& jobs)
{
    return CallForStructure("GetSearchResults", std::tie(code, jobs), deviceID, first, second);
}
int32_t JobsManager::GetJobListStats(const string& deviceID, int32_t& code, string& stats)
{
    return CallForStructure("GetJobListStats", std::tie(code, stats), deviceID);
}
int32_t JobsManager::GetJobList(const string& deviceID, uint8_t firstKey, uint8_t secondKey, uint16_t first,
                                uint16_t second, int32_t& code, string& jobs)
{
    return CallForStructure("GetJobList", std::tie(code, jobs), deviceID, firstKey, secondKey, first, second);
}
int32_t JobsManager::GetCurrentJobID(string& jobID) { return Call("GetCurrentJobID", jobID); }
int32_t JobsManager::GetCurrentJobDeviceID(string& deviceID) { return Call("GetCurrentJobDeviceID", deviceID); }
int32_t JobsManager::CreateJob(const string& deviceID, const string& description, int32_t& code, string& jobID,
                               string& job)
{
    return CallForStructure("CreateJob", std::tie(code, jobID, job), deviceID, description);
}
int32_t JobsManager::OpenJob(const string& deviceID, const string& jobID, int32_t& code, string& openedJobID,
                             string& job)
{
    return CallForStructure("OpenJob", std::tie(code, openedJobID, job), deviceID, jobID);
}
int32_t JobsManager::CloseJob(int32_t& code, string& jobID)
{
    return CallForStructure("CloseJob", std::tie(code, jobID));
}
int32_t JobsManager::GetJob(const string& deviceID, const string& jobID, int32_t& code, string& job)
{
    return CallForStructure("GetJob", std::tie(code, job), deviceID, jobID);
}
int32_t JobsManager::GetJobFolderPath(const string& deviceID, const string& jobID, int32_t& code, string& path)
{
    return CallForStructure("GetJobFolderPath", std::tie(code, path), deviceID, jobID);
}
int32_t JobsManager::GetJobLocked(const string& deviceID, const string& jobID, int32_t& code, bool& locked)
{
    return CallForStructure("GetJobLocked", std::tie(code, locked), deviceID, jobID);
}
int32_t JobsManager::SetJobLocked(const string& deviceID, const string& jobID, bool locked, int32_t& code)
{
    return Call("SetJobLocked", code, deviceID, jobID, locked);
}
int32_t JobsManager::GetJobName(const string& deviceID, const string& jobID, int32_t& code, string& name)
{
    return CallForStructure("GetJobName", std::tie(code, name), deviceID, jobID);
}
int32_t JobsManager::SetJobName(const string& deviceID, const string& jobID, const string& name, int32_t& code)
{
    return Call("SetJobName", code, deviceID, jobID, name);
}
int32_t JobsManager::GetJobNotes(const string& deviceID, const string& jobID, int32_t& code, string& notes)
{
    return CallForStructure("GetJobNotes", std::tie(code, notes), deviceID, jobID);
}
int32_t JobsManager::SetJobNotes(const string& deviceID, const string& jobID, const string& notes, int32_t& code)
{
    return Call("SetJobNotes", code, deviceID, jobID, notes);
}
int32_t JobsManager::GetJobPrivateNotes(const string& deviceID, const string& jobID, int32_t& code, string& notes)
{
    return CallForStructure("GetJobPrivateNotes", std::tie(code, notes), deviceID, jobID);
}
int32_t JobsManager::SetJobPrivateNotes(const string& deviceID, const string& jobID, const string& notes, int32_t& code)
{
    return Call("SetJobPrivateNotes", code, deviceID, jobID, notes);
}
int32_t JobsManager::GetJobUserData(const string& deviceID, const string& jobID, int32_t& code, string& userData)
{
    return CallForStructure("GetJobUserData", std::tie(code, userData), deviceID, jobID);
}
int32_t JobsManager::SetJobUserData(const string& deviceID, const string& jobID, const string& userData, int32_t& code)
{
    return Call("SetJobUserData", code, deviceID, jobID, userData);
}
int32_t JobsManager::GetJobAddress(const string& deviceID, const string& jobID, int32_t& code, string& address)
{
    return CallForStructure("GetJobAddress", std::tie(code, address), deviceID, jobID);
}
int32_t JobsManager::SetJobAddress(const string& deviceID, const string& jobID, const string& address, int32_t& code)
{
    return Call("SetJobAddress", code, deviceID, jobID, address);
}
int32_t JobsManager::ClearJobAddress(const string& deviceID, const string& jobID, int32_t& code)
{
    return Call("ClearJobAddress", code, deviceID, jobID);
}
int32_t JobsManager::GetJobCustomer(const string& deviceID, const string& jobID, int32_t& code, string& customer)
{
    return CallForStructure("GetJobCustomer", std::tie(code, customer), deviceID, jobID);
}
int32_t JobsManager::SetJobCustomer(const string& deviceID, const string& jobID, const string& customer, int32_t& code)
{
    return Call("SetJobCustomer", code, deviceID, jobID, customer);
}
int32_t JobsManager::ClearJobCustomer(const string& deviceID, const string& jobID, int32_t& code)
{
    return Call("ClearJobCustomer", code, deviceID, jobID);
}
int32_t JobsManager::GetJobContacts(const string& deviceID, const string& jobID, int32_t& code, string& contacts)
{
    return CallForStructure("GetJobContacts", std::tie(code, contacts), deviceID, jobID);
}
int32_t JobsManager::RemoveJobContacts(const string& deviceID, const string& jobID, int32_t& code)
{
    return Call("RemoveJobContacts", code, deviceID, jobID);
}
int32_t JobsManager::AddJobContact(const string& deviceID, const string& jobID, const string& contact, int32_t& code,
                                   uint8_t& index)
{
    return CallForStructure("AddJobContact", std::tie(code, index), deviceID, jobID, contact);
}
int32_t JobsManager::GetJobContact(const string& deviceID, const string& jobID, uint8_t index, int32_t& code,
                                   string& contact)
{
    return CallForStructure("GetJobContact", std::tie(code, contact), deviceID, jobID, index);
}
int32_t JobsManager::UpdateJobContact(const string& deviceID, const string& jobID, const string& contact, int32_t& code)
{
    return Call("UpdateJobContact", code, deviceID, jobID, contact);
}
int32_t JobsManager::RemoveJobContact(const string& deviceID, const string& jobID, uint8_t index, int32_t& code)
{
    return Call("RemoveJobContact", code, deviceID, jobID, index);
}

JobsManager::JobsManager(sd_event* event) : listener_(event)
{
    constexpr const char* member = "PropertiesChanged";
    listener_.DefineSignals(
        {{member, jobsDaemon.service, "", "org.freedesktop.DBus.Properties", member, &JobsManager::PropertiesChanged}},
        this);
}

int32_t JobsManager::Listen() { return listener_.ListenSignals({"PropertiesChanged"}); }

int JobsManager::PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    string interface;
    sdbus_utils::PropertyMap properties;
    int result = DbusHelper::Codec<string>::Read(message, interface);
    result = result < 0 ? result : sdbus_utils::ParseProperties(message, properties);
    if (result < 0)
    {
        Log::Error("ParseProperties failed (r = %d)", result);
        return result;
    }
    auto& client = *static_cast<JobsManager*>(userData);
    if (interface == deviceInterface)
    {
        client.devicePropertiesChanged_.emit(sd_bus_message_get_path(message), properties);
    }
    const auto target = properties.find(targetDeviceProperty);
    const auto* deviceID = target == properties.end() ? nullptr : std::any_cast<string>(&target->second);
    if (deviceID != nullptr)
    {
        client.targetDeviceIdChanged_.emit(*deviceID);
    }
    return 0;
}

} // namespace libjobsdaemon
