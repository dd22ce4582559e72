// "qimmisc doctor": what a support engineer asks first about a client
// machine. Each section is one function, so later checks join as sections.
#include <filesystem>
#include <system_error>

#include "Commands.h"
#include "Report.h"
#include "qimmisc/QIMMisc.h"

namespace qimtool {

namespace {

std::string narrow(const std::wstring& text) { return QIM::toUtf8(text); }

std::filesystem::path toPath(const std::wstring& text) {
#ifdef _WIN32
  return std::filesystem::path(text);
#else
  const std::string utf8 = QIM::toUtf8(text);
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
#endif
}

Section buildSection() {
  QIM_ENTRY();
  return {"Build",
          {{"version", narrow(QIM::getBuildVersion())},
           {"build number", narrow(QIM::getBuildNumber())},
           {"build date", narrow(QIM::getBuildDate())},
           {"copyright year", narrow(QIM::getCopyrightYear())},
           {"build mode", narrow(QIM::getBuildMode())},
           {"secure build", QIM::isBuildSecure() ? "yes" : "no"},
           {"build source", narrow(QIM::getBuildSource())}}};
}

// A folder the client needs: present is fine, missing is a failure when the
// client cannot work without it, a warning otherwise.
Check folderCheck(const std::string& label, const std::wstring& folder, bool required) {
  QIM_ENTRY("label=" << label);
  Check check{label, narrow(folder)};
  const Verdict missing = required ? Verdict::Fail : Verdict::Warn;
  if (folder.empty()) {
    check.verdict = missing;
    check.note = "cannot be determined";
    return check;
  }
  std::error_code error;
  if (std::filesystem::is_directory(toPath(folder), error)) {
    check.verdict = Verdict::Ok;
  } else {
    check.verdict = missing;
    check.note = error ? error.message() : "missing";
  }
  return check;
}

Section foldersSection() {
  QIM_ENTRY();
  return {"Folders",
          {folderCheck("installation", QIM::getInstallationPath(), true),
           folderCheck("user", QIM::getUserDir(), true),
           folderCheck("user documents", QIM::getUserDocsDir(), false),
           folderCheck("user app data", QIM::getUserAppDir(), false)}};
}

}  // namespace

int runDoctor(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  QIM_ENTRY("args=" << args.size());
  if (!args.empty()) {
    err << "qimmisc doctor: unexpected argument '" << args.front() << "'\n";
    return kExitUsage;
  }
  Report report;
  report.add(buildSection());
  report.add(foldersSection());
  out << "QIM client environment report\n\n";
  report.print(out);
  return report.failed() ? kExitProblems : kExitOk;
}

}  // namespace qimtool
