#include "dbus_helper/PropertyMap.h"

#include "dbus_helper/Codec.h"
#include "dbus_helper/Log.h"

#include <array>
#include <string_view>

namespace sdbus_utils
{
namespace
{

template <typename T>
int ReadAny(sd_bus_message* message, std::any& value)
{
    T native{};
    const int result = DbusHelper::Codec<T>::Read(message, native);
    value = std::move(native);
    return result;
}

template <char Type>
int ReadTextAny(sd_bus_message* message, std::any& value)
{
    const char* text = nullptr;
    const int result = sd_bus_message_read_basic(message, Type, &text);
    value = std::string(result > 0 ? text : "");
    return result;
}

struct KnownType
{
    std::string_view signature;
    int (*read)(sd_bus_message* message, std::any& value);
};

constexpr std::array knownTypes{
    KnownType{"b", &ReadAny<bool>},
    KnownType{"y", &ReadAny<uint8_t>},
    KnownType{"n", &ReadAny<int16_t>},
    KnownType{"q", &ReadAny<uint16_t>},
    KnownType{"i", &ReadAny<int32_t>},
    KnownType{"u", &ReadAny<uint32_t>},
    KnownType{"x", &ReadAny<int64_t>},
    KnownType{"t", &ReadAny<uint64_t>},
    KnownType{"d", &ReadAny<double>},
    KnownType{"s", &ReadTextAny<'s'>},
    KnownType{"o", &ReadTextAny<'o'>},
    KnownType{"g", &ReadTextAny<'g'>},
    KnownType{"as", &ReadAny<std::vector<std::string>>},
};

const KnownType* FindType(std::string_view signature)
{
    for (const KnownType& known : knownTypes)
    {
        if (known.signature == signature)
        {
            return &known;
        }
    }
    return nullptr;
}

/// Reads the values of known types and hands each to `store(key, signature, value)`.
template <typename Store>
int32_t Parse(sd_bus_message* message, Store store)
{
    int failure = 0;
    const auto visit = [&](sd_bus_message* entry, void*, const char* contents, const char* key) {
        const KnownType* known = FindType(contents);
        if (known == nullptr || failure < 0)
        {
            return false;
        }
        std::any value;
        const int result = known->read(entry, value);
        if (result < 0)
        {
            failure = result;
            return true;
        }
        store(key, contents, std::move(value));
        return true;
    };
    const int32_t walked = WalkDictionary(message, visit, nullptr);
    return failure < 0 ? failure : walked;
}

/// Visits the entry that was entered, as far as its exit. Negative when the message is malformed.
int VisitEntry(sd_bus_message* message, const DictionaryVisitor& visitor, void* userData)
{
    const char* key = nullptr;
    const char* contents = nullptr;
    int result = sd_bus_message_read_basic(message, 's', &key);
    result = result < 0 ? result : sd_bus_message_peek_type(message, nullptr, &contents);
    result = result < 0 ? result : sd_bus_message_enter_container(message, 'v', contents);
    if (result < 0)
    {
        return result;
    }
    if (!visitor(message, userData, contents, key))
    {
        result = sd_bus_message_skip(message, contents);
        if (result < 0)
        {
            Log::Error(" %c Failed to skip %s, type: %s", contents[0], key, contents);
        }
    }
    // A visitor that has lied about reading is found out at the next entry, which cannot be entered then.
    sd_bus_message_exit_container(message);
    sd_bus_message_exit_container(message);
    return 0;
}

} // namespace

int32_t ParseProperties(sd_bus_message* message, PropertyMap& properties)
{
    PropertyMap parsed;
    const int32_t result = Parse(
        message, [&](const char* key, const char*, std::any value) { parsed.insert_or_assign(key, std::move(value)); });
    if (result >= 0)
    {
        properties = std::move(parsed);
    }
    return result;
}

int32_t ParsePropertiesWithType(sd_bus_message* message, TypedPropertyMap& properties)
{
    TypedPropertyMap parsed;
    const int32_t result = Parse(message, [&](const char* key, const char* signature, std::any value) {
        parsed.insert_or_assign(key, std::pair(std::string(signature), std::move(value)));
    });
    if (result >= 0)
    {
        properties = std::move(parsed);
    }
    return result;
}

int32_t WalkDictionary(sd_bus_message* message, const DictionaryVisitor& visitor, void* userData)
{
    int result = sd_bus_message_enter_container(message, 'a', "{sv}");
    if (result < 1)
    {
        return result;
    }
    while ((result = sd_bus_message_enter_container(message, 'e', "sv")) > 0)
    {
        result = VisitEntry(message, visitor, userData);
        if (result < 0)
        {
            break;
        }
    }
    sd_bus_message_exit_container(message);
    return result;
}

} // namespace sdbus_utils
