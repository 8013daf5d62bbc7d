#include "controllerctl/Build.h"

#include "controllerctl/Answer.h"
#include "controllerctl/Patience.h"
#include "dbus_helper/Handles.h"
#include "interfaces/ControllerEndpoint.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using std::string;
using std::string_view;

/// The type of the note that packages are named by, whose owner is "FDO".
constexpr Elf64_Word packageNote = 0xcafe1a7e;

/// The process that has the controller's name on the bus, as the bus knows it.
std::optional<pid_t> ProcessOfController()
{
    DbusHelper::BusHandle bus;
    sd_bus_creds* creds = nullptr;
    pid_t process = 0;
    const bool found =
        DbusHelper::OpenUserBus(bus) >= 0 &&
        sd_bus_get_name_creds(bus.get(), ControllerDaemon::controllerEndpoint.service, SD_BUS_CREDS_PID, &creds) >= 0 &&
        sd_bus_creds_get_pid(creds, &process) >= 0;
    sd_bus_creds_unref(creds);
    return found ? std::optional(process) : std::nullopt;
}

/// A number of a file at a place, if it is as long as that.
template <typename Type>
std::optional<Type> At(string_view file, size_t place)
{
    Type value{};
    if (place > file.size() || file.size() - place < sizeof value)
    {
        return std::nullopt;
    }
    std::memcpy(&value, file.data() + place, sizeof value);
    return value;
}

size_t Padded(size_t size) { return (size + 3) / 4 * 4; }

/// The note of a type and an owner among others.
std::optional<string> NoteIn(string_view notes, Elf64_Word type, string_view owner)
{
    while (const auto header = At<ElfW(Nhdr)>(notes, 0))
    {
        const size_t begin = sizeof *header + Padded(header->n_namesz);
        const size_t end = begin + header->n_descsz;
        if (end > notes.size())
        {
            break;
        }
        if (header->n_type == type && notes.substr(sizeof *header).starts_with(owner))
        {
            return string(notes.substr(begin, header->n_descsz));
        }
        notes.remove_prefix(std::min(Padded(end), notes.size()));
    }
    return std::nullopt;
}

/// The note of a type and an owner in a program, if it is built for this machine and has one.
std::optional<string> NoteOf(string_view program, Elf64_Word type, string_view owner)
{
    const auto header = At<ElfW(Ehdr)>(program, 0);
    if (!header || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0)
    {
        return std::nullopt;
    }
    for (size_t index = 0; index < header->e_phnum; ++index)
    {
        const auto segment = At<ElfW(Phdr)>(program, header->e_phoff + index * header->e_phentsize);
        if (segment && segment->p_type == PT_NOTE && segment->p_offset < program.size())
        {
            auto note = NoteIn(program.substr(segment->p_offset, segment->p_filesz), type, owner);
            if (note)
            {
                return note;
            }
        }
    }
    return std::nullopt;
}

string Hexadecimal(string_view bytes)
{
    constexpr string_view digits = "0123456789abcdef";
    string text;
    for (const unsigned char byte : bytes)
    {
        text += {digits[byte / 16], digits[byte % 16]};
    }
    return text;
}

/// "controllerd 1.1.0, build 0a1b...", by the program that the process runs, which may be no file any more; empty when
/// it cannot be read, or says nothing.
string DescribeProgram(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/exe", std::ios::binary);
    const string program((std::istreambuf_iterator<char>(file)), {});
    const Json package = Json::parse(NoteOf(program, packageNote, "FDO").value_or(""), nullptr, false);
    const auto name = package.is_object() ? package.find("name") : package.end();
    const auto version = package.is_object() ? package.find("version") : package.end();
    const bool known = name != package.end() && name->is_string() && version != package.end() && version->is_string();
    const auto build = NoteOf(program, NT_GNU_BUILD_ID, ELF_NOTE_GNU);
    const string suffix = build ? ", build " + Hexadecimal(*build) : "";
    return known ? name->get<string>() + " " + version->get<string>() + suffix : "";
}

} // namespace

int PrintVersions(const string& own, const Place& place)
{
    if (!TellLine(own))
    {
        return static_cast<int>(ExitStatus::Refused);
    }
    if (place.IsHere() && place.Complaint().empty())
    {
        // What has been printed is all there is to say about a bus that does not answer.
        EndAfter(std::chrono::seconds(3));
        place.Choose();
        const auto process = ProcessOfController();
        EndAfter(std::chrono::seconds(0)); // its program is read without the bus
        const string program = process ? DescribeProgram(*process) : "";
        return program.empty() || TellLine(program + ", running") ? 0 : static_cast<int>(ExitStatus::Refused);
    }
    return static_cast<int>(ExitStatus::Done);
}

} // namespace ControllerCtl
