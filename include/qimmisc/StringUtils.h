// Text helpers shared by every module: conversions between wide text and
// UTF-8 or a code page, trimming, case folding, splitting and strict number
// parsing.
//
// Wide text (std::wstring) is UTF-16 on Windows and UTF-32 on Linux. Most
// helpers come as a wide form and a narrow twin of the same name; the narrow
// twin works on bytes (char values taken as unsigned char). Lengths are
// always explicit, so embedded NUL characters are ordinary characters. No
// function here throws on bad text: a failed conversion writes an ERROR line
// and returns an empty result, a failed parse returns false.
//
// Case folding is per character through towlower/towupper (wide) or
// tolower/toupper (narrow), so it follows the C library's current LC_CTYPE
// and never folds one character into several.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

// ---- Encoding conversions ---------------------------------------------------

/// Converts wide text to UTF-8. Lone or misordered surrogates (and, on
/// Linux, values above U+10FFFF) make the whole conversion fail: the line
/// "WCToMB returned 0. lasterror:<code>" goes to ERROR and the result is
/// empty. Empty input gives empty output.
QIMMISC_API std::string toUtf8(const std::wstring& wide);

/// Converts UTF-8 to wide text. Any malformed sequence (overlong form,
/// encoded surrogate, value above U+10FFFF, truncated sequence, stray
/// continuation byte) makes the whole conversion fail: the line
/// "MBToWC returned 0. lasterror:<code>" goes to ERROR and the result is
/// empty. A leading byte-order mark is kept as U+FEFF.
QIMMISC_API std::wstring fromUtf8(const std::string& utf8);

/// Converts each element with fromUtf8; an element that fails becomes an
/// empty string at the same position.
QIMMISC_API std::vector<std::wstring> fromUtf8(const std::vector<std::string>& utf8);

/// Converts wide text to the given Windows code page number (0 is the
/// system's active code page, 65001 is UTF-8 and behaves exactly like
/// toUtf8). A character the code page cannot represent fails the conversion
/// rather than being replaced by '?' or a look-alike. Failures, including a
/// code page the platform does not know, write an ERROR line and return
/// empty. On Linux, code page numbers map to iconv character sets and 0 is
/// the character set of the process's current locale.
QIMMISC_API std::string toCodePage(const std::wstring& wide, unsigned int codePage);

/// Converts text in the given code page to wide text; byte sequences that
/// are invalid in the code page fail the conversion. Otherwise as toCodePage.
QIMMISC_API std::wstring fromCodePage(const std::string& text, unsigned int codePage);

/// toCodePage with the active code page (code page 0).
QIMMISC_API std::string toCurrentCodePage(const std::wstring& wide);

/// fromCodePage with the active code page (code page 0).
QIMMISC_API std::wstring fromCurrentCodePage(const std::string& text);

// ---- White space and case -----------------------------------------------------

/// Returns `text` without its leading and trailing white space (iswspace /
/// isspace); empty when nothing else is left.
QIMMISC_API std::string trim(const std::string& text);
QIMMISC_API std::wstring trim(const std::wstring& text);

/// True when every character is white space; true for empty text.
QIMMISC_API bool isWhitespaceOnly(const std::string& text);
QIMMISC_API bool isWWhitespaceOnly(const std::wstring& text);

/// Folds every character of `text` to lower case, in place.
QIMMISC_API void lowercase(std::string& text);
QIMMISC_API void lowercase(std::wstring& text);

/// Folds every character of `text` to upper case, in place.
QIMMISC_API void uppercase(std::string& text);
QIMMISC_API void uppercase(std::wstring& text);

// ---- Comparisons ------------------------------------------------------------------

/// True when both texts have the same length and are equal after folding
/// each character to lower case.
QIMMISC_API bool equalsIgnoreCase(const std::string& a, const std::string& b);
QIMMISC_API bool equalsIgnoreCase(const std::wstring& a, const std::wstring& b);

