#pragma once

#include <string>

namespace vocle {

// The shortest text that reads back as the same double, always with a fraction: 1 -> "1.0",
// 48000 -> "48000.0", 0.25 -> "0.25". The log lines print their delays and rates this way.
std::string decimalText(double value);

}  // namespace vocle
