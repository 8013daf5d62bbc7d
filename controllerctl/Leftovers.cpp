#include "controllerctl/Leftovers.h"

#include "capture/MarkerFiles.h"
#include "clients/jobs/JobsManager.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controller_client/ControllerFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>

namespace ControllerCtl
{
namespace
{

namespace fs = std::filesystem;
using ControllerDaemon::RecActivePath;
using ControllerDaemon::RecoveryPath;
using Kind = Leftover::Kind;
using libjobsdaemon::JobsManager;
using std::string;
using Storaged::StorageDaemonDbusHandler;
using Video = Videod::VideoDaemonDbusHandler;

constexpr std::string_view filmSuffix = ".mp4";
constexpr std::string_view pictureSuffix = ".jpeg";
/// How the files of one number are called, behind the number.
constexpr std::array<std::string_view, 4> suffixes{".mp4", "-photoTalk.mp4", "-autolog.mp4", ".jpeg"};
/// How many numbers before the next one are asked for when no file has them.
constexpr int numbersAsked = 1000;

constexpr int32_t jobsNoCurrentJob = 7;
constexpr int32_t jobsMediaNotFound = 10;
constexpr int32_t jobsEntryNotFound = 23;

/// Where the files of the current job are; empty without one.
struct Job
{
    string folder;
    string nextStem;
};

/// What there is of one recording or picture.
struct Media
{
    bool recActive = false;
    bool recovery = false;
    bool recoveryIsEmpty = true;
};

/// By path of the film or picture.
using Candidates = std::map<string, Media>;

/// `reason` is the bus's, where it is known.
Answer CannotKnow(int32_t result, const string& what, const string& reason = "")
{
    return Failed(result == -ETIMEDOUT ? ExitStatus::TimeOut : ExitStatus::Unreachable,
                  what + ": " + (reason.empty() ? std::strerror(-result) : reason));
}

Answer RefusedByJobs(int32_t code, const string& what)
{
    return Failed(ExitStatus::Refused, what + ": " + JobsManager::ErrorText(code));
}

bool Exists(const string& path)
{
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

bool IsEmptyFile(const string& path)
{
    std::error_code error;
    return fs::is_regular_file(fs::symlink_status(path, error)) && fs::file_size(path, error) == 0 && !error;
}

Obstacle AskForJob(Job& job)
{
    int32_t code = 0;
    const int32_t result = JobsManager::GetNewMediaPathComponents(code, job.folder, job.nextStem);
    if (result < 0)
    {
        return CannotKnow(result, "the jobs manager does not say where the job's files are");
    }
    if (code != 0 && code != jobsNoCurrentJob)
    {
        return RefusedByJobs(code, "the jobs manager does not say where the job's files are");
    }
    job = code == 0 ? job : Job{};
    return std::nullopt;
}

bool IsRecActive(const fs::path& path, const string& film) { return !film.empty() && path == RecActivePath(film); }

/// The candidates that a folder's files tell of.
Candidates CandidatesIn(const string& folder)
{
    Candidates found;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        const fs::path& path = entry->path();
        const string film = MarkedFilm(path);
        if (IsRecActive(path, film))
        {
            found[film].recActive = true;
        }
        else if (!film.empty())
        {
            found[film].recovery = true;
            found[film].recoveryIsEmpty = IsEmptyFile(path.string());
        }
        else if (path.extension() == filmSuffix || path.extension() == pictureSuffix)
        {
            found[path.string()];
        }
    }
    return found;
}

/// Whether a folder is there, with the storage that it is on.
bool IsMounted(const string& folder)
{
    string device;
    bool mounted = false;
    std::error_code error;
    return fs::is_directory(folder, error) && StorageDaemonDbusHandler::GetPathFromFilename(folder, device) >= 0 &&
           StorageDaemonDbusHandler::GetMounted(device, mounted) >= 0 && mounted;
}

/// Whether a stem is a number, which an int holds; there may be other ways of numbering.
bool IsNumber(const string& stem)
{
    constexpr size_t longest = 9;
    return !stem.empty() && stem.size() <= longest && stem.find_first_not_of("0123456789") == string::npos;
}

/// Adds the files that may have been announced to the jobs manager under a number that no file has: before its next
/// one, or right behind one that a file has, where somebody has numbered by hand.
void AddMissing(const Job& job, Candidates& candidates)
{
    const string& next = job.nextStem;
    if (!IsNumber(next))
    {
        return;
    }
    std::set<int> taken;
    for (const auto& candidate : candidates)
    {
        const string stem = fs::path(candidate.first).filename().string().substr(0, next.size());
        if (IsNumber(stem))
        {
            taken.insert(std::stoi(stem));
        }
    }
    std::set<int> missing;
    const int end = std::stoi(next);
    for (int number = std::max(1, end - numbersAsked); number < end; ++number)
    {
        missing.insert(number);
    }
    std::for_each(taken.begin(), taken.end(), [&](int number) { missing.insert(number + 1); });
    for (const int number : missing)
    {
        const string digits = std::to_string(number);
        if (taken.contains(number) || digits.size() > next.size())
        {
            continue;
        }
        const string stem = string(next.size() - digits.size(), '0') + digits;
        for (const std::string_view suffix : suffixes)
        {
            candidates[job.folder + "/" + stem + string(suffix)];
        }
    }
}

/// Asks for the item of a file; `mediaId` stays empty without one.
Obstacle AskForItem(const string& path, string& mediaId)
{
    int32_t code = 0;
    const int32_t result = JobsManager::GetMediaID(path, code, mediaId);
    if (result < 0)
    {
        return CannotKnow(result, "the jobs manager does not say whether " + path + " is in the job");
    }
    const bool none = code == jobsMediaNotFound || code == jobsEntryNotFound;
    if (code != 0 && !none)
    {
        return RefusedByJobs(code, "the jobs manager does not say whether " + path + " is in the job");
    }
    mediaId = none ? "" : mediaId;
    return std::nullopt;
}

string PictureOf(const string& film) { return fs::path(film).replace_extension(pictureSuffix).string(); }
string FilmBeside(const string& picture) { return fs::path(picture).replace_extension(filmSuffix).string(); }

/// What is left of a film that is not being recorded; nothing when all is well.
std::optional<Kind> JudgeFilm(const string& path, const Media& media, bool inJob)
{
    const bool there = Exists(path);
    const bool marked = media.recActive || media.recovery;
    if (media.recovery && !media.recoveryIsEmpty)
    {
        return Kind::BrokenOff;
    }
    if (there && !inJob)
    {
        return Kind::FilmInNoJob;
    }
    if (there)
    {
        return marked ? std::optional(Kind::Stopped) : std::nullopt;
    }
    if (inJob && (!media.recovery || Exists(PictureOf(path))))
    {
        return Kind::FileMissing; // a film that was closed has no recovery file
    }
    return marked ? std::optional(Kind::NeverRecorded) : std::nullopt;
}

/// The same of a picture that goes with no film.
std::optional<Kind> JudgePicture(const string& path, bool inJob)
{
    const bool there = Exists(path);
    if (there == inJob)
    {
        return std::nullopt;
    }
    return there ? Kind::PictureInNoJob : Kind::FileMissing;
}

/// Looks at one candidate.
Obstacle Judge(const string& path, const Media& media, Leftovers& leftovers)
{
    const bool isFilm = path.ends_with(filmSuffix);
    if (IsAmong(leftovers.running, isFilm ? path : FilmBeside(path)) || (!isFilm && Exists(FilmBeside(path))))
    {
        return std::nullopt;
    }
    string mediaId;
    string itemOfFilm;
    Obstacle obstacle = AskForItem(path, mediaId);
    if (!obstacle && !isFilm)
    {
        obstacle = AskForItem(FilmBeside(path), itemOfFilm); // whose picture it is then
    }
    if (obstacle || !itemOfFilm.empty())
    {
        return obstacle;
    }
    const bool inJob = !mediaId.empty();
    const std::optional<Kind> kind = isFilm ? JudgeFilm(path, media, inJob) : JudgePicture(path, inJob);
    if (kind)
    {
        leftovers.found.push_back({*kind, path, mediaId, media.recovery && media.recoveryIsEmpty});
    }
    if (isFilm && inJob && Exists(path))
    {
        leftovers.films.push_back(path);
    }
    return std::nullopt;
}

/// Markers below a mount point that are not the current job's.
void LookBelow(const string& mountPoint, const string& folder, Leftovers& leftovers)
{
    std::error_code error;
    constexpr auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(mountPoint, options, error), end; !error && entry != end;
         entry.increment(error))
    {
        const string film = MarkedFilm(entry->path());
        std::error_code ignored; // without a job there is no folder, and so none of its markers
        if (IsRecActive(entry->path(), film) && !fs::equivalent(entry->path().parent_path(), folder, ignored) &&
            !IsAmong(leftovers.running, film))
        {
            leftovers.found.push_back({Kind::OtherJob, film});
        }
    }
    if (error)
    {
        leftovers.messages.push_back(mountPoint + " could not be searched: " + error.message());
    }
}

void LookElsewhere(const string& folder, Leftovers& leftovers)
{
    std::vector<string> devices;
    if (StorageDaemonDbusHandler::GetStorageObjectPaths(devices) < 0)
    {
        leftovers.messages.emplace_back("the storage daemon cannot be asked; other jobs were not looked at");
        return;
    }
    for (const string& device : devices)
    {
        string mountPoint;
        if (StorageDaemonDbusHandler::GetMountPoint(device, mountPoint) < 0)
        {
            leftovers.messages.push_back(device + " could not be asked where it is mounted");
        }
        else if (!mountPoint.empty())
        {
            LookBelow(mountPoint, folder, leftovers);
        }
    }
}

} // namespace

