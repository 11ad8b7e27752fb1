// calendar: moments as text and as days.
#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace report {

/// Days of a mean month, in which drifts are told.
inline constexpr double days_of_month = 365.25 / 12;

/// A moment as days since 1970-01-01 00:00 UTC.
/// given    text  "2026-03-04", "2026-03-04 12:30", "2026-03-04T12:30:05+01:00" or with Z; without
///                an offset the moment counts as UTC
/// returns  nothing for any other text, and for a date that no calendar has
std::optional<double> day_of(std::string_view text);

/// "2026-03-04" and "2026-03-04 12:30", in UTC.
std::string date_text(double day);
std::string minute_text(double day);
/// "2026-03-04T12:30:05Z".
std::string iso_text(double day);

}  // namespace report
