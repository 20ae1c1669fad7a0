#pragma once

#include <string>

namespace quillet::bench {

/// The median real time, in the benchmark's unit, of the benchmark run under name; 0 when absent.
double median(const std::string& name);

/// Prints one figure as the line "name: value unit", the form scripts/bench collects.
void figure(const std::string& name, double value, const std::string& unit);

/// Called once all benchmarks have run: prints the group's figures. Defined by each group.
void report();

} // namespace quillet::bench
