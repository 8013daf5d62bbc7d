// The device manager as clients of our interface reach it.
#include "clients/HalvexDaemonDbusHandler.h"
#include "dbus_helper/Codec.h"
#include "dbus_helper/FileNames.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/PropertyReply.h"
#include "device/DeviceManager.h"
#include "device/DeviceState.h"

#include <tuple>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::blank;
using DbusHelper::Codec;
using DbusHelper::colon;
using DbusHelper::Fail;
using DbusHelper::Refuse;
using Halvexd::HalvexDaemonDbusHandler;

constexpr const char* readFailed = "sd_bus_message_read() failed";

template <typename T>
int ReadValue(sd_bus_message* message, T& value)
{
    std::tuple<T&> values(value);
    return DbusHelper::Sequence<T>::Read(message, values);
}

/// Answers a property access with what the sound manager said.
template <typename T>
int AnswerSound(sd_bus_message* reply, sd_bus_error* error, const char* text, const char* failed, int32_t result,
                const T& value)
{
    return result < 0 ? Fail(error, text, colon, failed, result) : Codec<T>::Append(reply, value);
}

/// Serves the write of a property: reads the value, says so under `name` if there is one, and runs the operation, which
/// logs its own failure in the words of `failed`.
template <typename T>
int ServeWrite(sd_bus_message* message, sd_bus_error* error, const char* text, const char* name,
               int32_t (*operation)(T), const char* failed)
{
    T value{};
    int32_t result = ReadValue(message, value);
    if (result < 0)
    {
        return Fail(error, text, colon, readFailed, result);
    }
    if (name != nullptr)
    {
        Log::Info("%s: %s = %d", text, name, static_cast<int>(value));
    }
    result = operation(value);
    return result < 0 ? Refuse(error, failed, result) : 0;
}

} // namespace

int DeviceManager::GetKeypadBeepEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                        const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                        sd_bus_error* /*error*/) noexcept
{
    return Codec<bool>::Append(reply, deviceState.keypadBeepEnabled);
}

int DeviceManager::SetKeypadBeepEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                        const char* /*property*/, sd_bus_message* value, void* /*userData*/,
                                        sd_bus_error* error) noexcept
{
    constexpr const char* text = deviceText<sd_bus_property_set_t, "SetKeypadBeepEnabled">;
    Log::Info("%s", text);
    bool enabled = false;
    const int result = ReadValue(value, enabled);
    if (result < 0)
    {
        return Fail(error, text, blank, readFailed, result);
    }
    Log::Info("%s keypadBeepEnabled = %d", text, enabled ? 1 : 0);
    deviceState.keypadBeepEnabled = enabled;
    EmitPropertyChanged("KeypadBeepEnabled");
    return 0;
}

int DeviceManager::GetSonde(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                            sd_bus_message* reply, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    bool enabled = false;
    if (HalvexDaemonDbusHandler::GetCameraSonde(enabled) < 0)
    {
        Log::Error("%s Halvex->GetCameraSonde failed", deviceText<sd_bus_property_get_t, "GetSonde">);
    }
    return Codec<bool>::Append(reply, enabled);
}

int DeviceManager::SetSonde(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                            sd_bus_message* value, void* /*userData*/, sd_bus_error* error) noexcept
{
    constexpr const char* text = deviceText<sd_bus_property_set_t, "SetSonde">;
    Log::Info("%s called", text);
    bool enabled = false;
    int32_t result = ReadValue(value, enabled);
    if (result < 0)
    {
        return Fail(error, text, blank, "SetSonde sd_bus_message_read() failed", result);
    }
    Log::Info("%s SetSonde new_sonde_state = %d", text, enabled ? 1 : 0);
    result = SwitchSonde(enabled);
    return result < 0 ? Fail(error, text, blank, "Halvex->SetCameraSonde failed", result) : 0;
}

int DeviceManager::GetMicEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                 sd_bus_error* error) noexcept
{
    bool enabled = false;
    const int32_t result = deviceState.sound.GetMicEnabled(enabled);
    return AnswerSound(reply, error, deviceText<sd_bus_property_get_t, "GetMicEnabled">,
                       "SoundManager::GetMicEnabled failed", result, enabled);
}

int DeviceManager::SetMicEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* value, void* /*userData*/,
                                 sd_bus_error* error) noexcept
{
    return ServeWrite<bool>(value, error, deviceText<sd_bus_property_set_t, "SetMicEnabled">, nullptr, &SetMicEnabled,
                            setMicFailed);
}

int DeviceManager::GetSpkrEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                  const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                  sd_bus_error* error) noexcept
{
    bool enabled = false;
    const int32_t result = deviceState.sound.GetSpkrEnabled(enabled);
    return AnswerSound(reply, error, deviceText<sd_bus_property_get_t, "GetSpkrEnabled">,
                       "SoundManager::GetSpkrEnabled failed", result, enabled);
}

int DeviceManager::SetSpkrEnabled(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                  const char* /*property*/, sd_bus_message* value, void* /*userData*/,
                                  sd_bus_error* error) noexcept
{
    return ServeWrite<bool>(value, error, deviceText<sd_bus_property_set_t, "SetSpkrEnabled">, "spkr_enabled",
                            &SetSpkrEnabled, setSpkrFailed);
}

int DeviceManager::GetSpkrVolume(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                 sd_bus_error* error) noexcept
{
    int raw = 0;
    int percent = 0;
    float decibels = 0;
    const int32_t result = SoundManager::GetSpkrVolume(raw, percent, decibels);
    return AnswerSound(reply, error, deviceText<sd_bus_property_get_t, "GetSpkrVolume">,
                       "SoundManager::GetSpkrVolume failed", result, percent);
}

int DeviceManager::SetSpkrVolume(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* value, void* /*userData*/,
                                 sd_bus_error* error) noexcept
{
    return ServeWrite<int>(value, error, deviceText<sd_bus_property_set_t, "SetSpkrVolume">, "spkr_volume",
                           &SetSpkrVolume, setVolumeFailed);
}

int DeviceManager::GetAudioFiles(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                 sd_bus_error* /*error*/) noexcept
{
    return DbusHelper::AppendFileNames(reply, deviceState.sound.GetAudioFiles());
}

int DeviceManager::PlayAudio(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::string name;
    if (ReadValue(message, name) < 0)
    {
        return DbusHelper::Refuse(error, "Could not read message");
    }
    if (deviceState.sound.Play(name) < 0)
    {
        return DbusHelper::Refuse(error, "Could not play file");
    }
    return DbusHelper::ReplyEmpty(message);
}

} // namespace ControllerDaemon
