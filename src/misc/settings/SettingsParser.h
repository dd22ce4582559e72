// Reading the settings text format into sections. Reentrant: all state is
// the caller's.
#pragma once

#include <string>

#include "settings/SectionStore.h"

namespace QIM::detail {

/// The longest line the format allows, in characters (without its LF).
inline constexpr std::size_t kMaxLineLength = 1023;

/// Replaces the content of `store` by the sections and entries of `text`
/// (wide text without NUL), which the store keeps. A longer line than
/// kMaxLineLength is skipped with one ERROR line naming `fileName` and the
/// line's number.
void parseSettingsText(std::wstring text, SectionStore& store, const std::wstring& fileName);

}  // namespace QIM::detail
