// Site names: the qualified function name and the bare file name a Locus
// shows, made once per site from what the compiler gives.
#include <mutex>
#include <string_view>
#include <unordered_set>

#include "diagnostics/NoDestructor.h"
#include "diagnostics/SiteNames.h"
#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

namespace {

// The parameter list is the parenthesis group that the last ')' closes;
// anything after it is a qualifier (const, noexcept, &&). The name starts
// after the last blank outside brackets before it: that drops the return
// type and, for MSVC, the calling convention.
std::string qualifiedName(std::string_view s) {
  std::size_t end = s.rfind(')');
  if (end != std::string_view::npos) {
    int depth = 0;
    for (std::size_t i = end + 1; i-- > 0;) {
      if (s[i] == ')') ++depth;
      if (s[i] == '(' && --depth == 0) {
        end = i;
        break;
      }
    }
  } else {
    end = s.size();
  }
  std::size_t begin = 0;
  int depth = 0;
  for (std::size_t i = end; i-- > 0;) {
    const char c = s[i];
    if (c == ')' || c == '>') ++depth;
    if (c == '(' || c == '<') --depth;
    if (c == ' ' && depth == 0) {
      begin = i + 1;
      break;
    }
  }
  std::string name(s.substr(begin, end - begin));
  static constexpr std::string_view gccAnon = "{anonymous}";
  for (std::size_t at; (at = name.find(gccAnon)) != std::string::npos;) {
    name.replace(at, gccAnon.size(), "`anonymous-namespace'");
  }
  return name;
}

}  // namespace

const char* intern(std::string text) {
  static ::QIM::detail::NoDestructor<std::mutex> mutex;
  static ::QIM::detail::NoDestructor<std::unordered_set<std::string>> table;
  std::lock_guard<std::mutex> lock(*mutex);
  return table->insert(std::move(text)).first->c_str();
}

const char* functionName(const char* pretty) {
  std::string_view s(pretty);
  if (const auto with = s.find(" [with "); with != std::string_view::npos) s = s.substr(0, with);
  // Inside a lambda the enclosing function is what a reader needs.
  if (const auto lambda = s.find("::<lambda"); lambda != std::string_view::npos) {
    return intern(qualifiedName(s.substr(0, lambda)) + "::<lambda>");
  }
  return intern(qualifiedName(s));
}

const char* fileName(const char* path) {
  std::string_view s(path);
  if (const auto slash = s.find_last_of("/\\"); slash != std::string_view::npos) {
    s = s.substr(slash + 1);
  }
  if (const auto dot = s.rfind('.'); dot != std::string_view::npos && dot > 0) {
    s = s.substr(0, dot);
  }
  return intern(std::string(s));
}

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
