#include "controllerctl/UnitStatus.h"

#include "controllerctl/Gpsd.h"
#include "controllerctl/Properties.h"
#include "controllerctl/RecordingFile.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using std::string;

// Words ---------------------------------------------------------------------------------------------------------------

string StateWord(const Reply<int32_t>& state, const char* active)
{
    constexpr std::array words{"off", "", "paused", "paused"};
    if (!state.Well())
    {
        return "unknown";
    }
    if (state.value == -1)
    {
        return "broken";
    }
    if (state.value < 0 || static_cast<size_t>(state.value) >= words.size())
    {
        return "state " + std::to_string(state.value);
    }
    return state.value == 1 ? active : words.at(static_cast<size_t>(state.value));
}

const char* PresenceWord(Heard heard)
{
    switch (heard)
    {
    case Heard::Nothing:
        return "silent";
    case Heard::Absent:
        return "absent";
    case Heard::Refusal:
    case Heard::Unreadable:
        return "refuses";
    case Heard::Well:
        break;
    }
    return "there";
}

template <typename T>
Json ValueOrNull(const Reply<T>& reply)
{
    return reply.Well() ? Json(reply.value) : Json();
}

string ClockText(const ClockFields& clock)
{
    const auto& [year, month, day, hour, minute, second, dst] = clock;
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute, second);
    return text.data();
}

// Files ---------------------------------------------------------------------------------------------------------------

/// The device that holds a file: the one with the longest mount point that leads to it.
const StorageLook* HolderOf(const string& file, const std::vector<StorageLook>& devices)
{
    const StorageLook* holder = nullptr;
    size_t longest = 0;
    for (const StorageLook& device : devices)
    {
        const size_t components = file.empty() ? 0 : Storaged::MatchingComponents(device.mountPoint, file);
        if (components > longest)
        {
            longest = components;
            holder = &device;
        }
    }
    return holder;
}

// JSON ----------------------------------------------------------------------------------------------------------------

Json RecordingFields(const char* kind, const RecordingLook& look, const std::vector<StorageLook>& devices)
{
    const bool isOn = look.state.Well() && look.state.value != 0;
    const string file = isOn && look.file.Well() ? look.file.value : "";
    const FileLook found = LookAtFile(file);
    const StorageLook* holder = HolderOf(file, devices);
    return {{"kind", kind},
            {"state", StateWord(look.state, "recording")},
            {"file", file},
            {"seconds", OrNull(found.seconds)},
            {"bytes", OrNull(found.bytes)},
            {"storage", holder == nullptr ? Json() : Json(holder->id)}};
}

Json StorageFields(const StorageLook& device, const UnitLook& look)
{
    return {{"id", device.id},
            {"mountPoint", device.mountPoint},
            {"mounted", device.isMounted},
            {"freeBytes", OrNull(device.freeBytes)},
            {"low", device.isBelowMinimum},
            {"nearlyLow", device.isBelowWarning},
            {"readOnly", device.isReadOnly},
            {"primary", look.primaryStorage.Well() && look.primaryStorage.value == device.path}};
}

Json JobFields(const UnitLook& look)
{
    if (!look.job.Well())
    {
        return {{"id", nullptr}, {"device", nullptr}, {"name", nullptr}};
    }
    const bool isNamed = look.jobName.Well() && std::get<0>(std::get<0>(look.jobName.value)) == 0;
    return {{"id", std::get<0>(look.job.value)},
            {"device", look.jobDevice.Well() ? Json(std::get<0>(look.jobDevice.value)) : Json()},
            {"name", isNamed ? Json(std::get<1>(std::get<0>(look.jobName.value))) : Json()}};
}

Json PowerFields(const UnitLook& look)
{
    const bool charged = look.charge.Well();
    const bool warned = look.lowBattery.Well();
    return {{"source", ValueOrNull(look.powerSource)},
            {"level", ValueOrNull(look.powerLevel)},
            {"rightPercent", charged ? Json(look.charge.value.first) : Json()},
            {"leftPercent", charged ? Json(look.charge.value.second) : Json()},
            {"rightLow", warned ? Json(look.lowBattery.value.first) : Json()},
            {"leftLow", warned ? Json(look.lowBattery.value.second) : Json()},
            {"mayRecord", look.permitted.Well() ? Json(look.permitted.value.record) : Json()}};
}

Json PlaybackFields(const UnitLook& look)
{
    return {{"state", StateWord(look.playbackState, "playing")},
            {"file", look.playbackFile.Well() ? look.playbackFile.value : ""},
            {"position", ValueOrNull(look.playbackPosition)},
            {"duration", ValueOrNull(look.playbackDuration)}};
}

// Problems ------------------------------------------------------------------------------------------------------------

/// What stands in the way of a user's work, the worst first.
class Problems
{
  public:
    void If(bool holds, const string& text)
    {
        if (holds)
        {
            texts_.push_back(text);
        }
    }
    [[nodiscard]] std::vector<string> Take() { return std::move(texts_); }

