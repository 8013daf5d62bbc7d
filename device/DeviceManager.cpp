#include "device/DeviceManager.h"

#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "clients/settings/SettingsChanges.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"
#include "device/DeviceState.h"
#include "device/LedValues.h"
#include "interfaces/ControllerEndpoint.h"

#include <sigc++/functors/mem_fun.h>

#include <tuple>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::signature;
using DbusHelper::signatureOf;
using Halvexd::HalvexDaemonDbusHandler;
using Settingsd::SettingsDaemonDbusHandler;
using Settingsd::VisitChanges;
using Videod::VideoDaemonDbusHandler;

constexpr int pressed = 1;

using Setting = sdbus_utils::TypedPropertyMap::value_type;

/// Applies a changed setting if it is the one of this name and has the right type.
template <typename T, typename Operation>
void ApplyChange(const Setting& setting, const char* name, Operation apply)
{
    if (const T* value = sdbus_utils::ValueOf<T>(setting, name); value != nullptr)
    {
        apply(*value);
    }
}

/// What reading a setting says: on success with the value, on failure without.
struct DefaultWords
{
    const char* section;
    const char* key;
    const char* got;
    const char* failed;
};

/// Reads a setting and applies it; false when it cannot be read.
template <typename T, typename Apply>
bool ApplyDefault(const char* text, const DefaultWords& words, Apply apply)
{
    T value{};
    if (SettingsDaemonDbusHandler::GetSetting(words.section, words.key, value) < 0)
    {
        Log::Error("%s: Failed to get default %s", text, words.failed);
        return false;
    }
    Log::Info("%s: Got default %s: %d", text, words.got, static_cast<int>(value));
    apply(value);
    return true;
}

} // namespace

DeviceManager::State DeviceManager::state;

DeviceManager::DeviceManager(sd_event* event, const SettingsHandler& settings) : settings_(settings)
{
    if (state.sound.Init() < 0)
    {
        Log::Error("%s: Failed to initialize Sound Manager",
                   "ControllerDaemon::DeviceManager::DeviceManager(sd_event*, SettingsHandler)");
    }
    if (settings_ != nullptr)
    {
        settings_->SectionChanged("audio").connect(sigc::mem_fun(*this, &DeviceManager::AudioSettingsChanged));
        settings_->SectionChanged("sonde").connect(sigc::mem_fun(*this, &DeviceManager::SondeSettingsChanged));
        settings_->SectionChanged("keyBeep").connect(sigc::mem_fun(*this, &DeviceManager::KeyBeepSettingsChanged));
    }
    keyInput_.emplace(event).KeyChanged().connect(sigc::ptr_fun(&KeyPress));
}

void DeviceManager::SetBus(sd_bus* bus) { state.bus = bus; }

int32_t DeviceManager::SetDefaultSettings()
{
    constexpr const char* text = signatureOf<&DeviceManager::SetDefaultSettings>;
    bool all = true;
    all &= ApplyDefault<bool>(text, {"audio", "micEnabled", "Mic state", "Mic setting"},
                              [](bool enabled) { SetMicEnabled(enabled); });
    all &= ApplyDefault<bool>(text, {"audio", "speakerEnabled", "Speaker state", "Speaker setting"},
                              [](bool enabled) { SetSpkrEnabled(enabled); });
    all &= ApplyDefault<int32_t>(text, {"audio", "speakerVolume", "Speaker volume", "Speaker volume"},
                                 [](int32_t percent) { SetSpkrVolume(percent); });
    all &= ApplyDefault<bool>(text, {"sonde", "enabled", "Sonde state", "Sonde setting"},
                              [](bool enabled) { SwitchSonde(enabled); });
    all &= ReadBeepDefaults(text);
    return all ? 0 : -1;
}

bool DeviceManager::ReadBeepDefaults(const char* text)
{
    constexpr const char* section = "keyBeep";
    if (SettingsDaemonDbusHandler::GetSetting(section, "enabled", state.keypadBeepEnabled) < 0 ||
        SettingsDaemonDbusHandler::GetSetting(section, "duration", state.duration) < 0 ||
        SettingsDaemonDbusHandler::GetSetting(section, "period", state.period) < 0 ||
        SettingsDaemonDbusHandler::GetSetting(section, "beeps", state.beeps) < 0)
    {
        Log::Error("%s: Failed to get default beep settings for %s", text, section);
        return false;
    }
    Log::Info("%s: Got default keypad beep setting %d %u %u %u", text, state.keypadBeepEnabled ? 1 : 0, state.duration,
              state.period, state.beeps);
    return true;
}

