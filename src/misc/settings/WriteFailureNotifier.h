// Telling the user that a settings file could not be written.
#pragma once

#include <string>

namespace QIM::detail {

/// Shows, through the current notifier, "<path> could not be opened for
/// writing. " and the advice for the cause, titled "Error".
void notifyWriteFailure(const std::wstring& path, bool accessDenied);

/// The platform's own notifier: a modal MessageBoxW on Windows; an ERROR
/// line and a line on standard error elsewhere.
void showWriteFailure(const std::wstring& text, const std::wstring& title);

}  // namespace QIM::detail
