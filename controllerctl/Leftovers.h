#pragma once

#include "controllerctl/Answer.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ControllerCtl
{

/// Something that a crash or a pulled card has left in the current job.
struct Leftover
{
    enum class Kind : unsigned char
    {
        Stopped,        ///< a film of the job that is not being recorded, but marked so
        NeverRecorded,  ///< markers of a start that was cut off: without a film, with an item or not
        FileMissing,    ///< an item without its film or picture, which somebody may have moved
        BrokenOff,      ///< a recovery file that the video daemon has written to
        FilmInNoJob,    ///< with or without markers
        PictureInNoJob, ///< that belongs to no film
        OtherJob,       ///< a marker outside of the current job's folder
    };

    Kind kind = Kind::Stopped;
    std::string path;           ///< of the film or picture, whether it is there or not
    std::string mediaId = {};   ///< of its item; empty without one
    bool emptyRecovery = false; ///< there is a recovery file, and nothing in it
};

struct Leftovers
{
    std::vector<Leftover> found;       ///< in the order of their paths
    std::vector<std::string> running;  ///< the files that are being recorded
    std::vector<std::string> films;    ///< the job's films that have an item and are not being recorded
    std::vector<std::string> messages; ///< what could not be looked at
};

/// What keeps this program from knowing what is being recorded or what is in the job, as an answer; nothing when all is
/// known.
using Obstacle = std::optional<Answer>;

/// Looks for what was left, on the machine that the unit's files are on; changes nothing, but that the job's next file
/// may be numbered one higher. What the controller was in the middle of is waited for: it is no leftover.
[[nodiscard]] Obstacle FindLeftovers(Leftovers& leftovers);

/// Asks the controller to have done what it is doing, and the video daemon what it records.
[[nodiscard]] Obstacle FindRunning(std::vector<std::string>& running);

/// The film that a file is a marker of; empty for any other file.
[[nodiscard]] std::string MarkedFilm(const std::filesystem::path& path);

/// Whether a file is one of those that are being recorded, however they are spelled.
[[nodiscard]] bool IsAmong(const std::vector<std::string>& running, const std::string& path);

} // namespace ControllerCtl
