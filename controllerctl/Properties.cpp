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
constexpr Property Switch(const char* name, const char* key, Type type, const char* untold = nullptr)
{
    return {.name = name,
            .key = key,
            .type = type,
            .read = [](Json& value) { return ReadWith(Getter, value); },
            .write = [](const Json& value) { return WriteWith(Setter, value); },
            .untold = untold};
}

template <auto Getter>
constexpr Property ReadOnly(const char* name, const char* key, Type type, const char* toldBy = nullptr,
                            const char* untold = nullptr)
{
    return {.name = name,
            .key = key,
            .type = type,
            .read = [](Json& value) { return ReadWith(Getter, value); },
            .write = nullptr,
            .toldBy = toldBy,
            .untold = untold};
}

constexpr const char* fixed = "it stays as it was when the controller started";

// clang-format off
constexpr std::array properties{
    ReadOnly<&Client::GetTimezone>("GetTimezone", "timezone", Type::Text, "TimezoneChanged"),
    ReadOnly<&Client::GetDST>("GetDst", "dst", Type::Boolean, "TimezoneChanged"),
    ReadOnly<&Client::GetTimeSourceAvailable>("GetTimeSourceAvailable", "timeSource", Type::Integer, nullptr, "it follows recordings and syncs"),
    Switch<&Client::GetMicrophoneEnabled, &Client::SetMicrophoneEnabled>("MicEnabled", "microphone", Type::Boolean),
    Switch<&Client::GetSpeakerEnabled, &Client::SetSpeakerEnabled>("SpkrEnabled", "speaker", Type::Boolean),
    Switch<&Client::GetSpeakerVolume, &Client::SetSpeakerVolume>("SpkrVolume", "volume", Type::Integer),
    Switch<&Client::GetSondeEnabled, &Client::SetSondeEnabled>("Sonde", "sonde", Type::Boolean, "the hardware daemon announces them"),
    Switch<&Client::GetKeypadBeepEnabled, &Client::SetKeypadBeepEnabled>("KeypadBeepEnabled", "keyBeep", Type::Boolean),
    Switch<&Client::GetPlaybackRate, &Client::SetPlaybackRate>("VideoPlaybackRate", "rate", Type::Real, "the video daemon announces them"),
    ReadOnly<&Client::GetTimezoneList>("GetTimezoneList", "timezones", Type::List, nullptr, fixed),
    ReadOnly<&Client::GetAudioFiles>("AudioFiles", "sounds", Type::List, nullptr, fixed),
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

Answer Holds(const Property& property, const Json& given)
{
    Json held;
    if (property.read(held) < 0)
    {
        return {.fields = {{property.key, nullptr}},
                .messages = {"what holds now is not known: " + Failed().messages[0]}};
    }
    return {.text = held == given ? "" : Text(held), .fields = {{property.key, held}}};
}

std::function<std::vector<std::string>(const std::vector<std::string>&)> Listing(std::string_view name)
{
    return [property = FindProperty(name)](const std::vector<std::string>&) {
        Json value;
        return property->read(value) < 0 ? std::vector<std::string>() : value.get<std::vector<std::string>>();
    };
}

} // namespace ControllerCtl
