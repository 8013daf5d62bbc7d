#include "clients/jobs/JobsManager.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using libjobsdaemon::JobsManager;

Driver::Listening Listen(sd_event* event, const Driver::SignalSink& sink)
{
    auto client = std::make_shared<JobsManager>(event);
    Driver::Forward<std::string, sdbus_utils::PropertyMap>(client->DevicePropertiesChanged(), "DevicePropertiesChanged",
                                                           sink);
    Driver::Forward<std::string>(client->TargetDeviceIDChanged(), "TargetDeviceIDChanged", sink);
    return {client->Listen(), client};
}

} // namespace

#define ADD(operation) table.Add("jobs." #operation, &JobsManager::operation)

void AddJobsOperations(Driver::OperationTable& table)
{
    ADD(SetTargetDeviceID);
    ADD(MoveJob);
    ADD(CopyJob);
    ADD(MoveAllJobs);
    ADD(CopyAllJobs);
    ADD(MoveJobList);
    ADD(CopyJobList);
    ADD(DeleteJob);
    ADD(DeleteAllJobs);
    ADD(DeleteJobList);
    ADD(CancelCMD);
    ADD(FindJobs);
    ADD(ConvertJobs);
    ADD(SearchJobs);
    ADD(GetSearchStats);
    ADD(GetSearchResults);
    ADD(GetJobListStats);
    ADD(GetJobList);
    ADD(GetNewMediaPathComponents);
    ADD(AddSnapshotMediaItem);
    ADD(AddVideoMediaItem);
    ADD(AddAutologMediaItem);
    ADD(AddPhotoTalkMediaItem);
    ADD(UpdateMediaFileSizes);
    ADD(DeleteMediaItem);
    ADD(GetMediaID);
    ADD(GetMediaItem);
    ADD(GetMediaName);
    ADD(SetMediaName);
    ADD(GetMediaNotes);
    ADD(SetMediaNotes);
    ADD(GetMediaPrivateNotes);
    ADD(SetMediaPrivateNotes);
    ADD(GetMediaUserData);
    ADD(SetMediaUserData);
    ADD(GetMediaIsIncludedInReport);
    ADD(SetMediaIsIncludedInReport);
    ADD(GetJobMediaCounts);
    ADD(CurrentJobMediaCounts);
    ADD(GetCurrentJobID);
    ADD(GetCurrentJobDeviceID);
    ADD(CreateJob);
    ADD(OpenJob);
    ADD(CloseJob);
    ADD(GetJob);
    ADD(GetJobFolderPath);
    ADD(GetJobLocked);
    ADD(SetJobLocked);
    ADD(GetJobName);
    ADD(SetJobName);
    ADD(GetJobNotes);
    ADD(SetJobNotes);
    ADD(GetJobPrivateNotes);
    ADD(SetJobPrivateNotes);
    ADD(GetJobUserData);
    ADD(SetJobUserData);
    ADD(GetJobAddress);
    ADD(SetJobAddress);
    ADD(ClearJobAddress);
    ADD(GetJobCustomer);
    ADD(SetJobCustomer);
    ADD(ClearJobCustomer);
    ADD(GetJobContacts);
    ADD(RemoveJobContacts);
    ADD(AddJobContact);
    ADD(GetJobContact);
    ADD(UpdateJobContact);
    ADD(RemoveJobContact);
    table.AddListener("jobs", &Listen);
}
