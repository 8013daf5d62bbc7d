#include "clients/jobs/JobsManager.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace
{

using libjobsdaemon::JobsManager;

TEST(JobsErrorText, NamesEveryCode)
{
    const std::vector<std::pair<int32_t, const char*>> texts{
        {0, "Succeeded"},
        {1, "Failed: Device busy"},
        {2, "Failed: Device not found"},
        {3, "Failed: Filesystem is read only"},
        {4, "Failed: Insufficient space"},
        {5, "Failed: Filesystem error"},
        {6, "Failed: Unsupported format"},
        {7, "Failed: No current job"},
        {8, "Failed: Job not open"},
        {9, "Failed: Job ID not found"},
        {10, "Failed: Media ID not found"},
        {11, "Failed: Missing fields"},
        {12, "Failed: Job has active recording"},
        {13, "Failed: Job has active playback"},
        {14, "Failed: Media has active playback"},
        {15, "Failed: Current job open"},
        {16, "Failed: Cannot delete/move current job"},
        {17, "Failed: Cannot delete/move locked job"},
        {18, "Failed: Job file has missing fields"},
        {19, "Failed: Invalid json"},
        {20, "Failed: Json has invalid or missing fields"},
        {21, "Failed: Unsupported operation"},
        {22, "Failed: Dbus communication error"},
        {23, "Failed: Entry not found"},
        {24, "Failed: Entry already exists"},
        {25, "Failed: List full"},
        {26, "Failed: Filesystems are duplicates"},
        {27, "Failed: Job file not found"},
        {28, "Failed: Job file already exists"},
        {29, "Failed: Invalid range"},
    };
    for (const auto& [code, text] : texts)
    {
        EXPECT_STREQ(JobsManager::ErrorText(code), text) << code;
    }
}

TEST(JobsErrorText, SaysSoWhenTheCodeIsUnknown)
{
    for (const int32_t code : {-1, 30, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()})
    {
        EXPECT_STREQ(JobsManager::ErrorText(code), "Unknown error code") << code;
    }
}

} // namespace
