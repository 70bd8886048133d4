#include "NumberRange.h"

#include <fmt/format.h>

CLI::Validator NumberBetween(double least, double most, const std::string& unit) {
    return {[=](std::string& text) -> std::string {
                double value = 0;
                // No comparison holds for a value that is not a number.
                if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
                    return "";
                }
                return fmt::format("'{}' is not from {:g} to {:.0f} {}", text, least, most, unit);
            },
            fmt::format("[{:g} - {:.0f} {}]", least, most, unit)};
}
