// Replaces tags from a table its owner fills.
#pragma once

#include <map>
#include <string>

#include "qimmisc/BaseStringInterpreter.h"

namespace QIM {

/// Replaces each tag of its table by the tag's value. Tags are applied one
/// after another in ascending (case-sensitive, code-unit) order, so a value
/// holding a later tag is expanded again and one holding an earlier tag is
/// not. Tags carry their own delimiters. Concurrent interpreting is safe;
/// changing the table while another thread interprets is not.
class QIMMISC_API TagsInterpreter : public BaseStringInterpreter {
 public:
  /// The user folder tag "<user>", documents "<docs>" and application data
  /// "<appdata>".
  static constexpr const wchar_t* kUserTag = L"<user>";
  static constexpr const wchar_t* kDocsTag = L"<docs>";
  static constexpr const wchar_t* kAppDataTag = L"<appdata>";

  /// An empty table; with `withFolderTags`, the three folder tags set to the
  /// folders as they are now (getUserDir, getUserDocsDir, getUserAppDir).
  explicit TagsInterpreter(bool withFolderTags);

  /// Adds `tag` or overwrites its value. An empty tag is ignored (it would
  /// match everywhere).
  void setTag(const std::wstring& tag, const std::wstring& value);
  /// Removes `tag`; an absent tag is no error.
  void removeTag(const std::wstring& tag);
  /// Whether `tag` is in the table.
  bool isTag(const std::wstring& tag) const;
  /// The value of `tag`, or the tag text itself when it is absent.
  std::wstring getTag(const std::wstring& tag) const;

 protected:
  std::wstring doInterpretString(const std::wstring& text, IUpperLayerProvHandler* handler,
                                 NetProvAction action) const override;

 private:
  std::map<std::wstring, std::wstring> tags_;
};

}  // namespace QIM
