// Reader for string-resource files of key=value lines, the form the language
// files take.
//
// One entry per line; lines are separated by line feeds and read as bytes:
// - empty lines, lines starting with '#' and lines without '=' are skipped;
// - the key is every byte before the first '=', as it is (blanks included);
// - the value follows the first '=' with its leading spaces skipped; a line
//   whose value is then empty delivers nothing;
// - in the value "\n" becomes a line feed, "\t" a tab, and "\uXXXX" (four
//   hexadecimal digits, either case) the UTF-16 code unit XXXX. No other
//   escape exists: any other backslash stays, and a trailing one does not
//   continue the line.
//
// Decided here:
// - Bytes above 0x7F outside escapes are widened one byte to one character
//   of the same value (ISO 8859-1), as properties files always were: a file
//   needs "\u" escapes for anything beyond Latin-1, and UTF-8 in a value
//   arrives as one character per byte, never as an error.
// - A malformed "\u" (fewer than four hexadecimal digits after it) is not an
//   escape: its backslash and 'u' stay in the value as written.
// - Where wide strings are UTF-32 (Linux), a high-surrogate escape followed
//   at once by a low-surrogate escape becomes the one character they encode,
//   so the value means the same text on every platform; a lone surrogate
//   escape stays the code unit it names.
// - A carriage return before the line feed is kept (the caller opens the
//   stream in text mode, or strips it from the value, if it wants it gone).
#pragma once

#include <istream>
#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// Receives the entries of a resource file, in file order.
class QIMMISC_API IJavaResourceSink {
 public:
  /// One entry: `key` as the file's bytes, `value` decoded. Returns false to
  /// end the parse at once.
  virtual bool addResource(const std::string& key, const std::wstring& value) = 0;
  virtual ~IJavaResourceSink() = default;
};

/// Reads `input` to its end (or failure), handing each entry to `sink`.
/// Returns true, or false as soon as the sink refuses an entry; the stream
/// may then have been read beyond that entry's line.
QIMMISC_API bool parseJavaResources(std::istream& input, IJavaResourceSink& sink);

}  // namespace QIM
