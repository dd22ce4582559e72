// Splits text the user is typing into its finished words, each with its
// position, and finds the word nearest to a cursor.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

/// The finished words of a text. Words are separated by white space and
/// punctuation (iswspace, iswpunct under the process's current locale),
/// except that "@" never separates and a "." inside a word that already
/// holds an "@" (neither first nor last) stays in the word when a
/// non-separator follows, so "ann@example.com" is one word. The word still
/// being typed, i.e. the last one when the text does not end with a
/// separator, is not reported.
///
/// Parsing empty text throws std::out_of_range("invalid string position"):
/// callers parse non-empty text only. The narrow constructor converts strict
/// UTF-8, so invalid UTF-8 becomes empty text and throws the same way.
class QIMMISC_API WordParser {
 public:
  /// One word and where it starts.
  struct TextElement {
    std::wstring text;         ///< the word
    std::int32_t reserved = 0; ///< always 0
    std::int32_t start = -1;   ///< index of its first character; -1 while empty
  };

  using iterator = std::vector<TextElement>::iterator;
  using const_iterator = std::vector<TextElement>::const_iterator;

  /// Empty text, no words.
  WordParser();
  /// Keeps a copy of `text` and parses it.
  explicit WordParser(const std::wstring& text);
  /// Converts `text` from UTF-8, keeps it and parses it.
  explicit WordParser(const std::string& text);
  WordParser(const WordParser& other);
  virtual ~WordParser();

  /// Copies the text and the words.
  WordParser& operator=(const WordParser& other);

  /// The words in text order.
  iterator begin() { return elements_.begin(); }
  iterator end() { return elements_.end(); }
  const_iterator begin() const { return elements_.begin(); }
  const_iterator end() const { return elements_.end(); }

  /// Whether there are no words.
  bool empty() const { return elements_.empty(); }

  /// Drops every word; the text stays.
  void clear() { elements_.clear(); }

  /// Same number of words with pairwise equal texts and starts; the texts
  /// parsed are not compared.
  bool operator==(const WordParser& other) const;

  /// The word nearest to `position`: the last word when `position` is at or
  /// past the end of the text, the first when it is at or before the first
  /// word's start, otherwise the last word starting at or before it. False,
  /// with `start` and `length` untouched, when there is no text or no word.
  bool nearestWord(int position, int& start, int& length) const;

  /// Whether `c` separates words: white space, or punctuation other than "@".
  static bool isDelimiter(wchar_t c);

 protected:
  /// Rebuilds the words from the text.
  void parseText();

 private:
  std::wstring text_;
  std::vector<TextElement> elements_;
};

}  // namespace QIM
