// Devices and tools: lines, sound, display, keypad, receiver. Nothing is switched, and no line is taken.
#include "capture/PixelBlend.h"
#include "capture/ScreenNames.h"
#include "controllerctl/Doctor.h"
#include "controllerctl/Gpsd.h"
#include "controllerctl/Tool.h"
#include "dbus_helper/Descriptor.h"
#include "device/DeviceNames.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <linux/gpio.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace ControllerCtl
{
namespace
{

namespace fs = std::filesystem;
using namespace ControllerDaemon;
using DbusHelper::Descriptor;
using std::string;

Descriptor Open(const string& path) { return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); }

string Reason() { return std::strerror(errno); }

bool IsMissing() { return errno == ENOENT || errno == ENODEV || errno == ENXIO; }

// Lines ---------------------------------------------------------------------------------------------------------------

constexpr const char* silentLines = "microphone and speaker cannot be switched";

Finding LineFinding(int chip, const char* what, unsigned int offset)
{
    gpioline_info line{};
    line.line_offset = offset;
    const string check = string(what) + " line";
    const string name = string(chipName) + " line " + std::to_string(offset);
    if (ioctl(chip, GPIO_GET_LINEINFO_IOCTL, &line) != 0)
    {
        return {check, Verdict::Missing, name + ": " + Reason(), silentLines, "check that the chip is the unit's own"};
    }
    const bool isTaken = (line.flags & GPIOLINE_FLAG_KERNEL) != 0;
    const string owner = static_cast<const char*>(line.consumer);
    if (!isTaken)
    {
        return {check, Verdict::Wrong, name + " belongs to nobody", silentLines,
                "see whether the controller runs; it takes the line at its start"};
    }
    if (owner != "controller")
    {
        return {check, Verdict::Wrong, name + " belongs to \"" + owner + "\"", silentLines,
                "end what has it, then systemctl restart controllerd"};
    }
    return {check, Verdict::Ok, name + " is the controller's"};
}

void FindLines(Findings& findings)
{
    const string path = string("/dev/") + chipName;
    const Descriptor chip = Open(path);
    if (chip.Get() < 0)
    {
        const Verdict verdict = IsMissing() ? Verdict::Missing : Verdict::Wrong;
        findings.push_back({"gpiochip", verdict, path + ": " + Reason(), silentLines,
                            "check kernel and udev's rule 60-controllerd.rules; the caller must be in the group gpio"});
        return;
    }
    findings.push_back({"gpiochip", Verdict::Ok, path + " is there"});
    findings.push_back(LineFinding(chip.Get(), "microphone", micOffset));
    findings.push_back(LineFinding(chip.Get(), "speaker", spkrOffset));
}

// Sound ---------------------------------------------------------------------------------------------------------------

Finding ControlFinding(const char* control, const Patience& patience)
{
    const string check = string("mixer control ") + control;
    const ToolEnd end = RunTool({"amixer", "get", control}, patience);
    constexpr const char* noVolume = "the volume cannot be set, or sounds are too low";
    if (!end.hasStarted)
    {
        return {check, Verdict::Missing, "there is no amixer", noVolume, "install alsa-utils"};
    }
    if (!end.isInTime)
    {
        return {check, Verdict::Wrong, "amixer hangs", "the controller hangs with it, and answers nobody",
                "see which process holds the sound card"};
    }
    if (end.status != 0 || end.output.find("Front Left:") == string::npos)
    {
        return {check, Verdict::Missing, "amixer knows no such control", noVolume,
                "check the sound card: amixer scontrols"};
    }
    return {check, Verdict::Ok, "it is there"};
}

bool IsOnPath(const char* program)
{
    const char* path = std::getenv("PATH");
    string rest = path == nullptr ? "/usr/bin:/bin" : path;
    while (!rest.empty())
    {
        const size_t end = rest.find(':');
        const string folder = rest.substr(0, end);
        if (!folder.empty() && access((folder + "/" + program).c_str(), X_OK) == 0)
        {
            return true;
        }
        rest = end == string::npos ? "" : rest.substr(end + 1);
    }
    return false;
}

void FindSounds(Findings& findings)
{
    std::error_code error;
    size_t count = 0;
    fs::directory_iterator entry(soundFolder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
    {
        count += entry->path().extension() == soundExtension ? 1 : 0;
    }
    if (count == 0)
    {
        findings.push_back({"sounds", Verdict::Missing, string("there is none in ") + soundFolder,
                            "the unit can play no sounds",
                            "install the image's sounds, then systemctl restart "
                            "controllerd"});
        return;
    }
    findings.push_back({"sounds", Verdict::Ok, std::to_string(count) + " in " + soundFolder});
}

// Display -------------------------------------------------------------------------------------------------------------

/// Looks at a layer; `screen` is what it says of itself where it is well.
Finding LayerFinding(const char* device, size_t pixelBytes, std::optional<fb_var_screeninfo>& screen)
{
    const string check = string("framebuffer ") + device;
    constexpr const char* none = "no screenshots";
    const Descriptor layer = Open(device);
    fb_var_screeninfo read{};
    if (layer.Get() < 0)
    {
        const Verdict verdict = IsMissing() ? Verdict::Missing : Verdict::Wrong;
        return {check, verdict, Reason(), none, "check the display's driver; the caller must be in the group video"};
    }
    if (ioctl(layer.Get(), FBIOGET_VSCREENINFO, &read) != 0)
    {
        return {check, Verdict::Wrong, "it is no framebuffer: " + Reason(), none, "check the display's driver"};
    }
    const string format = std::to_string(read.xres) + " x " + std::to_string(read.yres) + " pixels of " +
                          std::to_string(read.bits_per_pixel) + " bits";
    constexpr size_t bits = 8;
    if (read.bits_per_pixel != pixelBytes * bits)
    {
        return {check, Verdict::Wrong, format + ", not of " + std::to_string(pixelBytes * bits), none,
                "set the format in the display's device tree"};
    }
    screen = read;
    return {check, Verdict::Ok, format};
}

void FindLayers(Findings& findings)
{
    std::optional<fb_var_screeninfo> video;
    std::optional<fb_var_screeninfo> overlay;
    findings.push_back(LayerFinding(videoDevice, videoPixelBytes, video));
    findings.push_back(LayerFinding(overlayDevice, overlayPixelBytes, overlay));
    if (video && overlay && (video->xres != overlay->xres || video->yres != overlay->yres))
    {
        findings.push_back({"framebuffers", Verdict::Wrong, "they are not of one size", "no screenshots",
                            "set one size in the display's device tree"});
    }
}

// Keypad and receiver -------------------------------------------------------------------------------------------------

bool HasKeys(int descriptor)
{
    std::array<unsigned char, KEY_MAX / 8 + 1> keys{};
    constexpr int firstKeys = KEY_ESC;
    return ioctl(descriptor, EVIOCGBIT(EV_KEY, keys.size()), keys.data()) >= 0 &&
           (keys.at(firstKeys / 8) != 0 || keys.at(firstKeys / 8 + 1) != 0);
}

void FindKeypad(Findings& findings)
{
    size_t refused = 0;
    size_t keypads = 0;
    std::error_code error;
    fs::directory_iterator entry("/dev/input", error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
    {
        if (!entry->path().filename().string().starts_with("event"))
        {
            continue;
        }
        const Descriptor device = Open(entry->path().string());
        refused += device.Get() < 0 ? 1 : 0;
        keypads += device.Get() >= 0 && HasKeys(device.Get()) ? 1 : 0;
    }
    constexpr const char* noBeeps = "keys do not beep";
    if (keypads > 0)
    {
        findings.push_back(
            {"keypad", Verdict::Ok, std::to_string(keypads) + (keypads == 1 ? " is" : " are") + " there"});
    }
    else if (refused > 0)
    {
        findings.push_back({"keypad", Verdict::Wrong, "no input device can be opened", noBeeps,
                            "the controller's user, and the caller, must be in the group input"});
    }
    else
    {
        findings.push_back(
            {"keypad", Verdict::Missing, "no input device has keys", noBeeps, "check the keypad's cable and driver"});
    }
}

void FindReceiver(Findings& findings)
{
    if (IsGpsdThere())
    {
        findings.push_back({"gpsd", Verdict::Ok, "it has its memory for the controller"});
        return;
    }
    findings.push_back({"gpsd", Verdict::Missing, "it shares no memory", "clock and zone cannot be set by GPS",
                        "enable gpsd.service, with GPSD_OPTIONS=\"-n\" and the receiver in /etc/default/gpsd"});
}

} // namespace

void ExamineSound(const Patient& patient, Findings& findings)
{
    for (const char* control : {speakerControl, dacControl, amplifierControl})
    {
        findings.push_back(ControlFinding(control, Patience(patient.seconds)));
    }
    findings.push_back(IsOnPath("aplay") ? Finding{"player", Verdict::Ok, "aplay is there"}
                                         : Finding{"player", Verdict::Missing, "there is no aplay",
                                                   "the unit can play no sounds", "install alsa-utils"});
    FindSounds(findings);
}

void ExamineDevices(const Patient& /*patient*/, Findings& findings)
{
    FindLines(findings);
    FindLayers(findings);
    FindKeypad(findings);
    FindReceiver(findings);
}

} // namespace ControllerCtl
