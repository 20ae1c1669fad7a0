#pragma once

#include <string>
#include <string_view>
#include <unicode/unistr.h>
#include <vector>

// Unicode text helpers over ICU. Everything works on UTF-8; "character" means a user-perceived
// character (an extended grapheme cluster), the unit in which abbreviations and buffers are
// counted.
namespace quillet::text {

/// The grapheme clusters of s, in order, as views into s.
std::vector<std::string_view> graphemes(std::string_view s);

/// The number of grapheme clusters in s.
std::size_t graphemeCount(std::string_view s);

/// The byte length of the last grapheme cluster of s (0 for an empty s).
std::size_t lastGraphemeSize(std::string_view s);

/// The first code point of s (U+FFFD for invalid UTF-8, 0 for an empty s).
char32_t firstCodePoint(std::string_view s);

/// True when the character is Unicode whitespace or in a punctuation category (Pc Pd Ps Pe Pi Pf
/// Po). Symbols such as '+' or '$' are not delimiters.
bool isDelimiter(std::string_view character);

/// True when the character is Unicode whitespace (White_Space property of its first code point).
bool isWhitespace(std::string_view character);

/// True when the character is a letter (Unicode Alphabetic property of its first code point).
bool isLetter(std::string_view character);

/// True when the character is a letter or a decimal digit.
bool isLetterOrDigit(std::string_view character);

/// True when the character's first code point is upper case.
bool isUppercase(std::string_view character);

/// Full Unicode lower-casing (root locale).
std::string toLower(std::string_view s);

/// Full Unicode upper-casing (root locale).
std::string toUpper(std::string_view s);

/// The canonical composition (NFC) of s; s itself when it already is.
std::string nfc(std::string_view s);

/// True when s is already in NFC (cheap for ASCII).
bool isNfc(std::string_view s);

/// s with invalid UTF-8 sequences replaced by U+FFFD.
std::string repairUtf8(std::string_view s);

/// True when s is well-formed UTF-8.
bool isValidUtf8(std::string_view s);

/// s when it has at most `characters` characters; otherwise as many of its first words as fit
/// (the first word cut short when even it does not), followed by "\u2026".
std::string clip(std::string_view s, std::size_t characters);

/// The value of an ASCII hexadecimal digit (either case); -1 for any other character.
int hexDigit(char c);

/// s as ICU's UTF-16 string, for the ICU services that need one.
icu::UnicodeString toIcu(std::string_view s);

/// An ICU string as UTF-8.
std::string fromIcu(const icu::UnicodeString& s);

} // namespace quillet::text
