#pragma once

namespace keyferry {

// Tells whether a character is a number by the Unicode Numeric_Type property (decimal, digit or numeric),
// as of Unicode 15: the toolkit's number categories cover most of it, this adds the characters they miss
// (Han ideographs with a numeric value, such as 一, 二, 三, 萬, 壹, and numerals added in Unicode 15).
// Stateless; any thread.
class UnicodeNumerals {
public:
    UnicodeNumerals() = delete;

    static bool isNumber(char32_t character);
};

} // namespace keyferry
