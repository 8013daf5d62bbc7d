#pragma once

#include "clients/settings/SettingsDaemonDbusHandler.h"
#include "dbus_helper/FileNames.h"
#include "dbus_helper/PropertyMap.h"
#include "dbus_helper/Serve.h"
#include "device/KeyInput.h"

#include <sigc++/trackable.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ControllerDaemon
{

using Settingsd::SettingsHandler;

/// Microphone, speaker, sounds, the camera's sonde and the keypad's beep: serves their members of our interface, shows
/// switches on the front panel's LEDs, follows the sections "audio", "sonde" and "keyBeep" of the settings daemon, and
/// beeps when a key is pressed. Everything runs on the loop's thread and blocks on amixer, the hardware daemon and the
/// video daemon. What it knows is kept by the class, since its handlers are plain functions: there is one manager.
///
/// Failures of LEDs, beeps and of the video daemon's muting are logged and change nothing else.
class DeviceManager : public sigc::trackable
{
  public:
    /// Initialises the sound, follows the three sections, and listens to the keypad on the loop. Without sound or
    /// keypad it does the rest; settings may be null.
    DeviceManager(sd_event* event, const SettingsHandler& settings);

    /// The connection on which property changes are emitted; null: nothing is emitted.
    static void SetBus(sd_bus* bus);

    /// Reads what the settings daemon keeps and applies it, value by value. A value that cannot be read, or not be
    /// applied, is logged and leaves what holds. 0, or -1 when a read has failed.
    [[nodiscard]] int32_t SetDefaultSettings();

    /// Switches the microphone, shows that on its LED, tells the video daemon, and emits the change. Negative when the
    /// line cannot be set, with nothing of this done.
    static int32_t SetMicEnabled(bool enabled);
    /// Switches the speaker and emits the change. Negative as above.
    static int32_t SetSpkrEnabled(bool enabled);
    /// Sets the speaker's volume, in percent, and emits the change. Negative when no process could be started for
    /// amixer.
    static int32_t SetSpkrVolume(int percent);
    /// Switches the camera's sonde, and when that is done shows it on its LED: which is to show what holds. Negative
    /// when the hardware daemon fails.
    static int32_t SwitchSonde(bool enabled);
    /// Emits the change of one property of our interface, with its value. Negative errno-style on failure.
    static int32_t EmitPropertyChanged(const std::string& name);
    /// Shows a switch (see SwitchLedValue) or a capture (see CaptureLedValue) on an LED of the front panel. Negative
    /// when the hardware daemon fails.
    static int32_t HandleLED(int led, int value);
    static int32_t CaptureLED(int led, int value);

    /// A key of the keypad changed: `state` 1 pressed, 0 released. Beeps for a press while that is enabled.
    static void KeyPress(uint32_t keyCode, uint32_t time, int state);

    /// Settings of a section changed. A key that is unknown, or of another type than it should be, is passed over.
    void AudioSettingsChanged(sdbus_utils::TypedPropertyMap& properties);
    void SondeSettingsChanged(sdbus_utils::TypedPropertyMap& properties);
    void KeyBeepSettingsChanged(sdbus_utils::TypedPropertyMap& properties);

    /// Property handlers. An access that fails is answered with "org.freedesktop.DBus.Error.Failed" and the words of
    /// its log line, save reading the sonde, which is false when the hardware daemon does not say.
    static int GetKeypadBeepEnabled(const DbusHelper::PropertyRead<bool>& read);
    static int SetKeypadBeepEnabled(const DbusHelper::PropertyWrite<bool>& write);
    static int GetSonde(const DbusHelper::PropertyRead<bool>& read);
    /// Emits no change: the hardware daemon, whose property it is, tells of it.
    static int SetSonde(const DbusHelper::PropertyWrite<bool>& write);
    static int GetMicEnabled(const DbusHelper::PropertyRead<bool>& read);
    static int SetMicEnabled(const DbusHelper::PropertyWrite<bool>& write);
    static int GetSpkrEnabled(const DbusHelper::PropertyRead<bool>& read);
    static int SetSpkrEnabled(const DbusHelper::PropertyWrite<bool>& write);
    static int GetSpkrVolume(const DbusHelper::PropertyRead<int32_t>& read);
    static int SetSpkrVolume(const DbusHelper::PropertyWrite<int32_t>& write);
    static int GetAudioFiles(const DbusHelper::PropertyRead<DbusHelper::FileNames>& read);

    /// Method handler: plays a sound file, by its name in "AudioFiles"; answers before it is heard.
    static int PlayAudio(const DbusHelper::MethodCall<void(std::string)>& call);

  private:
    /// Reads the keypad's beep as far as it can be read.
    static bool ReadBeepDefaults(const char* text);

    /// Class-level state: handlers are plain functions. Made before main runs.
    struct State;
    static State state;

    SettingsHandler settings_;
    std::optional<KeyInput> keyInput_;
};

} // namespace ControllerDaemon
