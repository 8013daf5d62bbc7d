// Bus, controller, siblings and settings: what is asked over the user bus.
#include "controllerctl/Doctor.h"
#include "controllerctl/DoctorNeeds.h"
#include "controllerctl/Inquiry.h"
#include "controllerctl/Introspection.h"
#include "controllerctl/UnitLook.h"
#include "controllerctl/Values.h"
#include "interfaces/ControllerEndpoint.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

namespace ControllerCtl
{
namespace
{

using ControllerDaemon::controllerEndpoint;
using std::string;

constexpr DbusHelper::Endpoint busDaemon{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
constexpr const char* program = "controllerd";

/// What is lost without a sibling, by its place in the table.
constexpr std::array lost{
    "nothing can be recorded, photographed or played",
    "nothing can be recorded, and nobody notices when storage goes or fills up",
    "nothing can be recorded, and pictures are in no job",
    "nothing can be recorded for want of word of the power; sonde, LEDs and key beep do not obey",
    "the controller cannot start: it reads its defaults there",
    "clock and zone cannot be set",
};

const char* ServiceOf(SiblingIndex sibling) { return siblings.at(sibling).service; }

string NameOfProcess(uint32_t pid)
{
    string name;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
    return name.empty() ? "unknown" : name;
}

void FindController(Findings& findings, const Reply<std::tuple<uint32_t>>& pid, const Reply<bool>& answer)
{
    constexpr const char* stopped = "the user interface and this program can do nothing";
    if (pid.heard == Heard::Nothing)
    {
        findings.push_back({"controller", Verdict::Wrong, "the bus does not answer", stopped,
                            "see what dbus-daemon of the unit's user is doing; restart user@.service"});
        return;
    }
    if (!pid.Well())
    {
        findings.push_back({"controller", Verdict::Missing, "nobody has its name on the bus", stopped,
                            "systemctl status controllerd; journalctl -t controllerd -b"});
        return;
    }
    const string name = NameOfProcess(std::get<0>(pid.value));
    const string process = name + ", process " + std::to_string(std::get<0>(pid.value));
    if (name != program)
    {
        findings.push_back({"controller", Verdict::Wrong, "another program has its name: " + process,
                            "requests go there, and the controller has no interface",
                            "end that program, then systemctl restart controllerd"});
    }
    else if (answer.heard != Heard::Well)
    {
        findings.push_back({"controller", Verdict::Wrong, process + " does not answer: " + answer.message,
                            "every request waits until it does",
                            "see which sibling hangs below; else systemctl restart "
                            "controllerd"});
    }
    else
    {
        findings.push_back({"controller", Verdict::Ok, process + " answers"});
    }
}

/// The text of an object's introspection.
using IntrospectionReply = Reply<std::tuple<string>>;

void Introspect(Inquiry& inquiry, const char* service, const char* path, IntrospectionReply& reply)
{
    inquiry.Call({service, path, "org.freedesktop.DBus.Introspectable"}, "Introspect", reply);
}

string Described(const MemberNeed& need, const string& found)
{
    const string name = string(need.interface).substr(string(need.interface).rfind('.') + 1) + "." + need.member;
    return found.empty() ? name + " is missing" : name + " is " + found;
}

/// What is not as the controller needs it; empty when it is.
string Complaint(const MemberNeed& need, const Introspection& object)
{
    const auto found = object.find({need.interface, need.member});
    if (found == object.end())
    {
        return Described(need, "");
    }
    const auto& [in, out] = found->second;
    const bool isMethod = need.in != nullptr;
    if (isMethod != in.has_value())
    {
        return Described(need, isMethod ? "no method" : "no property");
    }
    const string has = isMethod ? "(" + *in + ") -> " + out : out;
    const string wanted = isMethod ? "(" + string(need.in) + ") -> " + need.out : need.out;
    return has == wanted ? "" : Described(need, has + " instead of " + wanted);
}

Finding Unheard(SiblingIndex sibling, const Hearing& hearing)
{
    const string check = string(siblings.at(sibling).name) + " daemon";
    const string remedy = string("start what has the name ") + ServiceOf(sibling) + " on the user bus";
    if (hearing.heard == Heard::Absent)
    {
        return {check, Verdict::Missing, "nobody has its name on the bus", lost.at(sibling), remedy};
    }
    return {check, Verdict::Wrong, "it does not say what it has: " + hearing.message,
            string("every request that needs it waits for 25 seconds; ") + lost.at(sibling), "restart it"};
}

Finding Judged(SiblingIndex sibling, const std::vector<string>& complaints, size_t count)
{
    const string check = string(siblings.at(sibling).name) + " daemon";
    if (complaints.empty())
    {
        return {check, Verdict::Ok, "it has what the controller uses: " + std::to_string(count) + " members"};
    }
    return {check, Verdict::Wrong, Joined(complaints, "; "), "what the controller does by these members fails",
            "install versions of controller and sibling that belong together"};
}

/// The complaints about each sibling's objects.
class Examination
{
  public:
    explicit Examination(sd_bus* bus, const Patience& patience) : patience_(patience), inquiry_(bus) {}

    void Ask()
    {
        for (const MemberNeed& need : Needs())
        {
            if (texts_.find({need.sibling, need.path}) == texts_.end())
            {
                Introspect(inquiry_, ServiceOf(need.sibling), need.path, texts_[{need.sibling, need.path}]);
            }
        }
        UnitLook look;
        AskStorages(inquiry_, look);
        std::ignore = inquiry_.Wait(patience_);
        const std::vector<StorageLook> devices = look.Devices();
        hasDevice_ = !devices.empty();
        if (hasDevice_)
        {
            Introspect(inquiry_, ServiceOf(storageSibling), devices.front().path.c_str(), device_);
            std::ignore = inquiry_.Wait(patience_);
        }
    }

    void Tell(SiblingIndex sibling, Findings& findings) const
    {
        std::vector<string> complaints;
        size_t count = 0;
        for (const MemberNeed& need : Needs())
        {
            if (need.sibling != sibling)
            {
                continue;
            }
            const IntrospectionReply& text = texts_.at({need.sibling, need.path});
            if (text.heard == Heard::Absent || text.heard == Heard::Nothing)
            {
                findings.push_back(Unheard(sibling, text));
                return;
            }
            Compare(need, text, complaints, count);
        }
        for (const MemberNeed& need : DeviceNeeds())
        {
            if (need.sibling == sibling && hasDevice_)
            {
                Compare(need, device_, complaints, count);
            }
        }
        findings.push_back(Judged(sibling, complaints, count));
    }

  private:
    static void Compare(const MemberNeed& need, const IntrospectionReply& text, std::vector<string>& complaints,
                        size_t& count)
    {
        const string complaint = Complaint(need, ParseIntrospection(std::get<0>(text.value)));
        ++count;
        if (!complaint.empty())
        {
            complaints.push_back(complaint);
        }
    }

    const Patience& patience_;
    Inquiry inquiry_;
    IntrospectionReply device_; ///< of a storage device; they are all alike
    bool hasDevice_ = false;
    std::map<std::pair<SiblingIndex, string>, IntrospectionReply> texts_;
};

} // namespace

void ExamineBus(Patient& patient, Findings& findings)
{
    if (patient.bus == nullptr)
    {
        return;
    }
    Reply<std::tuple<uint32_t>> pid;
    Reply<std::tuple<uint32_t>> user;
    Reply<bool> answer;
    Inquiry inquiry(patient.bus);
    inquiry.Call(busDaemon, "GetConnectionUnixProcessID", pid, string(controllerEndpoint.service));
    inquiry.Call(busDaemon, "GetConnectionUnixUser", user, string(controllerEndpoint.service));
    inquiry.Get(controllerEndpoint, "KeypadBeepEnabled", answer);
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    patient.user = user.Well() ? std::get<0>(user.value) : patient.user;
    FindController(findings, pid, answer);
}

void ExamineSiblings(const Patient& patient, Findings& findings)
{
    if (patient.bus == nullptr)
    {
        return;
    }
    const Patience patience(patient.seconds);
    Examination examination(patient.bus, patience);
    examination.Ask();
    for (const SiblingIndex sibling : {videoSibling, storageSibling, jobsSibling, hardwareSibling, syncSibling})
    {
        examination.Tell(sibling, findings);
    }
}

void ExamineSettings(const Patient& patient, Findings& findings)
{
    if (patient.bus == nullptr)
    {
        return;
    }
    const auto needs = SettingNeeds();
    std::vector<Hearing> hearings(needs.size());
    Inquiry inquiry(patient.bus);
    for (size_t i = 0; i < needs.size(); ++i)
    {
        const string path = Settingsd::SectionPath(needs[i].section);
        inquiry.GetAs({Settingsd::root.service, path.c_str(), Settingsd::root.interface}, needs[i].key, needs[i].type,
                      hearings[i], [](sd_bus_message*) { return 0; });
    }
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    std::vector<string> complaints;
    for (size_t i = 0; i < needs.size(); ++i)
    {
        if (hearings[i].heard == Heard::Absent || hearings[i].heard == Heard::Nothing)
        {
            findings.push_back(Unheard(settingsSibling, hearings[i]));
            return;
        }
        if (hearings[i].heard != Heard::Well)
        {
            complaints.push_back(string(needs[i].section) + "/" + needs[i].key +
                                 (hearings[i].heard == Heard::Refusal ? " is missing" : " is of another type"));
        }
    }
    if (complaints.empty())
    {
        findings.push_back({"settings daemon", Verdict::Ok,
                            "it has what the controller reads: " + std::to_string(needs.size()) + " keys"});
        return;
    }
    findings.push_back({"settings daemon", Verdict::Wrong, Joined(complaints, "; "), "the controller cannot start",
                        "install versions of controller and settings daemon that belong together"});
}

} // namespace ControllerCtl
