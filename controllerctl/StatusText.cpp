#include "controllerctl/Properties.h"
#include "controllerctl/Style.h"
#include "controllerctl/UnitStatus.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

using std::string;

Tone ToneOfState(const string& state)
{
    return state == "off"       ? Tone::Quiet
           : state == "broken"  ? Tone::Bad
           : state == "unknown" ? Tone::Warning
                                : Tone::Busy;
}

string WithComma(string text, const string& more) { return std::move(text) + (more.empty() ? "" : ", ") + more; }

void AddRecording(std::vector<Row>& rows, const Json& recording)
{
    const string state = recording.at("state");
    string text = state;
    if (!recording.at("seconds").is_null())
    {
        text += " for " + Duration(recording.at("seconds"));
    }
    text = WithComma(text, recording.at("bytes").is_null() ? "" : Bytes(recording.at("bytes")));
    text += recording.at("storage").is_null() ? "" : " on " + recording.at("storage").get<string>();
    rows.push_back({recording.at("kind"), text, ToneOfState(state)});
    if (!IsBlank(recording.at("file")))
    {
        rows.push_back({"", recording.at("file")});
    }
}

void AddPlayback(std::vector<Row>& rows, const Json& fields)
{
    const Json& playback = fields.at("playback");
    const string state = playback.at("state");
    string text = state;
    if (state != "off" && !fields.at("rate").is_null())
    {
        text += " at rate " + Text(fields.at("rate"));
    }
    if (state != "off" && !playback.at("position").is_null() && !playback.at("duration").is_null())
    {
        text += ", at " + Text(playback.at("position")) + " of " + Text(playback.at("duration"));
    }
    rows.push_back({"playback", text, ToneOfState(state)});
    if (!IsBlank(playback.at("file")))
    {
        rows.push_back({"", playback.at("file")});
    }
}

void AddStorage(std::vector<Row>& rows, const Json& fields)
{
    const char* label = "storage";
    for (const Json& device : fields.at("storages"))
    {
        const bool isMounted = device.at("mounted");
        const bool isBad = device.at("low").get<bool>() || device.at("readOnly").get<bool>();
        string text = device.at("id").get<string>() + ": ";
        text += device.at("freeBytes").is_null() ? "free space unknown" : Bytes(device.at("freeBytes")) + " free";
        text += device.at("low").get<bool>() ? ", full" : device.at("nearlyLow").get<bool>() ? ", nearly full" : "";
        text += device.at("readOnly").get<bool>() ? ", read-only" : "";
        text += device.at("primary").get<bool>() ? ", primary" : "";
        text += isMounted ? ", at " + device.at("mountPoint").get<string>() : ", not mounted";
        const bool isWarned = device.at("nearlyLow").get<bool>() || !isMounted;
        rows.push_back({label, text, isBad ? Tone::Bad : isWarned ? Tone::Warning : Tone::Plain});
        label = "";
    }
    if (fields.at("storages").empty())
    {
        rows.push_back({label, fields.at("siblings").at("storage") == "there" ? "none" : "unknown", Tone::Warning});
    }
}

void AddJob(std::vector<Row>& rows, const Json& job)
{
    if (job.at("id").is_null() || IsBlank(job.at("id")))
    {
        rows.push_back({"job", job.at("id").is_null() ? "unknown" : "none: nothing can be recorded", Tone::Warning});
        return;
    }
    string text = job.at("id");
    if (!job.at("name").is_null() && !IsBlank(job.at("name")))
    {
        text = job.at("name").get<string>() + " (" + text + ")";
    }
    text += job.at("device").is_null() ? "" : " on " + job.at("device").get<string>();
    rows.push_back({"job", text});
}

