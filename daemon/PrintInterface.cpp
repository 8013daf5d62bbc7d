// Prints the introspection of the controller's interface, made from the member table, for programmers of clients and
// for tools that generate them.

#include "daemon/ControllerMembers.h"

#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>

namespace
{

using ControllerDaemon::Member;

constexpr std::string_view head = R"(<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd">
<node name="/com/tavilon/common/Controller1">
  <interface name="com.tavilon.common.Controller1.Control">
)";
constexpr std::string_view tail = "  </interface>\n</node>\n";

/// Length of the complete type with which the signature begins.
size_t TypeLength(std::string_view signature)
{
    size_t length = 0;
    int depth = 0;
    bool arrayOf = true;
    while (length < signature.size() && (arrayOf || depth > 0))
    {
        const char type = signature[length++];
        depth += static_cast<int>(type == '(' || type == '{') - static_cast<int>(type == ')' || type == '}');
        arrayOf = type == 'a';
    }
    return length;
}

std::string Arguments(std::string_view signature, const char* names, const char* direction)
{
    std::istringstream nameOf(names);
    std::ostringstream text;
    while (!signature.empty())
    {
        const size_t length = TypeLength(signature);
        std::string name;
        nameOf >> name;
        text << "      <arg type=\"" << signature.substr(0, length) << "\" name=\"" << name << "\"" << direction
             << "/>\n";
        signature.remove_prefix(length);
    }
    return text.str();
}

std::string Element(const char* tag, const std::string& attributes, const std::string& contents)
{
    const std::string start = std::string("    <") + tag + attributes;
    return contents.empty() ? start + "/>\n" : start + ">\n" + contents + "    </" + tag + ">\n";
}

std::string Annotation(const char* name, const char* value)
{
    return std::string("      <annotation name=\"") + name + "\" value=\"" + value + "\"/>\n";
}

std::string Describe(const Member& member)
{
    const std::string name = std::string(" name=\"") + member.name + "\"";
    const std::string property = name + " type=\"" + member.signature + "\" access=";
    const bool tellsChanges = (member.flags & SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE) != 0;
    const std::string silent =
        tellsChanges ? "" : Annotation("org.freedesktop.DBus.Property.EmitsChangedSignal", "false");
    switch (member.kind)
    {
    case Member::Kind::Method:
        return Element("method", name,
                       Arguments(member.signature, member.argumentNames, " direction=\"in\"") +
                           Arguments(member.result, member.resultNames, " direction=\"out\""));
    case Member::Kind::Property:
        return Element("property", property + "\"readwrite\"", silent);
    case Member::Kind::ReadOnlyProperty:
        return Element("property", property + "\"read\"", silent);
    case Member::Kind::Signal:
        return Element("signal", name, Arguments(member.signature, member.argumentNames, ""));
    }
    return {};
}

} // namespace

int main()
{
    std::string text(head);
    for (const Member& member : ControllerDaemon::ControllerMembers())
    {
        text += Describe(member);
    }
    text += tail;
    const bool written = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    return written ? 0 : 1;
}
