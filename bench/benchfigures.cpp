#include "benchfigures.h"

#include <algorithm>
#include <cstdio>

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(fraction * double(values.size() - 1) + 0.5));
    return values[index];
}

void printFigure(int labelWidth, const char* what, double value, const char* unit, double goal)
{
    if (goal > 0.0)
        std::printf("%-*s %10.3f %s   goal %.0f %s, ratio %.3f\n", labelWidth, what, value, unit, goal, unit,
                    value / goal);
    else
        std::printf("%-*s %10.3f %s\n", labelWidth, what, value, unit);
    std::fflush(stdout);
}
