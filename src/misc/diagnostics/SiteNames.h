// Process-lifetime storage for the texts that loci and the channel table
// point at (SiteNames.cpp).
#pragma once

#include <string>

namespace QIM {
namespace DbgMsg {
namespace detail {

/// A copy of `text` that lives until the process ends; equal texts share
/// one copy.
const char* intern(std::string text);

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
