// Fixed-width fields: every fixed-width number and text of every file and table is made here.
//
// Rounding, fixed and exponent form alike: the shortest decimal text that reads back as the same
// number is rounded half away from zero, so 1.2345 gives 0.1235D+01. A number too wide for its
// field fills it with asterisks; NaN and Infinity are right-justified words; three-digit exponents
// drop the letter (0.1235-100), so columns never shift. A negative number that rounds to zero keeps
// its sign; zero itself has none.
#pragma once
#include <string>
#include <string_view>

namespace util {

inline constexpr int real_width = 12;  ///< columns of a real number in files and tables
inline constexpr int real_digits = 4;  ///< its decimals (fixed) or significant digits (exponent)

/// Appends a fixed-point number: put_fixed(s, 1.5) appends "      1.5000".
void put_fixed(std::string& out, double value, int width = real_width, int decimals = real_digits);

/// Appends an exponent-form number: put_exponent(s, 1.2345) appends "  0.1235D+01".
void put_exponent(std::string& out, double value, int width = real_width, int digits = real_digits);

/// The same two with the usual width and digits, into real_width characters that are there already:
/// for tables of many numbers, whose lines are made where they go to the file from.
/// returns  the place behind the field
char* write_fixed(char* at, double value);
char* write_exponent(char* at, double value);

/// Appends a right-justified integer; asterisks when it does not fit.
void put_integer(std::string& out, long long value, int width);

/// Appends a text right-justified in its field; a longer text keeps its leftmost characters.
void put_text(std::string& out, std::string_view text, int width);

/// Appends n blanks.
void put_blanks(std::string& out, int n);

/// Appends a text left-justified, padded with blanks or cut to the width (blank-padded strings).
void put_padded(std::string& out, std::string_view text, int width);

}  // namespace util
