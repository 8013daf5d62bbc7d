#include "controllerctl/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>

namespace ControllerCtl
{
namespace
{

constexpr const char* about = "Controls the camera control unit through its controller daemon.";
constexpr const char* footer =
    "Exit status: 0 done, 1 refused by the unit, 2 wrong usage, 3 the controller cannot be reached, 4 time-out.\n"
    "The controller's answer is awaited for 120 seconds, or $SYSTEMD_BUS_TIMEOUT.";

/// A parameter of the verb that is being read, with what was given for it.
struct Slot
{
    Parameter parameter;
    std::string text = {};
    bool set = false; // of a flag
    CLI::Option* option = nullptr;
};

/// What stands behind one verb while the command line is read.
struct Line
{
    const Verb* verb = nullptr;
    std::vector<std::unique_ptr<Slot>> slots; // their addresses are CLI11's
    CLI::App* app = nullptr;
};

/// The reason why a text cannot stand for the parameter; empty when it can.
std::string Check(const Parameter& parameter, const std::string& text)
{
    const auto& choices = parameter.choices;
    if (!choices.empty() && std::find(choices.begin(), choices.end(), text) == choices.end())
    {
        return "it must be one of " + CLI::detail::join(choices, ", ");
    }
    return Parse(parameter.type, text) ? "" : std::string("it must be ") + Describe(parameter.type);
}

std::string Described(const Parameter& parameter)
{
    std::string text = parameter.about;
    if (!parameter.choices.empty())
    {
        text += ": " + CLI::detail::join(parameter.choices, ", ");
    }
    return parameter.initial.is_null() ? text : text + " (default: " + Text(parameter.initial) + ")";
}

void AddParameter(Line& line, const Parameter& parameter)
{
    Slot& slot = *line.slots.emplace_back(std::make_unique<Slot>(Slot{.parameter = parameter}));
    if (parameter.type == Type::Flag)
    {
        slot.option = line.app->add_flag(parameter.name, slot.set, Described(parameter));
        return;
    }
    slot.option = line.app->add_option(parameter.name, slot.text, Described(parameter));
    slot.option->required(parameter.need == Parameter::Need::Required);
    slot.option->check([&slot](const std::string& text) { return Check(slot.parameter, text); });
    slot.option->type_name(parameter.name.starts_with("-") ? "VALUE" : "");
    slot.option->allow_extra_args(false);
}

/// The value of a parameter; null when it was not given and has none.
Json ValueOf(const Slot& slot)
{
    if (slot.parameter.type == Type::Flag)
    {
        return slot.set;
    }
    return slot.option->count() > 0 ? *Parse(slot.parameter.type, slot.text) : slot.parameter.initial;
}

std::string BareName(const std::string& name) { return name.substr(name.find_first_not_of('-')); }

Arguments ArgumentsOf(const Line& line, bool json)
{
    Arguments arguments = {{"json", json}};
    for (const auto& slot : line.slots)
    {
        Json value = ValueOf(*slot);
        if (!value.is_null())
        {
            arguments[BareName(slot->parameter.name)] = std::move(value);
        }
    }
    return arguments;
}

/// Makes the commands of all verbs, groups first. "--json" may stand behind any of them.
std::vector<Line> AddVerbs(CLI::App& root, const Verbs& verbs, bool& json)
{
    std::vector<Line> lines;
    std::map<std::string, CLI::App*> groups;
    root.add_flag("--json", json, "Tell it as JSON, one object a line");
    for (const Verb& verb : verbs)
    {
        const auto blank = verb.name.find(' ');
        CLI::App* parent = blank == std::string::npos ? &root : groups.at(verb.name.substr(0, blank));
        Line line{&verb, {}, parent->add_subcommand(verb.name.substr(blank + 1), verb.about)};
        line.app->add_flag("--json", json, "Tell it as JSON, one object a line");
        for (const Parameter& parameter : verb.parameters)
        {
            AddParameter(line, parameter);
        }
        if (!verb.run)
        {
            line.app->require_subcommand(1);
            groups[verb.name] = line.app;
            continue;
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

/// Whether words end where a verb should follow, as "record" does.
bool LacksVerb(const CLI::App* app)
{
    while (!app->get_subcommands().empty())
    {
        app = app->get_subcommands().front();
    }
    return app->get_require_subcommand_min() > 0;
}

/// What is wrong with the words; CLI11 misses a verb or an argument before it complains of a word that it does not
/// know.
std::string Complaint(const CLI::App* root, const CLI::Error& error)
{
    if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr)
    {
        return error.what();
    }
    const std::vector<std::string> unknown = root->remaining(true);
    if (!unknown.empty())
    {
        return "there is no verb or option \"" + unknown.front() + "\"";
    }
    return LacksVerb(root) ? "a verb is required" : error.what();
}

std::string UsageMessage(const CLI::App* root, const CLI::Error& error)
{
    return "controllerctl: " + Complaint(root, error) + "\nSee controllerctl --help.\n";
}

} // namespace

int RunCommandLine(const Verbs& verbs, int count, char** words)
{
    bool json = false;
    CLI::App root(about, "controllerctl");
    root.footer(footer);
    root.set_version_flag("--version", "controllerctl " CONTROLLERCTL_VERSION);
    root.require_subcommand(1);
    root.failure_message(UsageMessage);
    const std::vector<Line> lines = AddVerbs(root, verbs, json);
    try
    {
        root.parse(count, words);
    }
    catch (const CLI::ParseError& error)
    {
        const int status = root.exit(error);
        return status == 0 ? status : static_cast<int>(ExitStatus::Usage);
    }
    const auto chosen = std::find_if(lines.begin(), lines.end(), [](const Line& line) { return line.app->parsed(); });
    return Tell(chosen->verb->run(ArgumentsOf(*chosen, json)), json);
}

} // namespace ControllerCtl