int32_t DeviceManager::SetMicEnabled(bool enabled)
{
    const int32_t result = state.sound.SetMicEnabled(enabled);
    if (result < 0)
    {
        Log::Error("%s: %s", signature<int32_t(bool), "ControllerDaemon::DeviceManager::SetMicEnabled">, setMicFailed);
        return result;
    }
    HandleLED(micLed, enabled ? 1 : 0);
    std::ignore = VideoDaemonDbusHandler::SetSystemMicMute(!enabled);
    EmitPropertyChanged("MicEnabled");
    return result;
}

int32_t DeviceManager::SetSpkrEnabled(bool enabled)
{
    const int32_t result = state.sound.SetSpkrEnabled(enabled);
    if (result < 0)
    {
        Log::Error("%s: %s", signature<int32_t(bool), "ControllerDaemon::DeviceManager::SetSpkrEnabled">,
                   setSpkrFailed);
        return result;
    }
    EmitPropertyChanged("SpkrEnabled");
    return result;
}

int32_t DeviceManager::SetSpkrVolume(int percent)
{
    const int32_t result = SoundManager::SetSpkrVolume(percent);
    if (result < 0)
    {
        Log::Error("static int32_t ControllerDaemon::DeviceManager::SetSpkrVolume(int): %s", setVolumeFailed);
        return result;
    }
    EmitPropertyChanged("SpkrVolume");
    return result;
}

int32_t DeviceManager::SwitchSonde(bool enabled)
{
    const int32_t result = HalvexDaemonDbusHandler::SetCameraSonde(enabled);
    if (result >= 0)
    {
        HandleLED(sondeLed, enabled ? 1 : 0);
    }
    return result;
}

int32_t DeviceManager::EmitPropertyChanged(const std::string& name)
{
    return sd_bus_emit_properties_changed(state.bus, controllerEndpoint.path, controllerEndpoint.interface,
                                          name.c_str(), nullptr);
}

int32_t DeviceManager::HandleLED(int led, int value)
{
    const int32_t result = HalvexDaemonDbusHandler::SetLedState(static_cast<uint32_t>(led), SwitchLedValue(value));
    if (result < 0)
    {
        Log::Error("%s: Failed to set LED led=%d value=%d",
                   "static int32_t ControllerDaemon::DeviceManager::HandleLED(int, int)", led, value);
    }
    return result;
}

int32_t DeviceManager::CaptureLED(int led, int value)
{
    const int32_t result = HalvexDaemonDbusHandler::SetLedState(static_cast<uint32_t>(led), CaptureLedValue(value));
    if (result < 0)
    {
        Log::Error("%s: Failed to set the LED %d to value=%d",
                   "static int32_t ControllerDaemon::DeviceManager::CaptureLED(int, int)", led, value);
    }
    return result;
}

void DeviceManager::KeyPress(uint32_t keyCode, uint32_t /*time*/, int keyState)
{
    Log::Info("DeviceManager::KeyPress: Got keyCode %d, keypadBeepEnabled %d", static_cast<int>(keyCode),
              state.keypadBeepEnabled ? 1 : 0);
    if (keyState == pressed && state.keypadBeepEnabled)
    {
        std::ignore = HalvexDaemonDbusHandler::BeepBuzzer(state.duration, state.period, state.beeps);
    }
}

void DeviceManager::AudioSettingsChanged(sdbus_utils::TypedPropertyMap& properties)
{
    constexpr const char* text = signatureOf<&DeviceManager::AudioSettingsChanged>;
    VisitChanges(text, properties, [](const Setting& setting) {
        ApplyChange<bool>(setting, "micEnabled", [](bool enabled) { SetMicEnabled(enabled); });
        ApplyChange<bool>(setting, "speakerEnabled", [](bool enabled) { SetSpkrEnabled(enabled); });
        ApplyChange<int32_t>(setting, "speakerVolume", [](int32_t percent) { SetSpkrVolume(percent); });
    });
}

void DeviceManager::SondeSettingsChanged(sdbus_utils::TypedPropertyMap& properties)
{
    constexpr const char* text = signatureOf<&DeviceManager::SondeSettingsChanged>;
    VisitChanges(text, properties, [](const Setting& setting) {
        ApplyChange<bool>(setting, "enabled", [](bool enabled) { SwitchSonde(enabled); });
    });
}

void DeviceManager::KeyBeepSettingsChanged(sdbus_utils::TypedPropertyMap& properties)
{
    constexpr const char* text = signatureOf<&DeviceManager::KeyBeepSettingsChanged>;
    VisitChanges(text, properties, [](const Setting& setting) {
        ApplyChange<bool>(setting, "enabled", [](bool enabled) { state.keypadBeepEnabled = enabled; });
        ApplyChange<uint32_t>(setting, "duration", [](uint32_t duration) { state.duration = duration; });
        ApplyChange<uint32_t>(setting, "period", [](uint32_t period) { state.period = period; });
        ApplyChange<uint32_t>(setting, "beeps", [](uint32_t beeps) { state.beeps = beeps; });
    });
}

} // namespace ControllerDaemon
