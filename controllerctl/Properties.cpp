#include "controllerctl/Properties.h"

#include "controller_client/ControllerDaemonDbusHandler.h"

#include <algorithm>
#include <string>
#include <type_traits>

namespace ControllerCtl
{
namespace
{

using Client = Controllerd::ControllerDaemonDbusHandler;

template <typename T>
int ReadWith(int (*getter)(T&), Json& value)
{
    T read{};
    const int result = getter(read);
    value = read;
    return result;
}

template <typename T>
int WriteWith(int (*setter)(T), const Json& value)
{
    return setter(value.get<T>());
}

/// A property that is read with the first function of the client, and written with the second.
template <auto Getter, auto Setter>
constexpr Property Switch(const char* name, const char* key, Type type, bool announced = true)
{
    return {.name = name,
            .key = key,
            .type = type,
            .read = [](Json& value) { return ReadWith(Getter, value); },
            .write = [](const Json& value) { return WriteWith(Setter, value); },
            .announced = announced};
}

template <auto Getter>
constexpr Property ReadOnly(const char* name, const char* key, Type type)
{
    return {.name = name,
            .key = key,
            .type = type,
            .read = [](Json& value) { return ReadWith(Getter, value); },
            .write = nullptr};
}

// clang-format off
constexpr std::array properties{
    ReadOnly<&Client::GetTimezone>("GetTimezone", "timezone", Type::Text),
    ReadOnly<&Client::GetDST>("GetDst", "dst", Type::Boolean),
    ReadOnly<&Client::GetTimeSourceAvailable>("GetTimeSourceAvailable", "timeSource", Type::Integer),
    Switch<&Client::GetMicrophoneEnabled, &Client::SetMicrophoneEnabled>("MicEnabled", "microphone", Type::Boolean),
    Switch<&Client::GetSpeakerEnabled, &Client::SetSpeakerEnabled>("SpkrEnabled", "speaker", Type::Boolean),
    Switch<&Client::GetSpeakerVolume, &Client::SetSpeakerVolume>("SpkrVolume", "volume", Type::Integer),
    Switch<&Client::GetSondeEnabled, &Client::SetSondeEnabled>("Sonde", "sonde", Type::Boolean),
    Switch<&Client::GetKeypadBeepEnabled, &Client::SetKeypadBeepEnabled>("KeypadBeepEnabled", "keyBeep", Type::Boolean),
    Switch<&Client::GetPlaybackRate, &Client::SetPlaybackRate>("VideoPlaybackRate", "rate", Type::Real, false),
    ReadOnly<&Client::GetTimezoneList>("GetTimezoneList", "timezones", Type::List),
    ReadOnly<&Client::GetAudioFiles>("AudioFiles", "sounds", Type::List),
};

constexpr std::array signals{
    Signal{"CaptureError", {"code", "message"}},
    Signal{"CaptureSizeLimitReached", {"captureType", "message"}},
    Signal{"PlaybackError", {"code", "message"}},
    Signal{"TimeChanged", {"year", "month", "day", "hour", "minute", "second", "dst"}},
    Signal{"TimezoneChanged", {"timezone"}},
};
// clang-format on

template <typename Items>
auto Find(const Items& items, std::string_view name)
{
    const auto found = std::find_if(items.begin(), items.end(), [&](const auto& item) { return item.name == name; });
    return found == items.end() ? nullptr : &*found;
}

} // namespace

std::span<const Property> Properties() { return properties; }
std::span<const Signal> Signals() { return signals; }
const Property* FindProperty(std::string_view name) { return Find(properties, name); }
const Signal* FindSignal(std::string_view name) { return Find(signals, name); }

Answer ReadProperty(const Property& property)
{
    Json value;
    return property.read(value) < 0 ? Failed() : Answer{.text = Text(value), .fields = {{property.key, value}}};
}

std::function<Answer(const Json&)> Reading(std::string_view name)
{
    return [property = FindProperty(name)](const Json&) { return ReadProperty(*property); };
}

} // namespace ControllerCtl