  private:
    std::vector<string> texts_;
};

std::vector<string> ProblemsOf(const UnitLook& look, const Json& fields)
{
    Problems problems;
    const std::vector<StorageLook> devices = look.Devices();
    for (const StorageLook& device : devices)
    {
        problems.If(device.isBelowMinimum, "storage " + device.id + " is full: nothing more can be recorded on it");
        problems.If(device.isReadOnly, "storage " + device.id + " is read-only: nothing can be recorded on it");
        problems.If(!device.isMounted, "storage " + device.id + " is not mounted");
        problems.If(device.isBelowWarning && !device.isBelowMinimum, "storage " + device.id + " is nearly full");
    }
    problems.If(look.storages.Well() && devices.empty(), "there is no storage: nothing can be recorded");
    problems.If(look.playbackState.Well() && look.playbackState.value == -1, "the playback is broken");
    problems.If(look.permitted.Well() && !look.permitted.value.record, "the power does not suffice for a recording");
    problems.If(look.lowBattery.Well() && look.lowBattery.value.first, "the right battery is low");
    problems.If(look.lowBattery.Well() && look.lowBattery.value.second, "the left battery is low");
    for (const auto& [name, presence] : fields.at("siblings").items())
    {
        problems.If(presence != "there",
                    "the " + name + " daemon " +
                        (presence == "refuses" ? "refuses to tell" : "is " + presence.get<string>()));
    }
    return problems.Take();
}

// The controller's own ------------------------------------------------------------------------------------------------

/// Tells one value of the controller. What it refuses is missing, with its reason.
void AddValue(Json& fields, const char* key, const Hearing& hearing, const Json& value)
{
    fields[key] = hearing.heard == Heard::Well ? value : Json();
    if (hearing.heard > Heard::Absent && hearing.heard < Heard::Well)
    {
        fields["errors"][key] = hearing.message;
    }
}

/// What failed first in the words that every verb has for it. A controller that is absent or silent is so as a whole,
/// whatever else is known of the unit.
void Judge(Answer& answer, const std::vector<std::pair<string, const Hearing*>>& hearings)
{
    const auto lost = std::find_if(hearings.begin(), hearings.end(),
                                   [](const auto& heard) { return heard.second->heard <= Heard::Absent; });
    if (lost != hearings.end())
    {
        const Hearing& hearing = *lost->second;
        const bool isAbsent = hearing.heard == Heard::Absent;
        const char* words = isAbsent ? "the controller cannot be reached: " : "the controller did not answer: ";
        answer.status = isAbsent ? ExitStatus::Unreachable : ExitStatus::TimeOut;
        answer.messages = {words + hearing.message};
        answer.fields["code"] = nullptr;
        answer.fields["message"] = hearing.message;
        return;
    }
    for (const auto& [key, hearing] : hearings)
    {
        if (hearing->heard != Heard::Well)
        {
            answer.status = ExitStatus::Refused;
            answer.messages.push_back(
                key + (hearing->heard == Heard::Refusal ? ": refused: " : ": another answer than its interface has: ") +
                hearing->message);
        }
    }
}

} // namespace

Answer StatusOf(const UnitLook& look)
{
    Answer answer;
    Json& fields = answer.fields;
    fields["errors"] = Json::object();
    const std::vector<StorageLook> devices = look.Devices();
    fields["recordings"] = Json::array();
    for (size_t i = 0; i < kindsOfRecording.size(); ++i)
    {
        fields["recordings"].push_back(RecordingFields(kindsOfRecording.at(i).name, look.recordings.at(i), devices));
    }
    fields["playback"] = PlaybackFields(look);
    fields["storages"] = Json::array();
    for (const StorageLook& device : devices)
    {
        fields["storages"].push_back(StorageFields(device, look));
    }
    fields["job"] = JobFields(look);
    fields["power"] = PowerFields(look);
    fields["sync"] = {{"active", ValueOrNull(look.syncing)}};
    fields["gps"] = {{"gpsd", IsGpsdThere()}};
    const auto presence = look.Presence();
    for (size_t i = 0; i < siblings.size(); ++i)
    {
        fields["siblings"][siblings.at(i).name] = PresenceWord(presence.at(i));
    }
    fields["problems"] = ProblemsOf(look, fields);
    std::vector<std::pair<string, const Hearing*>> hearings{{"time", &look.clock}};
    AddValue(fields, "time", look.clock, ClockText(look.clock.value));
    for (const Property& property : Properties())
    {
        if (property.type != Type::List)
        {
            const Reply<Json>& reply = look.properties.at(property.key);
            hearings.emplace_back(property.key, &reply);
            AddValue(fields, property.key, reply, reply.value);
        }
    }
    Judge(answer, hearings);
    return answer;
}

} // namespace ControllerCtl
