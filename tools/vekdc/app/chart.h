// Tables and charts of what was measured.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "tools/vekdc/app/measure.h"

namespace vekdc {

void printHead();
/// A line of a table; `note` stands at its end.
void printRow(const Measured& row, const std::string& note = "");
/// The same as comma-separated values, the names of the columns first.
void printCsv(const std::vector<Measured>& rows);
/// Two bars a row on the terminal: how small, and how fast on a scale where each doubling counts
/// alike.
void printChart(const std::vector<Measured>& rows);
/// A picture of ratio over speed, drawn by gnuplot, PNG or SVG by the name's suffix. Throws a
/// Failure where gnuplot is not there or fails.
void drawPlot(const std::vector<Measured>& rows, const std::string& path);

}  // namespace vekdc
