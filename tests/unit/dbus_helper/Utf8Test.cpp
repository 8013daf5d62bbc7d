#include "dbus_helper/Utf8.h"

#include <gtest/gtest.h>

#include <string_view>

namespace
{

using namespace std::string_view_literals;
using DbusHelper::IsUtf8;

TEST(Utf8, TakesWellFormedText)
{
    for (const auto text : {""sv, "a"sv, "\x7F"sv, "\xC2\x80"sv, "\xDF\xBF"sv, "\xE0\xA0\x80"sv, "\xED\x9F\xBF"sv,
                            "\xEE\x80\x80"sv, "\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80"sv, "\xF4\x8F\xBF\xBF"sv,
                            "Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x93\xB7"sv})
    {
        EXPECT_TRUE(IsUtf8(text)) << text;
    }
}

TEST(Utf8, TakesNothingElse)
{
    for (const auto text :
         {"\0"sv, "a\0b"sv, "\x80"sv, "\xBF"sv, "\xC0\x80"sv, "\xC1\xBF"sv, "\xC2"sv, "\xC2\x41"sv, "\xE0\x9F\xBF"sv,
          "\xE2\x82"sv, "\xED\xA0\x80"sv, "\xED\xBF\xBF"sv, "\xF0\x8F\xBF\xBF"sv, "\xF4\x90\x80\x80"sv,
          "\xF5\x80\x80\x80"sv, "\xFF"sv, "\xFE"sv, "ab\xFC"sv, "\xF0\x90\x80"sv})
    {
        EXPECT_FALSE(IsUtf8(text)) << text;
    }
}

} // namespace
