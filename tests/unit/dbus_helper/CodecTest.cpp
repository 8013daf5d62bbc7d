#include "dbus_helper/Codec.h"

#include "tests/unit/support/TestMessage.h"

#include <gtest/gtest.h>

#include <limits>

namespace
{

using DbusHelper::Codec;
using DbusHelper::Sequence;
using std::string;
using Strings = std::vector<string>;

enum class Number : int32_t
{
    One = 1,
};
enum class Small : uint8_t
{
};

struct Record
{
    bool flag = false;
    int32_t number = 0;
    string text;
};
auto Fields(Record& record) { return std::tie(record.flag, record.number, record.text); }
auto Fields(const Record& record) { return std::tie(record.flag, record.number, record.text); }

TEST(Codec, SignaturesFollowFromTypes)
{
    EXPECT_EQ(Codec<bool>::signature.View(), "b");
    EXPECT_EQ(Codec<uint8_t>::signature.View(), "y");
    EXPECT_EQ(Codec<int16_t>::signature.View(), "n");
    EXPECT_EQ(Codec<uint16_t>::signature.View(), "q");
    EXPECT_EQ(Codec<int32_t>::signature.View(), "i");
    EXPECT_EQ(Codec<uint32_t>::signature.View(), "u");
    EXPECT_EQ(Codec<int64_t>::signature.View(), "x");
    EXPECT_EQ(Codec<uint64_t>::signature.View(), "t");
    EXPECT_EQ(Codec<double>::signature.View(), "d");
    EXPECT_EQ(Codec<string>::signature.View(), "s");
    EXPECT_EQ(Codec<Number>::signature.View(), "i");
    EXPECT_EQ(Codec<Small>::signature.View(), "y");
    EXPECT_EQ(Codec<Strings>::signature.View(), "as");
    EXPECT_EQ(Codec<std::vector<Strings>>::signature.View(), "aas");
    EXPECT_EQ(Codec<Record>::signature.View(), "(bis)");
    EXPECT_EQ(Codec<std::vector<Record>>::signature.View(), "a(bis)");
    EXPECT_EQ((Codec<std::pair<bool, bool>>::signature.View()), "(bb)");
    EXPECT_EQ((Codec<std::tuple<int32_t, int32_t, string, int32_t, string>>::signature.View()), "(iisis)");
    EXPECT_EQ((Codec<std::tuple<string, Strings, string, Strings>>::signature.View()), "(sassas)");
}

TEST(Codec, SignaturesOfTheVideoAndStorageDaemonsMembers)
{
    EXPECT_EQ((Sequence<string, string, string, uint32_t, uint32_t, uint32_t>::signature.View()), "sssuuu");
    EXPECT_EQ((Sequence<string, uint32_t, uint32_t, uint32_t>::signature.View()), "suuu");
    EXPECT_EQ((Sequence<string, double>::signature.View()), "sd");
    EXPECT_EQ((Sequence<bool, bool, bool, double, int64_t, int64_t>::signature.View()), "bbbdxx");
    EXPECT_EQ((Sequence<string, bool>::signature.View()), "sb");
    EXPECT_EQ((Sequence<uint8_t, bool>::signature.View()), "yb");
    EXPECT_EQ((Sequence<string, string>::signature.View()), "ss");
    EXPECT_EQ(Sequence<>::signature.View(), "");
}

/// The value as it comes back; the message must have the value's own signature.
template <typename T>
T RoundTrip(const T& value)
{
    TestMessage message;
    message.Add(value);
    EXPECT_EQ(message.Signature(), Codec<T>::signature.View());
    T read{};
    EXPECT_GT(Codec<T>::Read(message.Read(), read), 0);
    return read;
}

template <typename T>
void ExpectLimitsKept()
{
    EXPECT_EQ(RoundTrip(std::numeric_limits<T>::min()), std::numeric_limits<T>::min());
    EXPECT_EQ(RoundTrip(std::numeric_limits<T>::max()), std::numeric_limits<T>::max());
}

TEST(Codec, NumbersKeepTheirLimits)
{
    ExpectLimitsKept<uint8_t>();
    ExpectLimitsKept<int16_t>();
    ExpectLimitsKept<uint16_t>();
    ExpectLimitsKept<int32_t>();
    ExpectLimitsKept<uint32_t>();
    ExpectLimitsKept<int64_t>();
    ExpectLimitsKept<uint64_t>();
    ExpectLimitsKept<double>();
    EXPECT_EQ(RoundTrip(-std::numeric_limits<double>::infinity()), -std::numeric_limits<double>::infinity());
}

TEST(Codec, BooleansAreWideOnTheBusOnly)
{
    EXPECT_TRUE(RoundTrip(true));
    EXPECT_FALSE(RoundTrip(false));
}

TEST(Codec, EnumerationsPassUnknownValuesThrough)
{
    EXPECT_EQ(RoundTrip(Number::One), Number::One);
    EXPECT_EQ(RoundTrip(static_cast<Number>(-12345)), static_cast<Number>(-12345));
    EXPECT_EQ(RoundTrip(static_cast<Small>(255)), static_cast<Small>(255));
}

TEST(Codec, TextsAndLists)
{
    EXPECT_EQ(RoundTrip(string()), "");
    EXPECT_EQ(RoundTrip(string("d\xC3\xBCse %s \"")), "d\xC3\xBCse %s \"");
    EXPECT_EQ(RoundTrip(string(100000, 'x')), string(100000, 'x'));
    EXPECT_EQ(RoundTrip(Strings{}), Strings{});
    EXPECT_EQ(RoundTrip(Strings{"b", "", "a"}), (Strings{"b", "", "a"}));
    const std::vector<Strings> nested{{}, {"a"}, {"b", "c"}};
    EXPECT_EQ(RoundTrip(nested), nested);
    const std::vector<int32_t> numbers(10000, -7);
    EXPECT_EQ(RoundTrip(numbers), numbers);
}

TEST(Codec, StructuresPairsAndRecords)
{
    const std::tuple<int32_t, std::tuple<string>, Strings> structure{-1, {"inner"}, {"x", "y"}};
    EXPECT_EQ(RoundTrip(structure), structure);
    const std::pair<bool, int32_t> pair{true, 9};
    EXPECT_EQ(RoundTrip(pair), pair);
    const Record record = RoundTrip(Record{true, -5, "text"});
    EXPECT_EQ(Fields(record), std::make_tuple(true, -5, "text"));
    const auto records = RoundTrip(std::vector<Record>{{true, 1, "a"}, {false, 2, ""}});
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[1].number, 2);
}

