#include "platform/json/json.h"

#include <algorithm>
#include <array>
#include <string_view>

// Of longer keys only this much is compared.
static constexpr size_t COMPARED_MAX = 64;
using distance_table = std::array<std::array<int, COMPARED_MAX + 1>, COMPARED_MAX + 1>;

static char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The steps from the first `i` letters of one to the first `k` of the other, all shorter ones being known.
static int steps_to(const distance_table &steps, std::string_view one, std::string_view other, size_t i, size_t k)
{
    if (i == 0 || k == 0)
        return static_cast<int>(i + k);
    auto same = [&](size_t a, size_t b) { return lower(one[a]) == lower(other[b]); };
    int least = std::min({steps[i - 1][k] + 1, steps[i][k - 1] + 1, steps[i - 1][k - 1] + !same(i - 1, k - 1)});
    bool is_turned = i > 1 && k > 1 && same(i - 1, k - 2) && same(i - 2, k - 1);
    return is_turned ? std::min(least, steps[i - 2][k - 2] + 1) : least;
}

int json_key_distance(const char *a, const char *b)
{
    std::string_view one = a, other = b;
    one = one.substr(0, COMPARED_MAX);
    other = other.substr(0, COMPARED_MAX);
    distance_table steps;
    for (size_t i = 0; i <= one.size(); i++)
        for (size_t k = 0; k <= other.size(); k++)
            steps[i][k] = steps_to(steps, one, other, i, k);
    return steps[one.size()][other.size()];
}
