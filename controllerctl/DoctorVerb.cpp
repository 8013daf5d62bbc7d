#include "controllerctl/Doctor.h"
#include "controllerctl/Inquiry.h"
#include "controllerctl/Style.h"
#include "controllerctl/Verb.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace ControllerCtl
{
namespace
{

using std::string;

constexpr double initialSeconds = 2;

const char* WordOf(Verdict verdict)
{
    constexpr std::array words{"ok", "missing", "wrong"};
    return words.at(static_cast<size_t>(verdict));
}

Tone ToneOfVerdict(Verdict verdict)
{
    constexpr std::array tones{Tone::Good, Tone::Warning, Tone::Bad};
    return tones.at(static_cast<size_t>(verdict));
}

Finding NoBus(int result)
{
    return {"bus", Verdict::Missing, string("the user bus cannot be reached: ") + std::strerror(-result),
            "no controller can run, and nothing of it can be asked",
            "run this as the unit's user; see whether user@.service of that user runs, and whether "
            "DBUS_SESSION_BUS_ADDRESS and the controller's 10-user.conf lead to its bus"};
}

Findings Examine(double seconds)
{
    Findings findings;
    LookBus bus;
    Patient patient{.bus = nullptr, .seconds = seconds, .user = geteuid()};
    const int result = OpenForLooks(bus);
    if (result >= 0)
    {
        findings.push_back({"bus", Verdict::Ok, "the user bus is there"});
        patient.bus = bus.get();
    }
    else
    {
        findings.push_back(NoBus(result));
    }
    ExamineBus(patient, findings);
    ExamineSiblings(patient, findings);
    ExamineSettings(patient, findings);
    ExamineStorage(patient, findings);
    ExamineSystem(patient, findings);
    ExamineFolders(patient, findings);
    ExamineSound(patient, findings);
    ExamineDevices(patient, findings);
    return findings;
}

/// The worst that was found: no bus or no controller, anything else that is not well, or nothing.
ExitStatus Worst(const Findings& findings)
{
    ExitStatus worst = ExitStatus::Done;
    for (const Finding& finding : findings)
    {
        const bool isReach = finding.check == "bus" || finding.check == "controller";
        if (finding.verdict != Verdict::Ok)
        {
            worst = isReach ? ExitStatus::Unreachable : std::max(worst, ExitStatus::Refused);
        }
        if (worst == ExitStatus::Unreachable)
        {
            break;
        }
    }
    return worst;
}

string TextOf(const Findings& findings, bool color)
{
    constexpr size_t width = 9;
    string text;
    for (const Finding& finding : findings)
    {
        const string word = WordOf(finding.verdict);
        text += (text.empty() ? "" : "\n") + Painted(word, ToneOfVerdict(finding.verdict), color);
        text += string(width - word.size(), ' ') + finding.check + ": " + finding.found;
        const string indent = "\n" + string(width, ' ');
        text += finding.meaning.empty() ? "" : indent + "so: " + finding.meaning;
        text += finding.remedy.empty() ? "" : indent + "do: " + finding.remedy;
    }
    return text;
}

Json FindingFields(const Findings& findings)
{
    Json checks = Json::array();
    size_t bad = 0;
    for (const Finding& finding : findings)
    {
        checks.push_back({{"check", finding.check},
                          {"verdict", WordOf(finding.verdict)},
                          {"found", finding.found},
                          {"meaning", finding.meaning},
                          {"remedy", finding.remedy}});
        bad += finding.verdict == Verdict::Ok ? 0 : 1;
    }
    Json fields = Json::object();
    if (bad > 0)
    {
        fields["code"] = nullptr;
    }
    fields["message"] = bad == 0
                            ? "all is well"
                            : std::to_string(bad) + " of " + std::to_string(findings.size()) + " checks have failed";
    fields["checks"] = checks;
    return fields;
}

Answer Doctor(const Arguments& arguments)
{
    const Findings findings = Examine(arguments.at("timeout").get<double>());
    return {.status = Worst(findings),
            .text = TextOf(findings, WantsColor(arguments)),
            .fields = FindingFields(findings),
            .messages = {}};
}

} // namespace

Verbs DoctorVerbs()
{
    return {{"doctor",
             "Examine the unit: what is missing or wrong, what that means, and what to do about it",
             {ColorParameter(),
              {.name = "--timeout",
               .about = "How long each group of questions has, like 5 (seconds) or 500ms",
               .type = Type::Time,
               .initial = initialSeconds}},
             &Doctor,
             true}};
}

} // namespace ControllerCtl
