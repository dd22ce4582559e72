// Fuzz target for the word parser.
//
// The input is parsed as UTF-8 through the narrow constructor and, byte by
// byte as wide characters, through the wide one. Properties: empty text (and
// so invalid UTF-8) throws out_of_range and nothing else does; every word is
// non-empty, found in the text at its start, in increasing order, and holds
// no separator but a kept "."; the narrow and wide constructors agree; and
// nearestWord, at any position, returns one of the words.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "FuzzCheck.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/WordParser.h"

namespace {

using QIM::WordParser;
using QIM::fuzz::check;

bool parse(const std::wstring& text, WordParser& parser) {
  try {
    parser = WordParser(text);
    return true;
  } catch (const std::out_of_range&) {
    return false;
  }
}

bool isWord(const WordParser& parser, int start, int length) {
  for (const WordParser::TextElement& element : parser) {
    if (element.start == start && static_cast<int>(element.text.size()) == length) return true;
  }
  return false;
}

void checkWords(const std::wstring& text, const WordParser& parser) {
  int previousEnd = -1;
  for (const WordParser::TextElement& element : parser) {
    check(!element.text.empty() && element.reserved == 0, "words are non-empty");
    check(element.start > previousEnd, "words in order, apart");
    check(text.compare(static_cast<std::size_t>(element.start), element.text.size(),
                       element.text) == 0,
          "the word stands in the text at its start");
    for (wchar_t c : element.text) {
      check(c == L'.' || !WordParser::isDelimiter(c), "no separator inside a word");
    }
    previousEnd = element.start + static_cast<int>(element.text.size());
  }
}

void checkNearest(const std::wstring& text, const WordParser& parser, int extra) {
  const int size = static_cast<int>(text.size());
  const int positions[] = {-1, 0, size / 2, size - 1, size, size + 1, extra};
  for (int position : positions) {
    int start = -7;
    int length = -7;
    const bool found = parser.nearestWord(position, start, length);
    check(found == !parser.empty(), "a word is found exactly when there are words");
    if (found) check(isWord(parser, start, length), "the nearest word is one of the words");
  }
}

void checkText(const std::wstring& text, int extra) {
  WordParser parser;
  const bool parsed = parse(text, parser);
  check(parsed == !text.empty(), "only empty text throws");
  if (!parsed) return;
  checkWords(text, parser);
  checkNearest(text, parser, extra);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  int extra = 0;
  std::memcpy(&extra, data, size < sizeof extra ? size : sizeof extra);

  std::wstring perByte;
  for (unsigned char b : bytes) perByte += wchar_t(b);
  checkText(perByte, extra);

  const std::wstring wide = QIM::fromUtf8(bytes);
  checkText(wide, extra);
  bool narrowParsed = true;
  WordParser narrow;
  try {
    narrow = WordParser(bytes);
  } catch (const std::out_of_range&) {
    narrowParsed = false;
  }
  check(narrowParsed == !wide.empty(), "narrow text throws exactly when it converts to nothing");
  if (narrowParsed) check(narrow == WordParser(wide), "narrow and wide constructors agree");
  return 0;
}
