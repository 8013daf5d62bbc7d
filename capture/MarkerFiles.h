#pragma once

#include <filesystem>
#include <string>
#include <system_error>

/// The companions of a recording in progress: hidden files that stand beside it, so that a recording that was broken
/// off can be found and mended. Hidden by their dot, and on FAT storage by its hidden attribute as well.
namespace ControllerDaemon
{

/// FOLDER/.STEM-recActive and FOLDER/.STEM-recovery of a media file FOLDER/STEM.EXT; empty for an empty path. The stem
/// ends at the file name's last dot.
[[nodiscard]] std::string RecActivePath(const std::string& mediaPath);
[[nodiscard]] std::string RecoveryPath(const std::string& mediaPath);

/// Creates or truncates a file that only its owner can write (and execute, when `ownerExecute`), and sets its FAT
/// hidden attribute. False when the file could not be created, and also where the filesystem is not FAT: the file
/// stands then, hidden by its dot alone. A pipe, link, socket, device or folder at the path counts as a file that could
/// not be created; it is not opened, followed or changed, nor waited for.
bool CreateHiddenFile(const std::string& path, bool ownerExecute);

/// Sets the FAT hidden attribute of an existing file. False, and logged, when that fails, and for anything else than a
/// plain file, which is not opened.
bool MakeHidden(const std::string& path);

/// Removes the recActive marker of a media file, or what else stands under its name: a link, not its target; a folder
/// only when it is empty. A missing marker is no error. Non-zero, and logged, on failure.
int RemoveRecActiveFile(const std::string& mediaPath);

/// Removes the recovery file of a media file, on the same terms.
int RemoveRecoveryFile(const std::string& mediaPath);

/// What is at the path; `error` is set when that cannot be told. A text that is too long for any path is refused before
/// anything is made of it: taking megabytes apart as a path costs fifty times their size.
[[nodiscard]] std::filesystem::file_status FsStatus(const std::string& path, std::error_code& error);

/// Whether the path exists. False, and logged, when that cannot be told.
[[nodiscard]] bool TryFsExists(const std::string& path);

/// Whether the filesystem that holds the path is FAT. False when that cannot be told.
[[nodiscard]] bool IsFat(const std::string& path);

} // namespace ControllerDaemon
