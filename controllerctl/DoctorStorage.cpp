// Storage, and what recordings have left on it.
#include "controllerctl/Doctor.h"
#include "controllerctl/Leftovers.h"
#include "controllerctl/UnitLook.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace ControllerCtl
{
namespace
{

namespace fs = std::filesystem;
using std::string;

bool IsWritable(const string& folder)
{
    struct statvfs status
    {};
    return statvfs(folder.c_str(), &status) == 0 && (status.f_flag & ST_RDONLY) == 0 &&
           faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

Finding Judged(const StorageLook& device)
{
    const string check = "storage " + device.id;
    constexpr const char* unusable = "nothing can be recorded on it";
    if (!device.isMounted || device.mountPoint.empty())
    {
        return {check, Verdict::Missing, "it is not mounted", unusable,
                "have the storage daemon mount it, or pull it out"};
    }
    std::error_code error;
    if (!fs::is_directory(device.mountPoint, error))
    {
        return {check, Verdict::Wrong, "its mount point " + device.mountPoint + " is no folder", unusable,
                "unmount and mount it again"};
    }
    if (device.isReadOnly || !IsWritable(device.mountPoint))
    {
        return {check, Verdict::Wrong, "nothing can be written to " + device.mountPoint, unusable,
                "check the card's switch and file system, and who owns its folders"};
    }
    if (device.isBelowMinimum)
    {
        return {check, Verdict::Wrong, "it is full", unusable, "move or delete jobs"};
    }
    return {check, Verdict::Ok, "it is mounted at " + device.mountPoint + " and can be written to"};
}

/// A line of the kernel's table of mounts.
struct Mount
{
    string point;
    string type;
    string options;
};

/// A space in a mount point is written as an octal number.
string Unescaped(const string& text)
{
    constexpr size_t digits = 3;
    constexpr int octal = 8;
    string plain;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const bool isEscaped = text[i] == '\\' && i + digits < text.size();
        plain += isEscaped ? static_cast<char>(std::stoi(text.substr(i + 1, digits), nullptr, octal)) : text[i];
        i += isEscaped ? digits : 0;
    }
    return plain;
}

std::vector<Mount> FatMounts()
{
    std::vector<Mount> mounts;
    std::ifstream table("/proc/self/mountinfo");
    for (string line; std::getline(table, line);)
    {
        Mount mount;
        string skipped;
        const size_t middle = line.find(" - ");
        std::istringstream front(line.substr(0, middle));
        front >> skipped >> skipped >> skipped >> skipped >> mount.point;
        std::istringstream back(middle == string::npos ? "" : line.substr(middle + 3));
        back >> mount.type >> skipped >> mount.options;
        if (mount.type == "vfat" || mount.type == "msdos")
        {
            mount.point = Unescaped(mount.point);
            mounts.push_back(mount);
        }
    }
    return mounts;
}

bool HoldsRecordings(const string& point, const Patient& patient)
{
    constexpr std::array<std::string_view, 3> below{"/mnt/", "/media/", "/run/media/"};
    const auto& known = patient.mountPoints;
    return std::find(known.begin(), known.end(), point) != known.end() ||
           std::any_of(below.begin(), below.end(), [&](std::string_view folder) { return point.starts_with(folder); });
}

void FindFat(const Patient& patient, Findings& findings)
{
    size_t good = 0;
    for (const Mount& mount : FatMounts())
    {
        if (!HoldsRecordings(mount.point, patient))
        {
            continue;
        }
        const string user = "uid=" + std::to_string(patient.user);
        const string options = "," + mount.options + ",";
        // The kernel does not name the option where it is root's.
        const bool isOwn = options.find("," + user + ",") != string::npos ||
                           (patient.user == 0 && options.find(",uid=") == string::npos);
        if (isOwn)
        {
            ++good;
            continue;
        }
        findings.push_back({"FAT storage", Verdict::Wrong, mount.point + " is mounted without " + user,
                            "recordings work, but their hidden markers are seen by whoever looks at the stick",
                            "have it mounted with " + user});
    }
    if (findings.empty() || findings.back().check != "FAT storage")
    {
        findings.push_back(
            {"FAT storage", Verdict::Ok, good == 0 ? "there is none" : "it is mounted for the unit's user"});
    }
}

// Leftovers -----------------------------------------------------------------------------------------------------------

struct Markers
{
    std::vector<string> paths;
    bool isComplete = true;
};

/// Looks as deep as jobs have folders, and no longer than there is time: storage can be slow and full.
void Search(const string& folder, const Patient& patient, const Patience& patience, Markers& markers)
{
    constexpr int depth = 8;
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error))
    {
        if (patience.Left() == 0)
        {
            markers.isComplete = false;
            return;
        }
        const string film = MarkedFilm(entry->path());
        if (!film.empty() && !IsAmong(patient.recording, film))
        {
            markers.paths.push_back(entry->path().string());
        }
        if (entry.depth() >= depth)
        {
            entry.disable_recursion_pending();
        }
    }
}

