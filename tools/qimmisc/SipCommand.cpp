// "qimmisc sip": how the client reads a dialled number or an address, for a
// support engineer checking a dial plan or a contact that does not match.
// The prefixes to cut come from the installed main settings unless the
// command line gives them.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "SettingsFiles.h"
#include "qimmisc/FullSipAddress.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace qimtool {

namespace {

struct SipArguments {
  std::string first, second, settingsFile, stripPrefix;
  // One --strip-prefix per subcommand; only the chosen one can be counted.
  std::vector<CLI::Option*> stripPrefixOptions;
};

bool stripPrefixGiven(const SipArguments& args) {
  for (const CLI::Option* option : args.stripPrefixOptions) {
    if (option->count() > 0) return true;
  }
  return false;
}

std::wstring stripPrefixOf(const SipArguments& args) {
  if (stripPrefixGiven(args)) return QIM::fromUtf8(args.stripPrefix);
  QIM::Data::VelderIni settings;
  settings.readVelderIniFile(args.settingsFile.empty() ? QIM::Data::getVELDerIniPath()
                                                       : widePath(args.settingsFile));
  return settings.getStripPrefix();
}

const char* yesNo(bool value) { return value ? "yes" : "no"; }

std::string urlKind(const std::wstring& text) {
  if (QIM::isWebUrl(text)) return "web";
  if (QIM::isMailUrl(text)) return "mail";
  if (QIM::isSipUrl(text)) return "sip";
  if (QIM::isTelUrl(text)) return "tel";
  if (QIM::isFileUrl(text)) return "file";
  return "none";
}

int runNormalize(const SipArguments& args) {
  QIM_ENTRY("number=" << args.first);
  std::cout << QIM::toUtf8(QIM::normalizePhoneNumber(QIM::fromUtf8(args.first),
                                                     stripPrefixOf(args)))
            << '\n';
  return kExitOk;
}

int runClassify(const SipArguments& args) {
  QIM_ENTRY("text=" << args.first);
  const std::wstring text = QIM::fromUtf8(args.first);
  const std::wstring prefixes = stripPrefixOf(args);
  std::cout << "scheme: " << QIM::getStringFromSipAddressProtocol(QIM::getSipUrlScheme(text), false)
            << "\nPSTN number: " << yesNo(QIM::isPstnNumber(text, prefixes))
            << "\ncall park: " << yesNo(QIM::isCallparkService(text))
            << "\nglobal tel URI: " << yesNo(QIM::isGlobalTelURI(text, prefixes))
            << "\nURL kind: " << urlKind(text) << " (protocol '"
            << QIM::toUtf8(QIM::getUrlProtocol(text)) << "')\n";
  return kExitOk;
}

// Why two addresses differ, in the order operator== decides.
std::string difference(const QIM::FullSipAddress& a, const QIM::FullSipAddress& b) {
  std::wstring userA, domainA, userB, domainB;
  if (!QIM::parseUserAndDomain(QIM::removeSipUrlScheme(a.address), userA, domainA)) {
    return "A is not user or user@domain";
  }
  if (!QIM::parseUserAndDomain(QIM::removeSipUrlScheme(b.address), userB, domainB)) {
    return "B is not user or user@domain";
  }
  if (userA != userB) return "the users differ (letter case counts)";
  if (!QIM::equalsIgnoreCase(domainA, domainB)) return "the domains differ";
  return "the protocols differ (" + QIM::getStringFromSipAddressProtocol(a.protocol, false) +
         " and " + QIM::getStringFromSipAddressProtocol(b.protocol, false) + ")";
}

int runCompare(const SipArguments& args) {
  QIM_ENTRY("a=" << args.first << " b=" << args.second);
  const QIM::FullSipAddress a(QIM::fromUtf8(args.first)), b(QIM::fromUtf8(args.second));
  std::cout << "A: " << a << "\nB: " << b << '\n';
  if (a == b) {
    std::cout << "equal: same protocol and user, domains equal ignoring letter case\n";
    return kExitOk;
  }
  std::cout << "not equal: " << difference(a, b) << '\n';
  return kExitProblems;
}

}  // namespace

void addSipCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* sip = app.add_subcommand("sip", "Clean numbers, classify and compare SIP addresses");
  sip->require_subcommand(1);
  sip->footer(
      "Numbers and addresses are read as the client reads them. The dialling\n"
      "prefixes to cut come from the installation's main settings (stripPrefix)\n"
      "unless --settings names another main settings file or --strip-prefix gives\n"
      "the list itself.");

  // The arguments live as long as the callbacks that read them.
  const auto args = std::make_shared<SipArguments>();
  const auto addSettingsOptions = [args](CLI::App* command) {
    command->add_option("--settings", args->settingsFile,
                        "the enciphered main settings file (default: the installation's)")
        ->type_name("FILE");
    args->stripPrefixOptions.push_back(command->add_option(
        "--strip-prefix", args->stripPrefix, "prefixes to cut, ';'-separated (\"\" for none)")
            ->type_name("LIST"));
  };

  CLI::App* normalize = sip->add_subcommand("normalize", "Print a dialled number as the client cleans it");
  normalize->add_option("NUMBER", args->first, "the number as dialled")->required();
  addSettingsOptions(normalize);
  normalize->footer(
      "Removes spaces, '-', '(', ')' and '.', then cuts each listed prefix the\n"
      "number begins with, in list order. A text with '@' is left as it is.");
  normalize->callback([&chosen, args] { chosen = [args] { return runNormalize(*args); }; });

  CLI::App* classify = sip->add_subcommand("classify", "Say what kind of number, address or URL a text is");
  classify->add_option("TEXT", args->first, "a number, SIP address or URL")->required();
  addSettingsOptions(classify);
  classify->footer(
      "Prints the scheme, whether the text is a PSTN number, a call-park service\n"
      "address or a global tel URI, and its URL kind (web, mail, sip, tel, file or\n"
      "none) with its protocol.");
  classify->callback([&chosen, args] { chosen = [args] { return runClassify(*args); }; });

  CLI::App* compare = sip->add_subcommand("compare", "Say whether two SIP addresses are the same, and why");
  compare->add_option("A", args->first, "the first address")->required();
  compare->add_option("B", args->second, "the second address")->required();
  compare->footer(
      "Addresses are equal when their protocols (from the scheme, sip by default)\n"
      "and users match exactly and their domains match ignoring letter case.\n"
      "Exit code 0 when equal, 1 when not.");
  compare->callback([&chosen, args] { chosen = [args] { return runCompare(*args); }; });
}

}  // namespace qimtool
