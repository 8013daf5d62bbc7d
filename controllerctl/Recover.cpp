#include "capture/MarkerFiles.h"
#include "clients/jobs/JobsManager.h"
#include "controllerctl/Leftovers.h"
#include "controllerctl/Verb.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using Kind = Leftover::Kind;
using libjobsdaemon::JobsManager;
using std::string;

/// How a kind of leftover is told. What is not mended here is left to the operator, whose page says how.
struct LeftoverWords
{
    Kind kind;
    std::optional<bool> inJob; ///< whether there is an item; nothing where the words are the same
    const char* what;          ///< in JSON
    const char* found;         ///< what is the matter
    const char* todo;
    const char* done; ///< null for what is not mended here
};

constexpr std::array allWords{
    LeftoverWords{Kind::Stopped, std::nullopt, "stopped", "is not being recorded, but marked so",
                  "its sizes are to be brought up to date, its marker to be removed",
                  "its sizes have been brought up to date, its marker has been removed"},
    LeftoverWords{Kind::NeverRecorded, true, "neverRecorded", "was never recorded",
                  "its item is to be taken out of the job, its markers to be removed",
                  "its item was taken out of the job, its markers were removed"},
    LeftoverWords{Kind::NeverRecorded, false, "neverRecorded", "was never recorded", "its markers are to be removed",
                  "its markers were removed"},
    LeftoverWords{Kind::FileMissing, std::nullopt, "fileMissing", "is in the job, but there is no such file",
                  "for you: delete it in the job, unless somebody has moved the file", nullptr},
    LeftoverWords{Kind::BrokenOff, true, "brokenOff", "was broken off, and the video daemon left what may mend it",
                  "for you: see whether it plays; its markers stay", nullptr},
    LeftoverWords{Kind::BrokenOff, false, "brokenOff",
                  "was broken off, the video daemon left what may mend it, and it is in no job",
                  "for you: see whether it plays, then enter it into the job; its markers stay", nullptr},
    LeftoverWords{Kind::FilmInNoJob, std::nullopt, "filmInNoJob", "is in no job",
                  "for you: keep a copy, or enter it into the job", nullptr},
    LeftoverWords{Kind::PictureInNoJob, std::nullopt, "pictureInNoJob", "is in no job",
                  "for you: keep a copy, or enter it into the job", nullptr},
    LeftoverWords{Kind::OtherJob, std::nullopt, "otherJob",
                  "is not being recorded, but marked so, in a job that is not open",
                  "for you: open that job and do this again", nullptr},
};

const LeftoverWords& WordsOf(const Leftover& leftover)
{
    return *std::find_if(allWords.begin(), allWords.end(), [&](const LeftoverWords& words) {
        return words.kind == leftover.kind &&
               words.inJob.value_or(!leftover.mediaId.empty()) != leftover.mediaId.empty();
    });
}

/// What the jobs manager said to an order; empty when it did as it was told.
string Complaint(int32_t result, int32_t code)
{
    if (result < 0)
    {
        return std::strerror(-result);
    }
    return code == 0 ? "" : JobsManager::ErrorText(code);
}

/// Takes an item out of the current job, in which it is; what went wrong, or nothing.
string DeleteItem(const string& mediaId)
{
    string device;
    string job;
    int32_t code = 0;
    int32_t result = JobsManager::GetCurrentJobDeviceID(device);
    result = result < 0 ? result : JobsManager::GetCurrentJobID(job);
    result = result < 0 ? result : JobsManager::DeleteMediaItem(device, job, mediaId, code);
    return Complaint(result, code);
}

/// The order of the steps has what is left found again when this is cut off as well.
string RemoveMarkers(const Leftover& leftover)
{
    const bool failed = (leftover.emptyRecovery && ControllerDaemon::RemoveRecoveryFile(leftover.path) != 0) ||
                        ControllerDaemon::RemoveRecActiveFile(leftover.path) != 0;
    return failed ? "its markers cannot be removed" : "";
}

