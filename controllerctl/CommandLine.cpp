#include "controllerctl/CommandLine.h"

#include "controllerctl/Build.h"
#include "controllerctl/Completion.h"
#include "controllerctl/Help.h"
#include "controllerctl/Place.h"
#include "controllerctl/Suggestions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace ControllerCtl
{
namespace
{

constexpr const char* about = "Controls the camera control unit through its controller daemon.";
constexpr const char* footer =
    "Exit status: 0 done, 1 refused by the unit, 2 wrong usage, 3 the controller cannot be reached, 4 time-out.\n"
    "The controller's answer is awaited for 120 seconds, or $SYSTEMD_BUS_TIMEOUT.";

constexpr const char* jsonOption = "--json";
constexpr const char* machineOption = "--machine";
constexpr const char* hostOption = "--host";
constexpr const char* addressOption = "--address";

/// The options that may stand behind any verb.
const std::vector<CommonOption> common{
    {jsonOption, "", "Print JSON, one object a line", false},
    {machineOption, "-M", "On the bus of another user of this unit, USER@, or of a container, USER@CONTAINER", true},
    {hostOption, "-H", "On the bus of a user of another unit, [USER@]HOST[:PORT], over ssh", true},
    {addressOption, "", "On the bus with this D-Bus address", true},
};

/// What they say.
struct Common
{
    bool json = false;
    Place place;
};

/// A parameter of the verb that is being read, with what was given for it.
struct Slot
{
    Parameter parameter;
    std::string text = {};
    bool set = false; // of a flag
    CLI::Option* option = nullptr;
};

/// What stands behind one verb while the command line is read.
struct VerbLine
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
        return "it must be one of " + Joined(choices, ", ");
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

void AddParameter(VerbLine& line, const Parameter& parameter)
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

Arguments ArgumentsOf(const VerbLine& line, bool json)
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

void AddCommon(CLI::App& app, Common& given)
{
    std::map<std::string, std::string*> values = {
        {machineOption, &given.place.machine}, {hostOption, &given.place.host}, {addressOption, &given.place.address}};
    for (const CommonOption& option : common)
    {
        if (!option.valued)
        {
            app.add_flag(option.name, given.json, option.about);
            continue;
        }
        const std::string letter = option.letter + std::string(*option.letter == '\0' ? "" : ",");
        app.add_option(letter + option.name, *values.at(option.name), option.about)->type_name("VALUE");
    }
}

/// Makes the commands of the verbs, groups first. Common options may stand behind any of them. A verb that none of the
/// words names is not what is wanted: it stands in lists, but its options, which cost more than all the rest, are not
/// made.
std::vector<VerbLine> AddVerbs(CLI::App& root, const Verbs& verbs, const std::set<std::string>& words, Common& given)
{
    std::vector<VerbLine> lines;
    std::map<std::string, CLI::App*> groups;
    AddCommon(root, given);
    for (const Verb& verb : verbs)
    {
        const auto blank = verb.name.find(' ');
        const std::string group = verb.name.substr(0, blank);
        const std::string name = verb.name.substr(blank + 1);
        if (blank != std::string::npos && !words.contains(group))
        {
            continue;
        }
        CLI::App* parent = blank == std::string::npos ? &root : groups.at(group);
        VerbLine line{&verb, {}, parent->add_subcommand(name, verb.about)};
        line.app->group("Verbs");
        if (words.contains(name))
        {
            for (const Parameter& parameter : verb.parameters)
            {
                AddParameter(line, parameter);
            }
            AddCommon(*line.app, given);
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

/// The last verb or group that the words name.
const CLI::App* Named(const CLI::App* app)
{
    while (!app->get_subcommands().empty())
    {
        app = app->get_subcommands().front();
    }
    return app;
}

/// What can follow an app: its verbs and its options.
std::vector<std::string> WordsBelow(const CLI::App* app)
{
    std::vector<std::string> words;
    for (const CLI::App* verb : app->get_subcommands([](const CLI::App*) { return true; }))
    {
        words.push_back(verb->get_name());
    }
    for (const CLI::Option* option : app->get_options([](const CLI::Option* one) { return one->nonpositional(); }))
    {
        words.push_back("--" + option->get_lnames().front());
    }
    return words;
}

/// The verbs that can follow, in two columns, or nothing.
std::string VerbsBelow(const CLI::App* app)
{
    std::string list;
    for (const CLI::App* verb : app->get_subcommands([](const CLI::App*) { return true; }))
    {
        std::string name = "  " + verb->get_name();
        name.resize(std::max<size_t>(name.size() + 2, 14), ' ');
        list += name + verb->get_description() + "\n";
    }
    return Wrapped(list, Width());
}

/// What is wrong with the words; CLI11 misses a verb or an argument before it complains of a word that it does not
/// know.
std::string Complaint(const CLI::App* root, const CLI::Error& error)
{
    const CLI::App* const named = Named(root);
    const std::vector<std::string> words = root->remaining(true);
    const auto option =
        std::find_if(words.begin(), words.end(), [](const auto& word) { return word.starts_with("--"); });
    const bool required = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    const bool extra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && option != words.end();
    if (!required && !extra)
    {
        return error.what();
    }
    if (!words.empty())
    {
        const std::string& unknown = extra ? *option : words.front();
        const std::string meant = Meant(unknown, WordsBelow(named));
        return "there is no verb or option \"" + unknown + "\"" +
               (meant.empty() ? "" : ", did you mean \"" + meant + "\"?");
    }
    return named->get_require_subcommand_min() > 0 ? "a verb is required\n" + VerbsBelow(named) : error.what();
}

std::string UsageMessage(const CLI::App* root, const CLI::Error& error)
{
    std::string complaint = Complaint(root, error);
    complaint += complaint.ends_with('\n') ? "" : "\n";
    return "controllerctl: " + complaint + "See controllerctl --help.\n";
}

/// The help at the width of the terminal.
std::string HelpOf(const CLI::App* app, const std::string& name, CLI::AppFormatMode mode)
{
    constexpr size_t column = 22;
    CLI::Formatter formatter;
    formatter.column_width(column);
    formatter.label("Positionals", "Arguments");
    formatter.label("SUBCOMMAND", "VERB");
    return Wrapped(formatter.make_help(app, name, mode), Width());
}

Answer Run(const VerbLine& line, const Common& given)
{
    given.place.Choose();
    Answer answer = line.verb->run(ArgumentsOf(line, given.json));
    const std::string advice = answer.status == ExitStatus::Unreachable ? Advice(given.place) : "";
    if (!advice.empty())
    {
        answer.messages.push_back(advice);
    }
    if (line.verb->looksAtFiles && given.place.IsElsewhere())
    {
        answer.messages.emplace_back(
            "files and devices were looked at on this computer, not on the unit: run it there");
    }
    return answer;
}

} // namespace

int RunCommandLine(const Verbs& verbs, int count, char** words)
{
    if (count > 1 && std::string(words[1]) == "--complete")
    {
        Complete(verbs, common, {words + 2, words + count});
        return static_cast<int>(ExitStatus::Done);
    }
    Common given;
    CLI::App root(about, "controllerctl");
    root.footer(footer);
    root.set_help_flag("-h,--help", "Print the usage, also that of a single verb");
    root.formatter_fn(HelpOf);
    root.require_subcommand(1);
    root.failure_message(UsageMessage);
    const std::vector<VerbLine> lines = AddVerbs(root, verbs, {words, words + count}, given);
    // Behind the others, so that those are known by then.
    root.set_version_flag("--version", "controllerctl " CONTROLLERCTL_VERSION,
                          "Print the versions of this program and of the controller");
    try
    {
        root.parse(count, words);
    }
    catch (const CLI::CallForVersion& version)
    {
        return PrintVersions(version.what(), given.place);
    }
    catch (const CLI::ParseError& error)
    {
        const int status = root.exit(error);
        return status == 0 ? status : static_cast<int>(ExitStatus::Usage);
    }
    if (const std::string complaint = given.place.Complaint(); !complaint.empty())
    {
        return Tell(Failed(ExitStatus::Usage, complaint), given.json);
    }
    const auto chosen =
        std::find_if(lines.begin(), lines.end(), [](const VerbLine& line) { return line.app->parsed(); });
    return Tell(Run(*chosen, given), given.json);
}

} // namespace ControllerCtl
