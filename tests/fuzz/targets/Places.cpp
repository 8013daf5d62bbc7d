/// Texts and numbers that name a marker, a zone, a time or a remote unit.

#include "capture/MarkerFiles.h"
#include "clients/hardware/OpenUserRemote.h"
#include "clients/hardware/RemoteBus.h"
#include "tests/fuzz/targets/Input.h"
#include "time/BrokenDownTime.h"
#include "time/TimezoneCatalogue.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

namespace
{

using namespace ControllerDaemon;

/// A folder that ends with the program, and a file outside of it that nobody may touch.
class Folder
{
  public:
    Folder()
    {
        path_ = (std::filesystem::temp_directory_path() / "ccu-fuzz-XXXXXX").string();
        Require(mkdtemp(path_.data()) != nullptr, "a folder");
        std::filesystem::create_directory(Media());
        std::ofstream(Outside()) << "untouched";
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    Folder(Folder&&) = delete;
    Folder& operator=(Folder&&) = delete;

    [[nodiscard]] std::string Media() const { return path_ + "/media"; }
    [[nodiscard]] std::string Outside() const { return path_ + "/outside"; }

  private:
    std::string path_;
};

/// What may stand where a marker is to be.
void Put(size_t kind, const std::string& path, const std::string& outside)
{
    switch (kind)
    {
    case 1:
        std::ofstream(path) << "old";
        break;
    case 2:
        (void)!symlink(outside.c_str(), path.c_str());
        break;
    case 3:
        (void)mkfifo(path.c_str(), S_IRUSR | S_IWUSR);
        break;
    case 4:
        (void)mkdir(path.c_str(), S_IRWXU);
        break;
    default:
        break;
    }
}

void TryMarkers(Input& input)
{
    static const Folder folder;
    const std::string raw = input.TakeText(255);
    Ignore(RecActivePath(raw));
    Ignore(RecoveryPath(raw));
    std::error_code error;
    Ignore(FsStatus(raw, error));
    std::string name = raw.substr(0, raw.find('\0'));
    std::replace(name.begin(), name.end(), '/', '_'); // what is made stays in the folder
    const std::string media = folder.Media() + "/" + name;
    const std::string marker = RecActivePath(media);
    Require(std::filesystem::path(marker).parent_path() == folder.Media() || name.empty(),
            "a marker is beside its file");
    const size_t kind = input.TakeBelow(5);
    Put(kind, marker, folder.Outside());
    CreateHiddenFile(marker, input.TakeFlag());
    MakeHidden(marker);
    Ignore(TryFsExists(marker));
    Require(std::filesystem::file_size(folder.Outside()) == 9, "a link's target is left alone");
    const bool wasThere = std::filesystem::exists(std::filesystem::symlink_status(marker, error)) && !error;
    Require(kind == 0 || wasThere || error, "what is no file stays");
    Require(RemoveRecActiveFile(media) == 0 || error || name.size() > 200, "a marker can be removed");
    Require(std::filesystem::exists(folder.Outside()), "a link's target stays");
    std::filesystem::remove_all(folder.Media());
    std::filesystem::create_directory(folder.Media());
}

void TryZones(Input& input)
{
    const std::string text = input.TakeText(255);
    Require(text.ends_with(BareName(text)), "a bare name is a name's end");
    Require(IsDst(text) == (text.find("DST") != std::string::npos), "daylight saving is in the name");
    Ignore(IsTimezoneInstalled(text));
    const std::string nearest = GetNearestTimezone(input.Take<double>(), input.Take<double>());
    const std::string fromOffset = GetTimezoneFromUTC(input.Take<int32_t>(), input.TakeFlag());
    Require(IsTimezoneInstalled(nearest) && nearest.starts_with(standardPrefix), "there is a nearest zone");
    Require(IsTimezoneInstalled(fromOffset) && fromOffset.starts_with(standardPrefix), "there is a zone of an offset");
}

void TryTimes(Input& input)
{
    const BrokenDownTime fields{input.Take<int32_t>(), input.Take<int32_t>(), input.Take<int32_t>(),
                                input.Take<int32_t>(), input.Take<int32_t>(), input.Take<int32_t>(),
                                input.TakeFlag()};
    Ignore(ToSeconds(fields, true));
    Ignore(ToSeconds(fields, false));
    const auto moment = static_cast<time_t>(input.Take<int64_t>());
    Ignore(BreakDown(moment, true, false));
    if (const auto there = BreakDown(moment, false, false))
    {
        const auto back = ToSeconds(*there, false);
        Require(back.has_value() && *back == moment, "UTC goes there and back");
    }
    const int32_t wire = ToWireSeconds(moment);
    Require(wire == moment || wire == std::numeric_limits<int32_t>::max() ||
                wire == std::numeric_limits<int32_t>::min(),
            "a moment travels as it is or as the last that can");
    const auto seconds = input.Take<double>();
    Require(!std::isnan(seconds) || WholeSeconds(seconds) == 0, "no number is 0");
    Ignore(FromUtcFields(moment));
    Require(FromLocalFields(wire) == wire, "local fields are the moment itself");
}

void TryRemotes(Input& input)
{
    const std::string ip = input.TakeText();
    const std::string address = input.TakeText(255);
    const bool isIp = Halvexd::IsIpLiteral(ip);
    const bool isAddress = Halvexd::IsBusAddress(address);
    Require(!isIp || ip.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos, "an IP is a literal");
    Require(!isAddress || (address.find(';') == std::string::npos && !address.starts_with("unixexec:")),
            "an address is one, and runs nothing");
    if (isIp && isAddress)
    {
        const std::string remote = Halvexd::RemoteBusAddress(ip, address);
        Require(remote.find('\0') == std::string::npos && remote.find(';') == std::string::npos, "it stays one");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // There is no timedated to be asked, on the machine's bus least of all, and local time is not UTC.
    static const bool isAlone =
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/dev/null/bus", 1) == 0 && setenv("TZ", "XYZ-5:30", 1) == 0;
    Require(isAlone, "a bus that is not there");
    Input input(data, size);
    switch (input.TakeBelow(4))
    {
    case 0:
        TryMarkers(input);
        break;
    case 1:
        TryZones(input);
        break;
    case 2:
        TryTimes(input);
        break;
    default:
        TryRemotes(input);
    }
    return 0;
}
