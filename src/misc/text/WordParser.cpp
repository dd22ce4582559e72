#include "qimmisc/WordParser.h"

#include <cwctype>
#include <stdexcept>

#include "qimmisc/StringUtils.h"

namespace QIM {

namespace {

// A "." stays in an address-like word: one holding an "@" that is neither
// its first nor its last character, with more of the word to come.
bool keepsDot(const std::wstring& word, const std::wstring& text, std::size_t dot) {
  const std::size_t at = word.find(L'@', 1);
  if (at == std::wstring::npos || at + 1 >= word.size()) return false;
  return dot + 1 < text.size() && !WordParser::isDelimiter(text[dot + 1]);
}

int wordLength(const WordParser::TextElement& element) {
  return static_cast<int>(element.text.size());
}

}  // namespace

WordParser::WordParser() = default;

WordParser::WordParser(const std::wstring& text) : text_(text) { parseText(); }

WordParser::WordParser(const std::string& text) : text_(fromUtf8(text)) { parseText(); }

WordParser::WordParser(const WordParser& other) = default;

WordParser::~WordParser() = default;

WordParser& WordParser::operator=(const WordParser& other) = default;

bool WordParser::isDelimiter(wchar_t c) {
  const auto wc = static_cast<std::wint_t>(c);
  return std::iswspace(wc) || (std::iswpunct(wc) && c != L'@');
}

void WordParser::parseText() {
  elements_.assign(1, TextElement());
  for (std::size_t i = 0; i < text_.size(); ++i) {
    const wchar_t c = text_[i];
    TextElement& current = elements_.back();
    if (!isDelimiter(c)) {
      if (current.start == -1) current.start = static_cast<std::int32_t>(i);
      current.text += c;
    } else if (c == L'.' && keepsDot(current.text, text_, i)) {
      current.text += c;
    } else if (current.start != -1) {
      elements_.emplace_back();
    }
  }
  // Kept from the first release: empty text has no last character to test.
  if (text_.empty()) throw std::out_of_range("invalid string position");
  if (!isDelimiter(text_.back())) elements_.pop_back();
  if (!elements_.empty() && elements_.back().start == -1) elements_.pop_back();
}

bool WordParser::operator==(const WordParser& other) const {
  if (elements_.size() != other.elements_.size()) return false;
  for (std::size_t i = 0; i < elements_.size(); ++i) {
    if (elements_[i].text != other.elements_[i].text ||
        elements_[i].start != other.elements_[i].start) {
      return false;
    }
  }
  return true;
}

bool WordParser::nearestWord(int position, int& start, int& length) const {
  if (text_.empty() || elements_.empty()) return false;
  const TextElement* chosen = &elements_.front();
  if (position >= 0 && static_cast<std::size_t>(position) >= text_.size()) {
    chosen = &elements_.back();
  } else {
    for (const TextElement& element : elements_) {
      if (element.start > position) break;
      chosen = &element;
    }
  }
  start = chosen->start;
  length = wordLength(*chosen);
  return true;
}

}  // namespace QIM
