#include "controllerctl/Completion.h"

#include "controllerctl/Patience.h"

#include <algorithm>
#include <chrono>
#include <iostream>

namespace ControllerCtl
{
namespace
{

using std::string;
using Words = std::vector<string>;

/// What the words before the last come to.
struct Line
{
    string verb;                     ///< as far as it is there: "", "record", "record start"
    Words arguments;                 ///< of the verb
    const Parameter* open = nullptr; ///< the option whose value the last word is
    bool foreign = false;            ///< the last word is the value of an option that every verb has
    bool plain = false;              ///< "--" was given
    bool elsewhere = false;          ///< another bus was given
};

const Verb* Find(const Verbs& verbs, const string& name)
{
    const auto found = std::find_if(verbs.begin(), verbs.end(), [&](const Verb& verb) { return verb.name == name; });
    return found == verbs.end() ? nullptr : &*found;
}

const Parameter* FindOption(const Verbs& verbs, const string& verb, const string& name)
{
    const Verb* const found = Find(verbs, verb);
    if (found == nullptr)
    {
        return nullptr;
    }
    const auto option = std::find_if(found->parameters.begin(), found->parameters.end(),
                                     [&](const Parameter& parameter) { return parameter.name == name; });
    return option == found->parameters.end() ? nullptr : &*option;
}

/// Takes an option; true when its value is the next word.
bool TakeOption(Line& line, const Verbs& verbs, const std::vector<CommonOption>& common, const string& name)
{
    const Parameter* const own = FindOption(verbs, line.verb, name);
    line.open = own != nullptr && own->type != Type::Flag ? own : nullptr;
    line.foreign = std::any_of(common.begin(), common.end(),
                               [&](const CommonOption& option) { return option.valued && option.IsCalled(name); });
    line.elsewhere |= line.foreign;
    return line.open != nullptr || line.foreign;
}

void TakeWord(Line& line, const Verbs& verbs, const string& word)
{
    const string longer = line.verb + (line.verb.empty() ? "" : " ") + word;
    const Verb* const verb = Find(verbs, line.verb);
    if (verb != nullptr && verb->run)
    {
        line.arguments.push_back(word);
    }
    else if (Find(verbs, longer) != nullptr)
    {
        line.verb = longer;
    }
}

/// Reads all words but the last. Bash hands over "--kind=video" as three.
Line Read(const Verbs& verbs, const std::vector<CommonOption>& common, const Words& words)
{
    Line line;
    bool valued = false; // whether the next word is the value of an option
    for (size_t index = 0; index + 1 < words.size(); ++index)
    {
        const string& word = words[index];
        if (word == "=")
        {
            continue;
        }
        if (valued)
        {
            valued = false;
            line.open = nullptr;
            line.foreign = false;
        }
        else if (!line.plain && word == "--")
        {
            line.plain = true;
        }
        else if (!line.plain && word.starts_with("-"))
        {
            valued = word.find('=') == string::npos && TakeOption(line, verbs, common, word);
        }
        else
        {
            TakeWord(line, verbs, word);
        }
    }
    return line;
}

void Print(const string& before, const string& entry, const string& about)
{
    if (entry.find_first_of("\t\n") == string::npos)
    {
        std::cout << before << entry << (about.empty() ? "" : "\t") << about << '\n';
    }
}

/// What can be the value of a parameter.
void PrintValues(const Line& line, const Parameter& parameter, const string& before)
{
    Words values = parameter.choices;
    if (parameter.type == Type::Boolean || parameter.type == Type::Switch)
    {
        values = {"on", "off"};
    }
    if (parameter.type == Type::Switch)
    {
        values.emplace_back("toggle");
    }
    if (parameter.type == Type::File || parameter.type == Type::Folder)
    {
        std::cout << (parameter.type == Type::File ? ":files\n" : ":folders\n");
        return;
    }
    if (parameter.offered && !line.elsewhere)
    {
        values = parameter.offered(line.arguments);
        std::cout << ":names\n";
    }
    for (const string& value : values)
    {
        Print(before, value, "");
    }
}

void PrintOptions(const Verbs& verbs, const std::vector<CommonOption>& common, const Line& line)
{
    if (const Verb* const verb = Find(verbs, line.verb); verb != nullptr)
    {
        for (const Parameter& parameter : verb->parameters)
        {
            if (parameter.name.starts_with("-"))
            {
                Print("", parameter.name, parameter.about);
            }
        }
    }
    for (const CommonOption& option : common)
    {
        Print("", option.name, option.about);
    }
    Print("", "--help", "Print the usage");
    if (line.verb.empty())
    {
        Print("", "--version", "Print the versions of this program and of the controller");
    }
}

void PrintArgument(const Line& line, const Verb& verb)
{
    size_t index = 0;
    for (const Parameter& parameter : verb.parameters)
    {
        if (!parameter.name.starts_with("-") && index++ == line.arguments.size())
        {
            PrintValues(line, parameter, "");
        }
    }
}

void PrintVerbs(const Verbs& verbs, const Line& line)
{
    const string group = line.verb.empty() ? "" : line.verb + " ";
    for (const Verb& verb : verbs)
    {
        if (verb.name.starts_with(group) && verb.name.find(' ', group.size()) == string::npos)
        {
            Print("", verb.name.substr(group.size()), verb.about);
        }
    }
}

} // namespace

void Complete(const Verbs& verbs, const std::vector<CommonOption>& common, const Words& words)
{
    // A shell waits for it: half a second at most with all else, however long the unit takes, or the bus.
    EndAfter(std::chrono::milliseconds(250));
    const string last = words.empty() ? "" : words.back();
    const Line line = Read(verbs, common, words);
    const Verb* const verb = Find(verbs, line.verb);
    if (line.open != nullptr)
    {
        PrintValues(line, *line.open, "");
    }
    else if (!line.plain && last.starts_with("-"))
    {
        const size_t equals = last.find('=');
        const Parameter* const option = FindOption(verbs, line.verb, last.substr(0, equals));
        if (equals == string::npos)
        {
            PrintOptions(verbs, common, line);
        }
        else if (option != nullptr)
        {
            PrintValues(line, *option, last.substr(0, equals + 1));
        }
    }
    else if (!line.foreign)
    {
        verb != nullptr && verb->run ? PrintArgument(line, *verb) : PrintVerbs(verbs, line);
    }
    std::cout << std::flush;
}

} // namespace ControllerCtl
