#include "qimmisc/TagsInterpreter.h"

#include "qimmisc/SystemPaths.h"

namespace QIM {

TagsInterpreter::TagsInterpreter(bool withFolderTags) {
  if (!withFolderTags) return;
  setTag(kUserTag, getUserDir());
  setTag(kDocsTag, getUserDocsDir());
  setTag(kAppDataTag, getUserAppDir());
}

void TagsInterpreter::setTag(const std::wstring& tag, const std::wstring& value) {
  if (tag.empty()) return;
  tags_[tag] = value;
}

void TagsInterpreter::removeTag(const std::wstring& tag) { tags_.erase(tag); }

bool TagsInterpreter::isTag(const std::wstring& tag) const { return tags_.count(tag) != 0; }

std::wstring TagsInterpreter::getTag(const std::wstring& tag) const {
  const auto found = tags_.find(tag);
  return found == tags_.end() ? tag : found->second;
}

std::wstring TagsInterpreter::doInterpretString(const std::wstring& text, IUpperLayerProvHandler*,
                                                NetProvAction) const {
  std::wstring result = text;
  // In table order, one tag at a time: later tags see earlier values.
  for (const auto& [tag, value] : tags_) replaceAll(result, tag, value);
  return result;
}

}  // namespace QIM