string MarkedFilm(const fs::path& path)
{
    const string name = path.filename().string();
    const size_t end = name.rfind('-');
    if (!name.starts_with('.') || end == string::npos)
    {
        return "";
    }
    const string film = (path.parent_path() / name.substr(1, end - 1)).string() + string(filmSuffix);
    return path == RecActivePath(film) || path == RecoveryPath(film) ? film : "";
}

bool IsAmong(const std::vector<string>& running, const string& path)
{
    return std::any_of(running.begin(), running.end(), [&](const string& file) {
        std::error_code error; // that one of them is not there, so they are not the same
        return file == path || fs::equivalent(file, path, error);
    });
}

Obstacle FindRunning(std::vector<string>& running)
{
    using Failure = Controllerd::ControllerFailure;
    std::vector<string> sounds; // any answer will do: it comes when the controller is done with what came before
    if (Controllerd::ControllerDaemonDbusHandler::GetAudioFiles(sounds) < 0 &&
        Failure::Last().kind == Failure::Kind::Silent)
    {
        return Failed();
    }
    constexpr std::array kinds{std::pair{&Video::GetRecordingState, &Video::GetRecordingFilename},
                               std::pair{&Video::GetPhotoTalkState, &Video::GetPhotoTalkFilename},
                               std::pair{&Video::GetAutoLogState, &Video::GetAutoLogFilename}};
    running.clear();
    for (const auto& [getState, getFile] : kinds)
    {
        int32_t state = 0;
        string file;
        string reason;
        int32_t result = getState(state, &reason);
        result = result >= 0 && state != 0 ? getFile(file, &reason) : result;
        if (result < 0 || (state != 0 && file.empty()))
        {
            return CannotKnow(result < 0 ? result : -ENODATA, "the video daemon does not say what it records", reason);
        }
        if (state != 0)
        {
            running.push_back(file);
        }
    }
    return std::nullopt;
}

Obstacle FindLeftovers(Leftovers& leftovers)
{
    Job job;
    if (Obstacle obstacle = AskForJob(job))
    {
        return obstacle;
    }
    // Files first, then who is at work: what is begun later is not among the files.
    Candidates candidates = job.folder.empty() ? Candidates() : CandidatesIn(job.folder);
    if (!job.folder.empty() && IsMounted(job.folder))
    {
        AddMissing(job, candidates);
    }
    if (Obstacle obstacle = FindRunning(leftovers.running))
    {
        return obstacle;
    }
    for (const auto& [path, media] : candidates)
    {
        if (Obstacle obstacle = Judge(path, media, leftovers))
        {
            return obstacle;
        }
    }
    LookElsewhere(job.folder, leftovers);
    const auto byPath = [](const Leftover& left, const Leftover& right) { return left.path < right.path; };
    std::stable_sort(leftovers.found.begin(), leftovers.found.end(), byPath);
    return std::nullopt;
}

} // namespace ControllerCtl
