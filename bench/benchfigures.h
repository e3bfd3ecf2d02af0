#pragma once

#include <vector>

// The value at `fraction` (0..1) of the sorted values, by nearest rank: 0.5 is the median, 1.0 the
// largest. 0 when there are no values.
double percentile(std::vector<double> values, double fraction);

// One figure on a line of its own, its label padded to labelWidth columns so a benchmark's figures
// line up. With a goal, the goal and the ratio value/goal follow.
void printFigure(int labelWidth, const char* what, double value, const char* unit, double goal = 0.0);
