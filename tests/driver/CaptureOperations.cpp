#include "capture/AutoLogCapture.h"
#include "capture/PhotoTalkCapture.h"
#include "capture/StorageManager.h"
#include "capture/VideoCapture.h"
#include "tests/driver/OperationTable.h"

void AddOperations(Driver::OperationTable& table)
{
    using namespace ControllerDaemon;
    table.Add("video.StopAndSaveAllRecordingsOnStoragePath", &VideoCapture::StopAndSaveAllRecordingsOnStoragePath);
    table.Add("photoTalk.StopAndSaveAllRecordingsOnStoragePath",
              &PhotoTalkCapture::StopAndSaveAllRecordingsOnStoragePath);
    table.Add("video.Cancel", &VideoCapture::VideoRecordCancel);
    table.Add("photoTalk.Cancel", &PhotoTalkCapture::PhotoTalkRecordCancel);
    table.Add("autolog.Cancel", &AutoLogCapture::AutoLogRecordCancel);
    table.Add("autolog.StopAndSaveAllRecordingsOnStoragePath", &AutoLogCapture::StopAndSaveAllRecordingsOnStoragePath);
    table.Add("paths.GetNextSnapshotPath", &StorageManager::GetNextSnapshotPath);
    table.Add("paths.GetNextVideoRecordingPath", &StorageManager::GetNextVideoRecordingPath);
    table.Add("paths.GetNextPhotoTalkPath", &StorageManager::GetNextPhotoTalkPath);
    table.Add("paths.GetNextAutoLogPath", &StorageManager::GetNextAutoLogPath);
}