/// Of the recordings that markers are left of, those that a job has an item of, but no file.
std::vector<string> ItemsWithoutFile(const Patient& patient, const std::vector<string>& markers)
{
    std::map<string, Reply<std::tuple<std::tuple<int32_t, string>>>> items;
    std::error_code error;
    Inquiry inquiry(patient.bus);
    for (const string& marker : markers)
    {
        const string media = MarkedFilm(marker);
        if (!fs::exists(media, error) && !items.contains(media))
        {
            inquiry.Call(libjobsdaemon::jobsDaemon, "GetMediaID", items[media], media);
        }
    }
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    std::vector<string> found;
    for (const auto& [media, item] : items)
    {
        if (item.Well() && std::get<0>(std::get<0>(item.value)) == 0)
        {
            found.push_back(media);
        }
    }
    return found;
}

/// A few of many.
string Some(const std::vector<string>& paths)
{
    constexpr size_t most = 3;
    string text;
    for (size_t i = 0; i < std::min(paths.size(), most); ++i)
    {
        text += (i == 0 ? "" : ", ") + paths[i];
    }
    return paths.size() > most ? text + " and " + std::to_string(paths.size() - most) + " more" : text;
}

void FindMarkers(const Patient& patient, Findings& findings)
{
    Markers markers;
    const Patience patience(patient.seconds);
    for (const string& folder : patient.mountPoints)
    {
        Search(folder, patient, patience, markers);
    }
    std::sort(markers.paths.begin(), markers.paths.end());
    const char* const more = markers.isComplete ? "" : "; not all of the storage was looked through";
    if (markers.paths.empty())
    {
        findings.push_back({"markers", Verdict::Ok, string("none is left of recordings") + more});
    }
    else
    {
        findings.push_back(
            {"markers", Verdict::Wrong, "left: " + Some(markers.paths) + more,
             "a recording was broken off, by a crash or a pulled card; it may be damaged, and its job "
             "may have its size wrong",
             "controllerctl recover lists it, and mends with --apply what needs nobody to judge; look at the film"});
    }
    const std::vector<string> items = ItemsWithoutFile(patient, markers.paths);
    if (items.empty())
    {
        findings.push_back({"items", Verdict::Ok, "none is left of recordings without a file"});
        return;
    }
    findings.push_back({"items", Verdict::Wrong, "a job has an item, but no file: " + Some(items),
                        "the job shows a recording that does not exist",
                        "controllerctl recover lists it; delete the item from the job unless its file was moved"});
}

} // namespace

void ExamineStorage(Patient& patient, Findings& findings)
{
    if (patient.bus == nullptr)
    {
        return;
    }
    UnitLook look;
    Inquiry inquiry(patient.bus);
    AskRecordings(inquiry, look);
    AskStorages(inquiry, look);
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    for (const RecordingLook& recording : look.recordings)
    {
        if (recording.file.Well() && !recording.file.value.empty())
        {
            patient.recording.push_back(recording.file.value);
        }
    }
    for (const StorageLook& device : look.Devices())
    {
        findings.push_back(Judged(device));
        if (findings.back().verdict == Verdict::Ok || device.isMounted)
        {
            patient.mountPoints.push_back(device.mountPoint);
        }
    }
    if (look.Devices().empty())
    {
        findings.push_back({"storage", Verdict::Missing, "the storage daemon knows of none", "nothing can be recorded",
                            "plug a card in; see the storage daemon above"});
    }
    FindFat(patient, findings);
    FindMarkers(patient, findings);
}

} // namespace ControllerCtl
