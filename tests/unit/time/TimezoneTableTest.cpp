// The daemon's table of zones against the one of the virtual unit, which was written on its own and makes the unit's
// zone files: a slip in either shows as a difference.

#include "time/TimezoneTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace
{

using ControllerDaemon::TimezoneEntry;
using ControllerDaemon::TimezoneTable;

struct Row
{
    std::string name;
    std::string country;
    double latitude = 0;
    double longitude = 0;
    int offset = 0;

    bool operator==(const Row&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Row& row)
{
    out.precision(17);
    return out << row.name << ", '" << row.country << "', " << row.latitude << ", " << row.longitude << ", "
               << row.offset;
}

Row RowOf(const TimezoneEntry& entry)
{
    const auto& record = entry.record;
    return {std::string(entry.name), std::string(record.country), record.latitude, record.longitude, record.offset};
}

/// The rows of the file, which has a line of headings and tabs between the fields.
std::vector<Row> RowsOfTheUnit()
{
    std::ifstream file(CCU_ZONE_TABLE);
    std::string line;
    std::getline(file, line);
    std::vector<Row> rows;
    while (std::getline(file, line))
    {
        std::istringstream fields(line);
        Row row;
        std::getline(fields, row.name, '\t');
        std::getline(fields, row.country, '\t');
        fields >> row.latitude >> row.longitude >> row.offset;
        EXPECT_TRUE(fields && (fields >> std::ws).eof()) << line;
        rows.push_back(row);
    }
    return rows;
}

TEST(TimezoneTable, HasTheRowsOfTheUnit)
{
    const std::vector<Row> expected = RowsOfTheUnit();
    const auto table = TimezoneTable();
    ASSERT_EQ(expected.size(), 70U);
    ASSERT_EQ(table.size(), expected.size());
    for (size_t index = 0; index < expected.size(); ++index)
    {
        EXPECT_EQ(RowOf(table[index]), expected[index]);
    }
}

TEST(TimezoneTable, IsInTheOrderOfTheNames)
{
    const auto table = TimezoneTable();
    const auto notAscending = [](const TimezoneEntry& one, const TimezoneEntry& next) { return one.name >= next.name; };
    const auto wrong = std::adjacent_find(table.begin(), table.end(), notAscending);
    EXPECT_TRUE(wrong == table.end()) << wrong->name;
}

} // namespace