/// Mends one leftover; what went wrong, or nothing. Between the look and this, somebody may have gone on with it.
string Mend(const Leftover& leftover, const std::vector<string>& unsized)
{
    std::vector<string> running;
    if (const Obstacle obstacle = FindRunning(running))
    {
        return obstacle->messages.front();
    }
    if (IsAmong(running, leftover.path))
    {
        return "it is being recorded now";
    }
    if (std::find(unsized.begin(), unsized.end(), leftover.path) != unsized.end())
    {
        return "its marker stays, since its sizes are not up to date";
    }
    if (leftover.kind == Kind::NeverRecorded)
    {
        std::error_code error;
        const auto status = std::filesystem::symlink_status(leftover.path, error);
        if (status.type() != std::filesystem::file_type::not_found)
        {
            return "it has come";
        }
        string complaint = leftover.mediaId.empty() ? "" : DeleteItem(leftover.mediaId);
        if (!complaint.empty())
        {
            return complaint;
        }
    }
    return RemoveMarkers(leftover);
}

/// A mend that failed makes the whole fail, and the others are made nevertheless.
void AddFailure(Answer& whole, const string& path, const string& complaint)
{
    whole.status = ExitStatus::Refused;
    whole.messages.push_back(path + ": " + complaint);
    whole.fields["code"] = nullptr;
    whole.fields["message"] = whole.messages.back();
}

/// Nobody tells the sizes that an item has, so those of all films are read again. The films for which that failed.
std::vector<string> UpdateSizes(const Leftovers& leftovers, Answer& whole)
{
    std::vector<string> failed;
    for (const string& film : leftovers.films)
    {
        int32_t code = 0;
        const int32_t result = JobsManager::UpdateMediaFileSizes(film, code);
        const string complaint = Complaint(result, code);
        if (!complaint.empty())
        {
            failed.push_back(film);
            AddFailure(whole, film, complaint);
        }
    }
    whole.fields["sizes"] = leftovers.films.size() - failed.size();
    return failed;
}

void AddLine(Answer& whole, const string& path, const string& line)
{
    whole.text += (whole.text.empty() ? "" : "\n") + path + ": " + line;
}

void TellFound(Answer& whole, const Leftover& leftover, bool mended)
{
    const LeftoverWords& words = WordsOf(leftover);
    const Json mediaId = leftover.mediaId.empty() ? Json() : Json(leftover.mediaId);
    whole.fields["found"].push_back(
        {{"what", words.what}, {"path", leftover.path}, {"mediaId", mediaId}, {"mended", mended}});
    AddLine(whole, leftover.path, mended ? words.done : string(words.found) + "; " + words.todo);
}

/// Files are those of this machine: over a bus of another one they would be mistaken for the unit's.
bool IsOnTheUnit()
{
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    return address == nullptr || std::string_view(address).starts_with("unix:");
}

Answer Recover(const Arguments& arguments)
{
    if (!IsOnTheUnit())
    {
        return Failed(ExitStatus::Usage, "recover: it looks at files, so it is to be run on the unit itself");
    }
    Leftovers leftovers;
    if (const Obstacle obstacle = FindLeftovers(leftovers))
    {
        return Failed(obstacle->status, obstacle->messages.front() + "; nothing was touched");
    }
    const bool apply = arguments.at("apply").get<bool>();
    Answer whole{.fields = {{"applied", apply}, {"found", Json::array()}, {"sizes", 0}, {"running", leftovers.running}},
                 .messages = leftovers.messages};
    const std::vector<string> unsized = apply ? UpdateSizes(leftovers, whole) : std::vector<string>();
    for (const Leftover& leftover : leftovers.found)
    {
        const bool mendable = apply && WordsOf(leftover).done != nullptr;
        const string complaint = mendable ? Mend(leftover, unsized) : "";
        if (!complaint.empty())
        {
            AddFailure(whole, leftover.path, complaint);
        }
        TellFound(whole, leftover, mendable && complaint.empty());
    }
    if (leftovers.found.empty())
    {
        whole.messages.emplace_back("nothing was left");
    }
    return whole;
}

} // namespace

Verbs RecoverVerbs()
{
    return {
        {"recover",
         "List what a crash or a pulled card has left in the current job",
         {{.name = "--apply",
           .about = "Mend it; nothing that holds a picture or a film is removed",
           .type = Type::Flag}},
         &Recover,
         true},
    };
}

} // namespace ControllerCtl
