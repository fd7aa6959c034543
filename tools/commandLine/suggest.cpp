#include "suggest.h"

#include <algorithm>
#include <cctype>

namespace commandLine {

namespace {

// Letters that are missing, needless, wrong or exchanged with their neighbour.
std::size_t mistakes(const std::string& one, const std::string& other) {
    std::vector<std::vector<std::size_t>> cost(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t wrong = one[i - 1] == other[j - 1] ? 0 : 1;
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + wrong});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost.back().back();
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
    return text;
}

} // namespace

std::string suggest(const std::string& word, const std::vector<std::string>& known) {
    constexpr std::size_t LONGEST = 30; // no word of ours is longer
    const std::string* best = nullptr;
    std::size_t fewest = word.size() < 3 ? 1 : word.size() < 7 ? 2 : 3;
    for (const std::string& each : known) {
        if (each == word)
            return "";
        const std::size_t wrong = word.size() > LONGEST ? LONGEST : mistakes(lower(word), each);
        if (wrong <= fewest && wrong < each.size() && (best == nullptr || wrong < fewest)) {
            best = &each;
            fewest = wrong;
        }
    }
    return best != nullptr ? "; did you mean \"" + *best + "\"?" : "";
}

} // namespace commandLine
