#include "dbus_helper/Signature.h"

#include "dbus_helper/PropertyMap.h"

#include <gtest/gtest.h>

namespace Space
{

struct Class
{
    bool OfAnObject(int32_t);
    static bool Overloaded(bool);
    static bool Overloaded(int32_t);
    static int32_t Nothing();
    static void All(bool, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, double);
    static bool Texts(std::string, const std::string&, std::string&, std::string*);
    static int32_t Lists(std::vector<std::string>&, const std::vector<std::string>&);
    static int32_t Maps(const sdbus_utils::PropertyMap&, sdbus_utils::TypedPropertyMap&);
};

} // namespace Space

namespace
{

using DbusHelper::nameOf;
using DbusHelper::propertySignatureOf;
using DbusHelper::qualifiedName;
using DbusHelper::signature;
using DbusHelper::signatureOf;
using Space::Class;

TEST(Signature, SpellsTypesAsTheyAreDeclared)
{
    EXPECT_STREQ(signatureOf<&Class::Nothing>, "static int32_t Space::Class::Nothing()");
    EXPECT_STREQ(signatureOf<&Class::All>, "static void Space::Class::All(bool, uint8_t, int16_t, uint16_t, int32_t, "
                                           "uint32_t, int64_t, uint64_t, double)");
    EXPECT_STREQ(signatureOf<&Class::Texts>,
                 "static bool Space::Class::Texts(std::string, const std::string&, std::string&, std::string*)");
    EXPECT_STREQ(signatureOf<&Class::Lists>,
                 "static int32_t Space::Class::Lists(std::vector<std::__cxx11::basic_string<char> >&, "
                 "const std::vector<std::__cxx11::basic_string<char> >&)");
    EXPECT_STREQ(signatureOf<&Class::Maps>, "static int32_t Space::Class::Maps(const sdbus_utils::PropertyMap&, "
                                            "sdbus_utils::TypedPropertyMap&)");
}

TEST(Signature, OfAnObjectsOperationIsNotStatic)
{
    EXPECT_STREQ(signatureOf<&Class::OfAnObject>, "bool Space::Class::OfAnObject(int32_t)");
}

TEST(Signature, OfAnOverloadIsPickedByItsType)
{
    EXPECT_STREQ(signatureOf<static_cast<bool (*)(bool)>(&Class::Overloaded)>,
                 "static bool Space::Class::Overloaded(bool)");
    EXPECT_STREQ((signature<int32_t(uint32_t, bool&), "A::B::C">), "static int32_t A::B::C(uint32_t, bool&)");
}

TEST(Signature, OfBusCallbacksHasThePlainShape)
{
    EXPECT_STREQ((signature<sd_bus_message_handler_t, "A::B::C">),
                 "static int A::B::C(sd_bus_message*, void*, sd_bus_error*)");
    constexpr const char* propertyText = "static int Space::Class::Nothing(sd_bus*, const char*, const char*, "
                                         "const char*, sd_bus_message*, void*, sd_bus_error*)";
    EXPECT_STREQ(propertySignatureOf<&Class::Nothing>, propertyText);
    EXPECT_STREQ((signature<sd_bus_property_set_t, "Space::Class::Nothing">), propertyText);
}

TEST(Signature, NamesAreThoseOfTheCode)
{
    EXPECT_EQ(qualifiedName<&Class::Lists>.View(), "Space::Class::Lists");
    EXPECT_EQ(qualifiedName<&Class::OfAnObject>.View(), "Space::Class::OfAnObject");
    EXPECT_EQ(nameOf<&Class::Lists>.View(), "Lists");
}

TEST(FixedString, IsJoinedWhileCompiling)
{
    constexpr auto joined =
        Concat(DbusHelper::FixedString{"a"}, DbusHelper::FixedString{""}, DbusHelper::FixedString{"bc"});
    static_assert(joined.View() == "abc");
    EXPECT_STREQ(joined.c_str(), "abc");
}

} // namespace