void AddPower(std::vector<Row>& rows, const Json& power)
{
    string text;
    bool isLow = false;
    for (const string side : {"right", "left"})
    {
        const Json& percent = power.at(side + "Percent");
        const bool low = power.at(side + "Low").is_boolean() && power.at(side + "Low").get<bool>();
        if (!percent.is_null())
        {
            text += (text.empty() ? "" : ", ") + side + " battery " + Text(percent) + " %" + (low ? " (low)" : "");
        }
        isLow = isLow || low;
    }
    text +=
        power.at("source").is_null() ? "" : (text.empty() ? "" : ", ") + string("source ") + Text(power.at("source"));
    text += power.at("level").is_null() ? "" : ", level " + Text(power.at("level"));
    const bool mayNot = power.at("mayRecord") == false;
    text += mayNot ? ", too low to record" : "";
    const bool isKnown = !text.empty();
    rows.push_back({"power", isKnown ? text : "unknown",
                    mayNot              ? Tone::Bad
                    : isLow || !isKnown ? Tone::Warning
                                        : Tone::Plain});
}

string Told(const Json& value) { return value.is_null() ? "-" : Text(value); }

void AddClock(std::vector<Row>& rows, const Json& fields)
{
    rows.push_back({"time", Told(fields.at("time"))});
    rows.push_back({"timezone", Told(fields.at("timezone")) + ", daylight saving time " + Told(fields.at("dst"))});
    const Json& settable = fields.at("timeSource");
    rows.push_back({"clock", settable.is_null() ? "-" : settable == 0 ? "cannot be set now" : "can be set"});
    rows.push_back({"gps", fields.at("gps").at("gpsd").get<bool>() ? "gpsd is there" : "no gpsd", Tone::Plain});
}

void AddSwitches(std::vector<Row>& rows, const Json& fields)
{
    const auto isOff = [&](const char* key) { return fields.at(key).is_boolean() && !fields.at(key).get<bool>(); };
    const auto add = [&](const char* label, const char* key, const string& more) {
        rows.push_back({label, Told(fields.at(key)) + more, isOff(key) ? Tone::Quiet : Tone::Plain});
    };
    add("microphone", "microphone", "");
    add("speaker", "speaker",
        fields.at("volume").is_null() ? ", volume -" : ", volume " + Text(fields.at("volume")) + " %");
    add("sonde", "sonde", "");
    add("key beep", "keyBeep", "");
}

/// Properties that have no place of their own among the rows.
void AddOthers(std::vector<Row>& rows, const Json& fields)
{
    constexpr std::array<std::string_view, 9> placed{"timezone", "dst",   "timeSource", "microphone", "speaker",
                                                     "volume",   "sonde", "keyBeep",    "rate"};
    for (const Property& property : Properties())
    {
        if (property.type != Type::List && std::find(placed.begin(), placed.end(), property.key) == placed.end())
        {
            rows.push_back({property.key, Told(fields.at(property.key))});
        }
    }
}

void AddSiblings(std::vector<Row>& rows, const Json& fields)
{
    string there;
    for (const auto& [name, presence] : fields.at("siblings").items())
    {
        if (presence == "there")
        {
            there.append(there.empty() ? "" : ", ").append(name);
        }
    }
    rows.push_back({"siblings", there.empty() ? "none" : there, there.empty() ? Tone::Warning : Tone::Plain});
    for (const char* word : {"absent", "silent", "refuses"})
    {
        string names;
        for (const auto& [name, presence] : fields.at("siblings").items())
        {
            names += presence == word ? (names.empty() ? "" : ", ") + name : "";
        }
        if (!names.empty())
        {
            rows.push_back({"", names + ": " + word, Tone::Warning});
        }
    }
}

void AddProblems(std::vector<Row>& rows, const Json& problems)
{
    const char* label = "problems";
    for (const Json& problem : problems)
    {
        rows.push_back({label, problem, Tone::Bad});
        label = "";
    }
    if (problems.empty())
    {
        rows.push_back({label, "none", Tone::Good});
    }
}

} // namespace

std::string StatusText(const Json& fields, bool color)
{
    std::vector<Row> rows;
    for (const Json& recording : fields.at("recordings"))
    {
        AddRecording(rows, recording);
    }
    AddPlayback(rows, fields);
    AddProblems(rows, fields.at("problems"));
    AddStorage(rows, fields);
    AddJob(rows, fields.at("job"));
    AddPower(rows, fields.at("power"));
    AddClock(rows, fields);
    AddSwitches(rows, fields);
    AddOthers(rows, fields);
    AddSiblings(rows, fields);
    return Aligned(rows, color);
}

} // namespace ControllerCtl
