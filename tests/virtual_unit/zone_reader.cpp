// Looks at time zones as the daemon does and answers each line on standard input with one on standard output:
//
//   list FOLDER         its entries that are regular files or links to them, sorted
//   islink PATH         1 for a link, else 0
//   localtime SECONDS   the local time, its seconds from UTC and its daylight saving flag
//   localtime_r SECONDS the same by the call that does not look at the zone again
//   mktime TIME         the seconds of a local time like 2026-03-01T12:00:00, standard or not

#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

namespace
{

std::string List(const std::string& folder)
{
    std::error_code error;
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    {
        if (entry.is_regular_file(error))
        {
            names.insert(entry.path().filename());
        }
    }
    std::ostringstream out;
    for (const std::string& name : names)
    {
        out << name << ' ';
    }
    return out.str();
}

std::string Text(const std::tm& local)
{
    std::ostringstream out;
    out << std::put_time(&local, "%Y-%m-%dT%H:%M:%S") << ' ' << local.tm_gmtoff << ' ' << local.tm_isdst;
    return out.str();
}

std::string Answer(const std::string& request, const std::string& argument)
{
    if (request == "list")
    {
        return List(argument);
    }
    if (request == "islink")
    {
        return std::to_string(static_cast<int>(std::filesystem::is_symlink(argument)));
    }
    std::tm local{};
    if (request == "mktime")
    {
        std::istringstream(argument) >> std::get_time(&local, "%Y-%m-%dT%H:%M:%S");
        local.tm_isdst = -1;
        return std::to_string(std::mktime(&local));
    }
    const std::time_t seconds = std::stol(argument);
    return Text(request == "localtime" ? *std::localtime(&seconds) : *localtime_r(&seconds, &local));
}

} // namespace

int main()
{
    std::string request;
    std::string argument;
    while (std::cin >> request >> argument)
    {
        std::cout << Answer(request, argument) << std::endl;
    }
}
