#include "time/TimezoneTable.h"

#include <algorithm>
#include <array>

namespace ControllerDaemon
{
namespace
{

// Positions and offsets are what the units have always used, also where a gazetteer would differ: Alaska and Istanbul
// carry another zone's position, three zones of the USA lie at 0, 0, and Omsk and Lord_Howe have odd offsets. They
// decide which zone is nearest and which matches an offset.
// clang-format off
constexpr std::array<TimezoneEntry, 70> rows{{
    {"Adelaide", {"Australia", -34.935, 138.6, 34200}},
    {"Alaska", {"USA", -34.935, 138.6, -32400}},
    {"Amsterdam", {"Netherlands", 52.35, 4.9166, 3600}},
    {"Araguaina", {"Brazil", -7.19, -48.21, -10800}},
    {"Arizona", {"USA", 32.1545, -110.8782, -25200}},
    {"Ashgabat", {"Turkmenistan", 37.95, 58.3833, 18000}},
    {"Athens", {"Greece", 37.9833, 23.7333, 7200}},
    {"Atlantic", {"USA", 31.666664, -64.166666, -14400}},
    {"Auckland", {"New Zealand", -36.8481, 174.763, 43200}},
    {"Azores", {"Portugal", 38.6504, -27.2167, -3600}},
    {"Baghdad", {"Iraq", 33.3386, 44.3939, 10800}},
    {"Baja_Norte", {"Mexico", 27.9904, -114.17, -28800}},
    {"Baja_Sur", {"Mexico", 24.14, -110.32, -25200}},
    {"Baku", {"Azerbaijan", 40.3953, 49.8622, 14400}},
    {"Bangkok", {"Thailand", 13.75, 100.5166, 25200}},
    {"Berlin", {"Germany", 52.5218, 13.4015, 3600}},
    {"Bogota", {"Colombia", 4.5964, -74.0833, -18000}},
    {"Brisbane", {"Australia", -27.455, 153.0351, 36000}},
    {"Buenos_Aires", {"Argentina", -38.0, -57.58, -10800}},
    {"Cairo", {"Egypt", 30.05, 31.25, 7200}},
    {"Caracas", {"Venezuela", 10.501, -66.917, -16200}},
    {"Cayenne", {"French Guiana", 4.933, -52.33, -10800}},
    {"Central", {"USA", 0.0, 0.0, -21600}},
    {"Chatham", {"New Zealand", -44.0263, -176.3696, 45900}},
    {"Chihuahua", {"Mexico", 28.645, -106.085, -25200}},
    {"Denver", {"USA", 39.7621, -104.8759, -25200}},
    {"Dhaka", {"Bangladesh", 23.7231, 90.4086, 21600}},
    {"Dublin", {"Ireland", 53.3331, -6.2489, 0}},
    {"Eastern", {"USA", 0.0, 0.0, -18000}},
    {"Eucla", {"Australia", -31.675, 128.883, 31500}},
    {"Guam", {"", 13.4745, 144.7504, 36000}},
    {"Hawaii", {"USA", 21.3294, -157.846, -36000}},
    {"Helsinki", {"Finland", 60.1756, 24.9341, 7200}},
    {"Hong_Kong", {"China", 22.305, 114.185, 28800}},
    {"Istanbul", {"Turkey", 22.305, 114.185, 10800}},
    {"Jerusalem", {"Israel", 31.7784, 35.2066, 7200}},
    {"Kabul", {"Afghanistan", 34.5167, 69.1833, 16200}},
    {"Karachi", {"Pakistan", 24.87, 66.99, 18000}},
    {"Kathmandu", {"Nepal", 27.7167, 85.3166, 20700}},
    {"Kolkata", {"India", 22.495, 88.3247, 19800}},
    {"Lima", {"Peru", -12.048, -77.0501, -18000}},
    {"Lisbon", {"Portugal", 38.7227, -9.1449, 0}},
    {"London", {"England", 42.97, -81.25, 0}},
    {"Lord_Howe", {"Australia", -31.5499978, 159.083333, 1030}},
    {"Los_Angeles", {"USA", 34.1139, -118.4068, -28800}},
    {"Madrid", {"Spain", 40.4, -3.6834, 3600}},
    {"Marquesas", {"Polynesia", -9.452664856, -139.38666512, -34200}},
    {"Mazatlan", {"Mexico", 23.2211, -106.42, -25200}},
    {"Mexico_City", {"Mexico", 19.4424, -99.131, -21600}},
    {"Monterrey", {"Mexico", 25.67, -100.33, -21600}},
    {"Moscow", {"Russia", 46.7307, -116.9986, 10800}},
    {"Mountain", {"USA", 0.0, 0.0, -25200}},
    {"Mumbai", {"India", 19.017, 72.857, 19800}},
    {"New_York", {"USA", 40.6501, -73.9496, -18000}},
    {"Newfoundland", {"Canada", 51.3837, -55.6, -12600}},
    {"Omsk", {"Russia", 54.99, 73.4, -21600}},
    {"Paris", {"France", 48.8667, 2.3333, 3600}},
    {"Perth", {"Australia", -31.955, 115.84, 28800}},
    {"Pyongyang", {"North Korea", 39.0194, 125.7547, 30600}},
    {"Rangoon", {"Myanmar", 16.7834, 96.1667, 23400}},
    {"Rio_Branco", {"Brazil", -9.9666, -67.8, -18000}},
    {"Rome", {"Italy", 41.896, 12.4833, 3600}},
    {"Samoa", {"", -13.8415, -171.7386, 46800}},
    {"San_Juan", {"Puerto Rico", -31.55, -68.52, -10800}},
    {"Santiago", {"Chile", 8.1004, -80.9833, -10800}},
    {"Saskatchewan", {"Canada", 53.2, -105.75, -21600}},
    {"Seoul", {"South Korea", 37.5663, 126.9997, 32400}},
    {"Tbilisi", {"Georgia", 41.725, 44.7908, 14400}},
    {"Tehran", {"Iran", 35.6719, 51.4243, 12600}},
    {"Yukon", {"Canada", 60.7167, -135.05, -28800}},
}};
// clang-format on

constexpr bool IsBefore(const TimezoneEntry& left, const TimezoneEntry& right) { return left.name < right.name; }
static_assert(std::is_sorted(rows.begin(), rows.end(), &IsBefore), "a tie between zones is decided by their names");

} // namespace

std::span<const TimezoneEntry> TimezoneTable() { return rows; }

} // namespace ControllerDaemon