/// Three-way comparison of the first `n` characters of each text (fewer when
/// a text is shorter) after folding to lower case: negative, zero or
/// positive as for std::basic_string::compare, so narrow text compares as
/// unsigned bytes. ("ABCx", "abcy", 3) is 0.
QIMMISC_API int stringCompareIgnoreCase(const std::string& a, const std::string& b,
                                        std::size_t n);
QIMMISC_API int stringCompareIgnoreCase(const std::wstring& a, const std::wstring& b,
                                        std::size_t n);

/// True when `text` begins with `prefix`; an empty prefix always matches.
QIMMISC_API bool stringStartsWith(const std::string& text, const std::string& prefix);
QIMMISC_API bool stringStartsWith(const std::wstring& text, const std::wstring& prefix);

/// stringStartsWith after folding both texts to lower case.
QIMMISC_API bool stringStartsWithIgnoreCase(const std::string& text,
                                            const std::string& prefix);
QIMMISC_API bool stringStartsWithIgnoreCase(const std::wstring& text,
                                            const std::wstring& prefix);

/// True when `text` ends with `suffix`; an empty suffix always matches.
QIMMISC_API bool stringEndsWith(const std::string& text, const std::string& suffix);
QIMMISC_API bool stringEndsWith(const std::wstring& text, const std::wstring& suffix);

/// stringEndsWith after folding both texts to lower case.
QIMMISC_API bool stringEndsWithIgnoreCase(const std::string& text,
                                          const std::string& suffix);
QIMMISC_API bool stringEndsWithIgnoreCase(const std::wstring& text,
                                          const std::wstring& suffix);

/// True when `needle` occurs in `text`; an empty needle always occurs.
QIMMISC_API bool stringContains(const std::string& text, const std::string& needle);
QIMMISC_API bool stringContains(const std::wstring& text, const std::wstring& needle);

/// stringContains after folding both texts to lower case.
QIMMISC_API bool stringContainsIgnoreCase(const std::string& text,
                                          const std::string& needle);
QIMMISC_API bool stringContainsIgnoreCase(const std::wstring& text,
                                          const std::wstring& needle);

// ---- Splitting ----------------------------------------------------------------------

/// Splits `text` at every occurrence of `delimiter`, scanning left to right
/// without overlap. Touching delimiters, and a delimiter at either end, give
/// empty pieces: "a,,b," at "," is {"a", "", "b", ""}. Empty text or an
/// empty delimiter gives no pieces at all.
QIMMISC_API std::vector<std::string> tokenizeString(const std::string& text,
                                                    const std::string& delimiter);
QIMMISC_API std::vector<std::wstring> tokenizeString(const std::wstring& text,
                                                     const std::wstring& delimiter);

// ---- Numbers ------------------------------------------------------------------------

/// Parses the whole of `text` as a long in `base` (0, or 2 to 36, as for
/// strtol: leading white space and a sign are accepted, "0x" is accepted
/// for bases 0 and 16). Returns false when anything is left over (trailing
/// white space and embedded NULs included) or the value is out of range; the
/// value strtol produced is stored in *dest either way. Empty text is
/// accepted as 0, which existing callers rely on. A null `dest` or a base
/// outside the range is an assertion and returns false without storing.
QIMMISC_API bool stringToLong(const std::string& text, long* dest, int base);
QIMMISC_API bool stringToLong(const std::wstring& text, long* dest, int base);

/// Parses the whole of `text` as a double with strtod (so the decimal point
/// follows the current LC_NUMERIC; "C" uses '.'). Returns false when
/// anything is left over, and also when strtod reports ERANGE: overflow and
/// underflow are both rejected, so callers never get HUGE_VAL or a value
/// that lost its precision. The value strtod produced is stored either way.
/// Empty text is accepted as 0. A null `dest` is an assertion and returns
/// false.
QIMMISC_API bool stringToDouble(const std::string& text, double* dest);

// ---- Formatting ---------------------------------------------------------------------

/// "true" or "false".
QIMMISC_API std::string boolToString(bool value);
QIMMISC_API std::wstring boolToWString(bool value);

/// The decimal form of `value`, with a leading '-' when negative.
QIMMISC_API std::string intToString(long long value);
QIMMISC_API std::wstring intToWString(long long value);

}  // namespace QIM
