#include "dbus_helper/OperationText.h"

#include "dbus_helper/PropertyMap.h"

#include <gtest/gtest.h>

namespace
{

using DbusHelper::operationText;

struct Class
{
    static int32_t Nothing();
    static void All(bool, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, double);
    static bool Texts(std::string, const std::string&, std::string&, std::string*);
    static int32_t Lists(std::vector<std::string>&, const std::vector<std::string>&);
    static int32_t Maps(const sdbus_utils::PropertyMap&, sdbus_utils::TypedPropertyMap&);
};

#define TEXT_OF(operation) (operationText<decltype(Class::operation), "Space::Class::" #operation>.View())

TEST(OperationText, SpellsTypesAsTheyAreDeclared)
{
    EXPECT_EQ(TEXT_OF(Nothing), "static int32_t Space::Class::Nothing()");
    EXPECT_EQ(TEXT_OF(All), "static void Space::Class::All(bool, uint8_t, int16_t, uint16_t, int32_t, uint32_t, "
                            "int64_t, uint64_t, double)");
    EXPECT_EQ(TEXT_OF(Texts),
              "static bool Space::Class::Texts(std::string, const std::string&, std::string&, std::string*)");
    EXPECT_EQ(TEXT_OF(Lists), "static int32_t Space::Class::Lists(std::vector<std::__cxx11::basic_string<char> >&, "
                              "const std::vector<std::__cxx11::basic_string<char> >&)");
    EXPECT_EQ(TEXT_OF(Maps), "static int32_t Space::Class::Maps(const sdbus_utils::PropertyMap&, "
                             "sdbus_utils::TypedPropertyMap&)");
}

TEST(OperationText, OverloadsAreNamedByTheirType)
{
    EXPECT_EQ((operationText<int32_t(uint32_t, bool&), "A::B::C">.View()), "static int32_t A::B::C(uint32_t, bool&)");
}

TEST(OperationText, BusCallbacksHaveThePlainShape)
{
    EXPECT_EQ((operationText<sd_bus_message_handler_t, "A::B::C">.View()),
              "static int A::B::C(sd_bus_message*, void*, sd_bus_error*)");
    EXPECT_EQ((operationText<sd_bus_property_get_t, "A::B::C">.View()),
              "static int A::B::C(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, "
              "sd_bus_error*)");
}

TEST(FixedString, IsJoinedWhileCompiling)
{
    constexpr auto joined =
        Concat(DbusHelper::FixedString{"a"}, DbusHelper::FixedString{""}, DbusHelper::FixedString{"bc"});
    static_assert(joined.View() == "abc");
    EXPECT_STREQ(joined.c_str(), "abc");
}

} // namespace
