/// Messages of any types, and what the daemon makes of them: single values, dictionaries and maps of properties.

#include "dbus_helper/Codec.h"
#include "dbus_helper/Handles.h"
#include "dbus_helper/PropertyMap.h"
#include "tests/fuzz/targets/Input.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using DbusHelper::MessageHandle;

constexpr std::array<const char*, 18> types{"y", "b",  "n",  "q",     "i",     "u",    "x",    "t",     "d",
                                            "s", "as", "ai", "a{sv}", "a{ss}", "(is)", "(bb)", "a(ii)", "v"};

/// Messages are made for a bus that has been started, which needs somebody at the other end to be waited for. It is
/// never closed: that would wait for its end to say something.
sd_bus* Bus()
{
    static sd_bus* const bus = [] {
        std::array<int, 2> ends{-1, -1};
        Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0, "a socket pair");
        sd_bus* made = nullptr;
        Require(sd_bus_new(&made) >= 0 && sd_bus_set_fd(made, ends[0], ends[0]) >= 0 && sd_bus_start(made) >= 0,
                "a bus of our own");
        return made;
    }();
    return bus;
}

/// The end of the complete type that begins there.
const char* AfterType(const char* type)
{
    if (*type == 'a')
    {
        return AfterType(type + 1);
    }
    int depth = 0;
    do
    {
        depth += static_cast<int>(*type == '(' || *type == '{') - static_cast<int>(*type == ')' || *type == '}');
        ++type;
    } while (depth > 0);
    return type;
}

void AppendAll(sd_bus_message* message, Input& input, const std::string& signature, int depth);

void AppendContainer(sd_bus_message* message, Input& input, char kind, const std::string& contents, size_t count,
                     int depth)
{
    Require(sd_bus_message_open_container(message, kind, contents.c_str()) >= 0, "a container opens");
    for (size_t i = 0; i < count; ++i)
    {
        AppendAll(message, input, contents, depth + 1);
    }
    Require(sd_bus_message_close_container(message) >= 0, "a container closes");
}

void AppendOne(sd_bus_message* message, Input& input, const std::string& type, int depth)
{
    const std::string inside = type.size() > 2 ? type.substr(1, type.size() - 2) : "";
    switch (type[0])
    {
    case 'a':
        AppendContainer(message, input, 'a', type.substr(1), depth < 4 ? input.TakeBelow(5) : 0, depth);
        break;
    case '(':
        AppendContainer(message, input, 'r', inside, 1, depth);
        break;
    case '{':
        AppendContainer(message, input, 'e', inside, 1, depth);
        break;
    case 'v':
        AppendContainer(message, input, 'v', types.at(input.TakeBelow(depth < 4 ? types.size() : 10)), 1, depth);
        break;
    case 's':
        // A text with a zero byte or without UTF-8 is refused; an empty one stands in its place.
        if (DbusHelper::Codec<std::string>::Append(message, input.TakeText()) < 0)
        {
            DbusHelper::Codec<std::string>::Append(message, "");
        }
        break;
    case 'b':
        DbusHelper::Codec<bool>::Append(message, input.TakeFlag());
        break;
    default:
        const auto number = input.Take<uint64_t>();
        Require(sd_bus_message_append_basic(message, type[0], &number) >= 0, "a number is appended");
    }
}

void AppendAll(sd_bus_message* message, Input& input, const std::string& signature, int depth)
{
    for (const char* type = signature.c_str(); *type != '\0';)
    {
        const char* end = AfterType(type);
        AppendOne(message, input, std::string(type, end), depth);
        type = end;
    }
}

template <typename... Types>
void Read(sd_bus_message* message)
{
    sd_bus_message_rewind(message, 1);
    std::tuple<Types...> values;
    if (DbusHelper::Sequence<Types...>::Read(message, values) > 0)
    {
        const std::string written = sd_bus_message_get_signature(message, 1);
        Require(written.starts_with(DbusHelper::Sequence<Types...>::signature.c_str()), "only its own types are read");
    }
}

bool IsMarked(const std::string& text) { return text.find('\xFF') != std::string::npos; }

void Parse(sd_bus_message* message)
{
    sdbus_utils::PropertyMap plain{{"\xFF", {}}};
    sdbus_utils::TypedPropertyMap typed{{"\xFF", {}}};
    sd_bus_message_rewind(message, 1);
    const int32_t first = sdbus_utils::ParseProperties(message, plain);
    sd_bus_message_rewind(message, 1);
    const int32_t second = sdbus_utils::ParsePropertiesWithType(message, typed);
    Require((first < 0) == (second < 0), "both maps read the same messages");
    const bool isMap = std::string_view(sd_bus_message_get_signature(message, 1)).starts_with("a{sv}");
    Require((first >= 0) == isMap, "a map of properties is read, and nothing else");
    Require(first >= 0 || (plain.size() == 1 && typed.size() == 1), "a failure leaves the map as it was");
    Require(plain.size() == typed.size(), "both maps have the same names");
    for (const auto& property : typed)
    {
        Require(plain.contains(property.first), "both maps have the same names");
        if (!IsMarked(property.first))
        {
            // A value that contradicts its signature would throw.
            Ignore(sdbus_utils::ValueOf<int32_t>(property, property.first));
            Ignore(sdbus_utils::ValueOf<bool>(property, property.first));
            Ignore(sdbus_utils::ValueOf<std::string>(property, property.first));
            Ignore(sdbus_utils::ValueOf<std::vector<std::string>>(property, property.first));
        }
    }
    sd_bus_message_rewind(message, 1);
    int visits = 0;
    sdbus_utils::WalkDictionary(
        message,
        [&](sd_bus_message* at, void* /*data*/, const char* contents, const char* key) {
            int32_t number = 0;
            ++visits;
            return key[0] != '\0' && std::string(contents) == "i" && DbusHelper::Codec<int32_t>::Read(at, number) > 0;
        },
        nullptr);
    Require(first < 0 || visits >= static_cast<int>(plain.size()) - 1, "every entry is visited");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    sd_bus_message* made = nullptr;
    Require(sd_bus_message_new_signal(Bus(), &made, "/a", "a.b", "c") >= 0, "a message");
    const MessageHandle message(made);
    const size_t values = 1 + input.TakeBelow(4);
    for (size_t i = 0; i < values; ++i)
    {
        AppendOne(made, input, types.at(input.TakeBelow(types.size())), 0);
    }
    Require(sd_bus_message_seal(made, 1, 0) >= 0, "a message is sealed");
    Parse(made);
    Read<bool>(made);
    Read<std::string>(made);
    Read<int32_t, std::string>(made);
    Read<std::vector<std::string>>(made);
    Read<std::tuple<int32_t, std::string>>(made);
    Read<std::vector<std::tuple<int32_t, int32_t>>>(made);
    Read<uint32_t, uint32_t, uint32_t>(made);
    Read<double>(made);
    return 0;
}
