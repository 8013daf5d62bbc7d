// The device manager as clients of our interface reach it.
#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"
#include "device/DeviceState.h"

namespace ControllerDaemon
{
namespace
{

using DbusHelper::blank;
using DbusHelper::colon;
using DbusHelper::FileNames;
using DbusHelper::FixedString;
using DbusHelper::MethodCall;
using DbusHelper::PropertyRead;
using DbusHelper::propertySignatureOf;
using DbusHelper::PropertyWrite;
using Halvexd::HalvexDaemonDbusHandler;

constexpr const char* readFailed = "sd_bus_message_read() failed";

/// The signature text of a setter that is an overload of the operation that it runs.
template <FixedString name>
constexpr const char* writeText =
    DbusHelper::signature<sd_bus_property_set_t, Concat(FixedString{"ControllerDaemon::DeviceManager::"}, name)>;

/// Answers a property access with what the sound manager said.
template <typename T>
int AnswerSound(const PropertyRead<T>& read, const char* text, const char* failed, int32_t result, const T& value)
{
    return result < 0 ? read.Fail(text, colon, failed, result) : read.Answer(value);
}

/// Serves the write of a property: reads the value, says so under `name` if there is one, and runs the operation, which
/// logs its own failure in the words of `failed`.
template <typename T>
int ServeWrite(const PropertyWrite<T>& write, const char* text, const char* name, int32_t (*operation)(T),
               const char* failed)
{
    T value{};
    int32_t result = write.Read(value);
    if (result < 0)
    {
        return write.Fail(text, colon, readFailed, result);
    }
    if (name != nullptr)
    {
        Log::Info("%s: %s = %d", text, name, static_cast<int>(value));
    }
    result = operation(value);
    return result < 0 ? write.Refuse(failed, result) : 0;
}

} // namespace

int DeviceManager::GetKeypadBeepEnabled(const PropertyRead<bool>& read) { return read.Answer(state.keypadBeepEnabled); }

int DeviceManager::SetKeypadBeepEnabled(const PropertyWrite<bool>& write)
{
    constexpr const char* text = propertySignatureOf<&DeviceManager::SetKeypadBeepEnabled>;
    Log::Info("%s", text);
    bool enabled = false;
    const int result = write.Read(enabled);
    if (result < 0)
    {
        return write.Fail(text, blank, readFailed, result);
    }
    Log::Info("%s keypadBeepEnabled = %d", text, enabled ? 1 : 0);
    state.keypadBeepEnabled = enabled;
    EmitPropertyChanged("KeypadBeepEnabled");
    return 0;
}

int DeviceManager::GetSonde(const PropertyRead<bool>& read)
{
    bool enabled = false;
    if (HalvexDaemonDbusHandler::GetCameraSonde(enabled) < 0)
    {
        Log::Error("%s Halvex->GetCameraSonde failed", propertySignatureOf<&DeviceManager::GetSonde>);
    }
    return read.Answer(enabled);
}

int DeviceManager::SetSonde(const PropertyWrite<bool>& write)
{
    constexpr const char* text = propertySignatureOf<&DeviceManager::SetSonde>;
    Log::Info("%s called", text);
    bool enabled = false;
    int32_t result = write.Read(enabled);
    if (result < 0)
    {
        return write.Fail(text, blank, "SetSonde sd_bus_message_read() failed", result);
    }
    Log::Info("%s SetSonde new_sonde_state = %d", text, enabled ? 1 : 0);
    result = SwitchSonde(enabled);
    return result < 0 ? write.Fail(text, blank, "Halvex->SetCameraSonde failed", result) : 0;
}

int DeviceManager::GetMicEnabled(const PropertyRead<bool>& read)
{
    bool enabled = false;
    const int32_t result = state.sound.GetMicEnabled(enabled);
    return AnswerSound(read, propertySignatureOf<&DeviceManager::GetMicEnabled>, "SoundManager::GetMicEnabled failed",
                       result, enabled);
}

int DeviceManager::SetMicEnabled(const PropertyWrite<bool>& write)
{
    return ServeWrite<bool>(write, writeText<"SetMicEnabled">, nullptr, &SetMicEnabled, setMicFailed);
}

int DeviceManager::GetSpkrEnabled(const PropertyRead<bool>& read)
{
    bool enabled = false;
    const int32_t result = state.sound.GetSpkrEnabled(enabled);
    return AnswerSound(read, propertySignatureOf<&DeviceManager::GetSpkrEnabled>, "SoundManager::GetSpkrEnabled failed",
                       result, enabled);
}

int DeviceManager::SetSpkrEnabled(const PropertyWrite<bool>& write)
{
    return ServeWrite<bool>(write, writeText<"SetSpkrEnabled">, "spkr_enabled", &SetSpkrEnabled, setSpkrFailed);
}

int DeviceManager::GetSpkrVolume(const PropertyRead<int32_t>& read)
{
    int raw = 0;
    int percent = 0;
    float decibels = 0;
    const int32_t result = SoundManager::GetSpkrVolume(raw, percent, decibels);
    return AnswerSound(read, propertySignatureOf<&DeviceManager::GetSpkrVolume>, "SoundManager::GetSpkrVolume failed",
                       result, percent);
}

int DeviceManager::SetSpkrVolume(const PropertyWrite<int32_t>& write)
{
    return ServeWrite<int32_t>(write, writeText<"SetSpkrVolume">, "spkr_volume", &SetSpkrVolume, setVolumeFailed);
}

int DeviceManager::GetAudioFiles(const PropertyRead<FileNames>& read)
{
    return read.Answer({state.sound.GetAudioFiles()});
}

int DeviceManager::PlayAudio(const MethodCall<void(std::string)>& call)
{
    std::string name;
    if (call.Read(name) < 0)
    {
        return call.Refuse("Could not read message");
    }
    if (state.sound.Play(name) < 0)
    {
        return call.Refuse("Could not play file");
    }
    return call.Answer();
}

} // namespace ControllerDaemon
