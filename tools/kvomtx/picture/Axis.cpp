#include "Axis.h"

#include <cstdint>

std::vector<int> NumbersAtAxis(int first, int last, double length, double room)
{
    if (last < first)
        return {};
    double const perNumber = length / (static_cast<double>(last) - first + 1.0);
    std::int64_t step = 1;
    for (int k = 0; static_cast<double>(step) * perNumber < room && step <= last; ++k)
        step = k % 3 == 1 ? step / 2 * 5 : step * 2;
    std::vector<int> numbers{first};
    auto const fits = [&](std::int64_t number) { return static_cast<double>(number - numbers.back()) * perNumber >= room; };
    for (std::int64_t number = (first / step + 1) * step; number < last; number += step)
        if (fits(number) && static_cast<double>(last - number) * perNumber >= room)
            numbers.push_back(static_cast<int>(number));
    if (fits(last))
        numbers.push_back(last);
    return numbers;
}