TEST(Codec, TextThatIsNoUtf8CannotBeWritten)
{
    TestMessage message;
    EXPECT_EQ(Codec<string>::Append(message.Get(), "\xFF\xFE"), -EINVAL);
}

TEST(Codec, TextWithAZeroByteCannotBeWritten)
{
    const string cut("Ber\0lin", 7);
    for (const string& text : {cut, string(1, '\0'), "Berlin" + string(1, '\0')})
    {
        TestMessage message;
        EXPECT_EQ(Codec<string>::Append(message.Get(), text), -EINVAL);
    }
    TestMessage list;
    EXPECT_EQ(Codec<Strings>::Append(list.Get(), {"whole", cut}), -EINVAL);
    TestMessage record;
    EXPECT_EQ(Codec<Record>::Append(record.Get(), Record{true, 1, cut}), -EINVAL);
    TestMessage sequence;
    const std::tuple<int32_t, string> values{1, cut};
    EXPECT_EQ((Sequence<int32_t, string>::Append(sequence.Get(), values)), -EINVAL);
}

TEST(Sequence, ReadsInOrder)
{
    TestMessage message;
    message.Add(true, 5, string("x"), Strings{"y"});
    std::tuple<bool, int32_t, string, Strings> values;
    EXPECT_GT((Sequence<bool, int32_t, string, Strings>::Read(message.Read(), values)), 0);
    EXPECT_EQ(values, std::make_tuple(true, 5, "x", Strings{"y"}));
}

TEST(Sequence, AMissingValueIsAFailure)
{
    TestMessage message;
    message.Add(5);
    std::tuple<int32_t, string> values{1, "before"};
    EXPECT_EQ((Sequence<int32_t, string>::Read(message.Read(), values)), -ENXIO);
    EXPECT_EQ(std::get<1>(values), "before");

    TestMessage empty;
    std::tuple<bool> flag;
    EXPECT_EQ(Sequence<bool>::Read(empty.Read(), flag), -ENXIO);
}

TEST(Sequence, NothingToReadIsNoFailure)
{
    TestMessage message;
    std::tuple<> none;
    EXPECT_GE(Sequence<>::Read(message.Read(), none), 0);
}

template <typename T>
void ExpectRefused(TestMessage& message)
{
    T value{};
    EXPECT_EQ(Codec<T>::Read(message.Read(), value), -ENXIO) << Codec<T>::signature.c_str();
}

TEST(Codec, AnotherTypeIsAFailure)
{
    TestMessage number;
    number.Add(5);
    ExpectRefused<bool>(number);
    ExpectRefused<uint32_t>(number);
    ExpectRefused<int64_t>(number);
    ExpectRefused<double>(number);
    ExpectRefused<string>(number);
    ExpectRefused<Strings>(number);
    ExpectRefused<Small>(number);
    ExpectRefused<std::tuple<int32_t>>(number);
    ExpectRefused<std::pair<int32_t, int32_t>>(number);
    ExpectRefused<Record>(number);

    TestMessage list;
    list.Add(std::vector<int32_t>{1});
    ExpectRefused<Strings>(list);
    ExpectRefused<int32_t>(list);

    TestMessage structure;
    structure.Add(std::tuple(1, string("x")));
    ExpectRefused<std::tuple<int32_t, int32_t>>(structure);
    ExpectRefused<std::tuple<int32_t>>(structure);
    ExpectRefused<Record>(structure);
}

} // namespace
