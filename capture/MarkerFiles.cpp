#include "capture/MarkerFiles.h"

#include "capture/MarkerNames.h"
#include "dbus_helper/Log.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/msdos_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

namespace ControllerDaemon
{
namespace
{

enum class HideResult : uint8_t
{
    Hidden,
    NotRead,
    NotWritten,
};

HideResult SetHiddenAttribute(int descriptor)
{
    uint32_t attributes = 0;
    if (ioctl(descriptor, FAT_IOCTL_GET_ATTRIBUTES, &attributes) != 0)
    {
        return HideResult::NotRead;
    }
    attributes |= ATTR_HIDDEN;
    return ioctl(descriptor, FAT_IOCTL_SET_ATTRIBUTES, &attributes) != 0 ? HideResult::NotWritten : HideResult::Hidden;
}

/// A name of a marker is never followed nor waited for.
constexpr int cautiously = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// Opens a plain file and nothing else: others can put what they like under a marker's name, which is known beforehand.
/// A pipe would be waited for and a link followed; a device or a pipe with a reader notices that it is opened, so these
/// are not even tried. Negative when there is no such file, or none can be made.
int OpenPlainFile(const std::string& path, int flags, mode_t mode)
{
    struct stat status
    {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    {
        return -1;
    }
    const int descriptor = open(path.c_str(), flags | cautiously, mode);
    if (descriptor >= 0 && (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)))
    {
        close(descriptor); // it came between the two looks
        return -1;
    }
    return descriptor;
}

int RemoveFile(const std::string& path, const char* operation, const char* name)
{
    std::error_code error;
    std::filesystem::remove(path, error);
    if (error)
    {
        Log::Error("%s Filesystem error attempting to remove %s file %s", operation, name, path.c_str());
    }
    return error.value();
}

} // namespace

std::string RecActivePath(const std::string& mediaPath) { return MarkerPath(mediaPath, recActiveSuffix); }
std::string RecoveryPath(const std::string& mediaPath) { return MarkerPath(mediaPath, recoverySuffix); }

bool CreateHiddenFile(const std::string& path, bool ownerExecute)
{
    const mode_t mode = ownerExecute ? S_IWUSR | S_IXUSR : S_IWUSR;
    // There is nothing under the name in all but a few cases, and then this is one call instead of four.
    int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | cautiously, mode);
    const bool isNew = descriptor >= 0;
    descriptor = isNew ? descriptor : OpenPlainFile(path, O_WRONLY | O_CREAT, mode);
    if (descriptor < 0)
    {
        return false;
    }
    const bool emptied = isNew || ftruncate(descriptor, 0) == 0;
    const bool hidden = SetHiddenAttribute(descriptor) == HideResult::Hidden;
    return close(descriptor) == 0 && emptied && hidden;
}

bool MakeHidden(const std::string& path)
{
    const int descriptor = OpenPlainFile(path, O_RDONLY | O_APPEND, 0);
    if (descriptor < 0)
    {
        Log::Error("MakeHidden: Failed to open file - %s", path.c_str());
        return false;
    }
    const HideResult result = SetHiddenAttribute(descriptor);
    if (result == HideResult::NotRead)
    {
        Log::Error("MakeHidden: Failed to read FAT attributes - %s", path.c_str());
        close(descriptor);
        return false;
    }
    if (result == HideResult::NotWritten)
    {
        // "CheckHidden" and the level are what support people search for; both are deliberate.
        Log::Info("CheckHidden: Failed to write FAT attributes - %s", path.c_str());
    }
    if (close(descriptor) != 0)
    {
        Log::Error("CheckHidden: Failed to close file - %s", path.c_str());
        return false;
    }
    return result == HideResult::Hidden;
}

int RemoveRecActiveFile(const std::string& mediaPath)
{
    return RemoveFile(RecActivePath(mediaPath), "int RemoveRecActiveFile(std::__cxx11::string&)", "recActive");
}

int RemoveRecoveryFile(const std::string& mediaPath)
{
    return RemoveFile(RecoveryPath(mediaPath), "int RemoveRecoveryFile(std::__cxx11::string&)", "recovery");
}

std::filesystem::file_status FsStatus(const std::string& path, std::error_code& error)
{
    if (path.size() >= PATH_MAX)
    {
        error = std::make_error_code(std::errc::filename_too_long);
        return {};
    }
    const auto status = std::filesystem::status(path, error);
    if (std::filesystem::status_known(status))
    {
        error.clear(); // that nothing is there is no error
    }
    return status;
}

bool TryFsExists(const std::string& path)
{
    std::error_code error;
    const bool exists = std::filesystem::exists(FsStatus(path, error));
    if (error)
    {
        Log::Error("TryFsExists - Filesystem error checking for existence of %s: %s.\n", path.c_str(),
                   error.message().c_str());
        return false;
    }
    return exists;
}

bool IsFat(const std::string& path)
{
    struct statfs64 status
    {};
    return statfs64(path.c_str(), &status) == 0 && status.f_type == MSDOS_SUPER_MAGIC;
}

} // namespace ControllerDaemon
