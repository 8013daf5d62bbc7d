#include "controllerctl/Suggestions.h"

#include <algorithm>
#include <cctype>

namespace ControllerCtl
{
namespace
{

/// As names are compared: in small letters, with "_" for blanks.
std::string Folded(std::string_view name)
{
    std::string folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](unsigned char character) {
        return character == ' ' ? '_' : static_cast<char>(std::tolower(character));
    });
    return folded;
}

/// How many letters have to be put in, left out, changed, or swapped with the next one.
size_t Distance(const std::string& from, const std::string& to)
{
    std::vector<std::vector<size_t>> cost(from.size() + 1, std::vector<size_t>(to.size() + 1));
    for (size_t row = 0; row <= from.size(); ++row)
    {
        for (size_t column = 0; column <= to.size(); ++column)
        {
            if (row == 0 || column == 0)
            {
                cost[row][column] = row + column;
                continue;
            }
            const size_t change = from[row - 1] == to[column - 1] ? 0 : 1;
            cost[row][column] =
                std::min({cost[row - 1][column] + 1, cost[row][column - 1] + 1, cost[row - 1][column - 1] + change});
            const bool swapped =
                row > 1 && column > 1 && from[row - 1] == to[column - 2] && from[row - 2] == to[column - 1];
            cost[row][column] =
                std::min(cost[row][column], swapped ? cost[row - 2][column - 2] + 1 : std::string::npos);
        }
    }
    return cost[from.size()][to.size()];
}

} // namespace

bool AlikeNames(std::string_view one, std::string_view other) { return Folded(one) == Folded(other); }

std::string Meant(const std::string& word, const std::vector<std::string>& words)
{
    constexpr size_t longest = 64; // no slip of the fingers
    std::string best;
    size_t least = word.size() > longest ? 0 : std::min<size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : words)
    {
        const size_t slips = candidate.size() > longest ? least : Distance(Folded(word), Folded(candidate));
        if (slips < least)
        {
            least = slips;
            best = candidate;
        }
    }
    return best;
}

void Suggest(Answer& answer, const std::string& word, const std::vector<std::string>& words)
{
    const std::string meant = Meant(word, words);
    if (!meant.empty())
    {
        answer.messages.push_back("did you mean \"" + meant + "\"?");
    }
}

} // namespace ControllerCtl
