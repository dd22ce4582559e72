#include "qimmisc/ResourceTagsInterpreter.h"

#include "qimmisc/ResourcesManager.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {

const std::wstring kOpener = L"{resource=";
const std::wstring kCloser = L"}";
const std::wstring kLanguageTag = L"{lang}";

bool isKeyCharacter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') ||
         c == L'_';
}

bool isKey(const std::wstring& text, std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) {
    if (!isKeyCharacter(text[i])) return false;
  }
  return true;
}

// The code web pages expect; the bare "zh" means the traditional script.
std::wstring webLanguageCode(const std::string& code) {
  if (equalsIgnoreCase(code, std::string("zh_CN"))) return L"zh-Hans";
  if (equalsIgnoreCase(code, std::string("zh"))) return L"zh-Hant";
  return fromUtf8(code);
}

}  // namespace

ResourceTagsInterpreter::ResourceTagsInterpreter() = default;

ResourceTagsInterpreter::~ResourceTagsInterpreter() = default;

std::wstring ResourceTagsInterpreter::doInterpretString(const std::wstring& text,
                                                        IUpperLayerProvHandler*,
                                                        NetProvAction) const {
  std::wstring result = text;
  std::size_t p = 0;
  for (;;) {
    const std::size_t start = result.find(kOpener, p);
    if (start == std::wstring::npos) return result;
    const std::size_t key = start + kOpener.size();
    const std::size_t close = result.find(kCloser, key);
    if (close == std::wstring::npos) return result;
    p = close + 1;
    if (!isKey(result, key, close)) {
      p = key;  // an opener inside the rejected span still counts
      continue;
    }
    const std::wstring localized =
        ResourcesManager::instance().getString(result.substr(key, close - key));
    if (localized.empty()) continue;  // the visible tag names the missing key
    result.replace(start, close - start + 1, localized);
    p = start + localized.size();
  }
}

std::wstring ResourceTagsInterpreter::interpretStringSO(const std::wstring& text) const {
  ResourcesManager& resources = ResourcesManager::instance();
  const std::string code = resources.getCurrentLanguageCode(false);
  std::wstring result = text;
  if (resources.isLanguageSupported(fromUtf8(code))) {
    replaceAll(result, kLanguageTag, webLanguageCode(code));
  } else {
    replaceAll(result, kLanguageTag, L"en");
    QIM_ERROR("Language is not supported");
  }
  return result;
}

}  // namespace QIM
