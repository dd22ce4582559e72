#include "qimmisc/BaseStringInterpreter.h"

namespace QIM {

BaseStringInterpreter::~BaseStringInterpreter() = default;

std::wstring BaseStringInterpreter::interpretString(const std::wstring& text,
                                                    IUpperLayerProvHandler* handler,
                                                    NetProvAction action) const {
  return doInterpretString(text, handler, action);
}

std::size_t BaseStringInterpreter::replaceAll(std::wstring& text, const std::wstring& pattern,
                                              const std::wstring& replacement) {
  if (pattern.empty()) return 0;
  std::size_t count = 0;
  for (std::size_t at = text.find(pattern); at != std::wstring::npos;
       at = text.find(pattern, at + replacement.size())) {
    text.replace(at, pattern.size(), replacement);
    ++count;
  }
  return count;
}

}  // namespace QIM
