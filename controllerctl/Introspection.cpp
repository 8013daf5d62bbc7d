#include "controllerctl/Introspection.h"

#include <string_view>

namespace ControllerCtl
{
namespace
{

using std::string;
using std::string_view;

/// The tag's name, with its slash where it closes.
string_view NameOf(string_view tag) { return tag.substr(0, tag.find_first_of(" \t\r\n/>", 1)); }

/// An attribute of a tag; empty without it. Names and types of the bus need no entities.
string Attribute(string_view tag, string_view name)
{
    size_t at = 0;
    while ((at = tag.find(name, at)) != string_view::npos)
    {
        const bool isWhole = at > 0 && string_view(" \t\r\n").find(tag[at - 1]) != string_view::npos;
        at += name.size();
        if (isWhole && at + 1 < tag.size() && tag[at] == '=' && (tag[at + 1] == '"' || tag[at + 1] == '\''))
        {
            const size_t end = tag.find(tag[at + 1], at + 2);
            return string(tag.substr(at + 2, end == string_view::npos ? 0 : end - at - 2));
        }
    }
    return {};
}

/// Takes the tags in their order and keeps what they say.
class Reader
{
  public:
    void Take(string_view tag)
    {
        const string_view name = NameOf(tag);
        if (name == "interface")
        {
            interface_ = Attribute(tag, "name");
        }
        else if (name == "method")
        {
            member_ = Attribute(tag, "name");
            found[{interface_, member_}] = {string(), string()};
        }
        else if (name == "signal" || name == "/method")
        {
            member_.clear(); // arguments of signals are of no interest
        }
        else if (name == "property")
        {
            found[{interface_, Attribute(tag, "name")}] = {std::nullopt, Attribute(tag, "type")};
        }
        else if (name == "arg" && !member_.empty())
        {
            auto& [in, out] = found[{interface_, member_}];
            (Attribute(tag, "direction") == "out" ? out : *in) += Attribute(tag, "type");
        }
    }

    Introspection found;

  private:
    string interface_;
    string member_;
};

} // namespace

Introspection ParseIntrospection(const string& text)
{
    Reader reader;
    size_t begin = 0;
    while ((begin = text.find('<', begin)) != string::npos)
    {
        constexpr string_view comment = "<!--";
        const bool isComment = string_view(text).substr(begin).starts_with(comment);
        const size_t end = text.find(isComment ? "-->" : ">", begin);
        if (end == string::npos)
        {
            break;
        }
        reader.Take(isComment ? string_view() : string_view(text).substr(begin + 1, end - begin - 1));
        begin = end;
    }
    return std::move(reader.found);
}

} // namespace ControllerCtl
