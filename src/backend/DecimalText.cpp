#include "backend/DecimalText.h"

#include <charconv>
#include <cmath>

namespace vocle {

std::string decimalText(double value) {
    if (!std::isfinite(value)) return std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (ec != std::errc()) return "0.0";
    std::string text(buffer, end);
    if (text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

}  // namespace vocle
