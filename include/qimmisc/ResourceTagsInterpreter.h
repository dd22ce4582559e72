// Replaces resource tags by localized strings.
#pragma once

#include <string>

#include "qimmisc/BaseStringInterpreter.h"

namespace QIM {

/// Replaces each "{resource=KEY}" by the resources manager's string for KEY.
/// A key is ASCII letters, digits and '_' (empty allowed); a tag with any
/// other character in its key, or whose key has no string, stays as it is.
/// A replacement is not searched again.
class QIMMISC_API ResourceTagsInterpreter : public BaseStringInterpreter {
 public:
  ResourceTagsInterpreter();
  ~ResourceTagsInterpreter() override;

  /// The text with every "{lang}" replaced by the current language code for
  /// web pages: "zh_CN" as "zh-Hans", "zh" as "zh-Hant" (any letter case),
  /// other codes as they are; "en", with an ERROR line, when the current
  /// language is not supported.
  std::wstring interpretStringSO(const std::wstring& text) const;

 protected:
  std::wstring doInterpretString(const std::wstring& text, IUpperLayerProvHandler* handler,
                                 NetProvAction action) const override;
};

}  // namespace QIM
