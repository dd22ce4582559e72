// "qimmisc settings": the administrator's side of the settings files. Turns
// a plain settings file into the enciphered form the client reads and back,
// and shows the main settings as the client would see them.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "SettingsFiles.h"
#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace qimtool {

namespace {

int failure(const std::string& text) {
  std::cerr << "qimmisc: " << text << '\n';
  return kExitProblems;
}

// Writing over the input would lose it if anything went wrong half-way.
bool samePlace(const std::wstring& a, const std::wstring& b) {
  std::error_code error;
  return std::filesystem::equivalent(toPath(a), toPath(b), error);
}

bool startsWithBom(const std::filesystem::path& path) {
  char head[3] = {};
  std::ifstream in(path, std::ios::binary);
  return in.read(head, sizeof head) && std::string(head, sizeof head) == "\xEF\xBB\xBF";
}

// The plain file without its UTF-8 byte-order mark, beside the target so it
// sits on a file system the tool can write to; removed when done.
class BomFreeCopy {
 public:
  BomFreeCopy(const std::wstring& source, const std::wstring& target)
      : path_(target + L".nobom.tmp") {
    std::ifstream in(toPath(source), std::ios::binary);
    in.seekg(3);
    std::ofstream out(toPath(path_), std::ios::binary | std::ios::trunc);
    if (in.peek() != std::ifstream::traits_type::eof()) out << in.rdbuf();
    written_ = in && static_cast<bool>(out.flush());
  }
  ~BomFreeCopy() {
    std::error_code ignored;
    std::filesystem::remove(toPath(path_), ignored);
  }
  BomFreeCopy(const BomFreeCopy&) = delete;
  BomFreeCopy& operator=(const BomFreeCopy&) = delete;

  bool written() const { return written_; }
  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
  bool written_ = false;
};

int runEncrypt(const std::string& in, const std::string& out) {
  QIM_ENTRY("in=" << in << " out=" << out);
  const std::wstring source = widePath(in);
  const std::wstring target = widePath(out);
  if (!QIM::fileExists(source)) return failure("cannot read " + in + ": File not found");
  if (samePlace(source, target)) return failure(out + " is the input itself; name another file");

  const bool hasBom = startsWithBom(toPath(source));
  std::unique_ptr<BomFreeCopy> copy;
  if (hasBom) {
    std::cerr << "qimmisc: note: " << in
              << " begins with a UTF-8 byte-order mark; it is left out, since the format does"
                 " not skip one\n";
    copy = std::make_unique<BomFreeCopy>(source, target);
    if (!copy->written()) {
      return failure("cannot write " + QIM::toUtf8(copy->path()) + " (beside " + out + ")");
    }
  }

  WriteFailureRecorder recorder;
  QIM::EncryptionConfigurationFile file;
  try {
    file.encryptIniFile(hasBom ? copy->path() : source, target);
  } catch (const QIM::QIMException& e) {
    return failure("cannot read " + in + ": " + e.what());
  }
  if (recorder.failed()) return failure("cannot write " + out + ": " + recorder.text());
  std::cout << "wrote " << out << '\n';
  return kExitOk;
}

int runDecrypt(const std::string& in, const std::string& out) {
  QIM_ENTRY("in=" << in << " out=" << out);
  const std::wstring source = widePath(in);
  QIM::EncryptionConfigurationFile file;
  try {
    file.loadConfigurationFile(source);
  } catch (const QIM::QIMException& e) {
    return failure("cannot read " + in + ": " + e.what());
  }
  if (file.lastLoadDamaged()) {
    return failure(in + " is damaged: invalid padding count (truncated, or not an enciphered"
                        " settings file)");
  }
  if (out.empty()) {
    std::cout << QIM::toUtf8(file.toText());
    return kExitOk;
  }
  const std::wstring target = widePath(out);
  if (samePlace(source, target)) return failure(out + " is the input itself; name another file");
  WriteFailureRecorder recorder;
  file.BufferConfigurationFile::write(target);  // the plain form, not the override
  if (recorder.failed()) return failure("cannot write " + out + ": " + recorder.text());
  std::cout << "wrote " << out << '\n';
  return kExitOk;
}

int runShow(const std::string& in) {
  QIM_ENTRY("in=" << in);
  const std::wstring path = in.empty() ? QIM::Data::getVELDerIniPath() : widePath(in);
  QIM::Data::VelderIni settings;
  settings.readVelderIniFile(path);
  std::cout << "Main settings file: " << QIM::toUtf8(path) << " ("
            << (!settings.fileFound()    ? "not found: every setting has its default"
                : settings.fileDamaged() ? "damaged: every setting has its default"
                                         : "found")
            << ")\n";
  std::cout << "Settings in reading order; * marks a value that differs from its default:\n";
  for (const auto& setting : settings.settings()) {
    const bool changed = setting.value != setting.defaultValue;
    std::cout << (changed ? "* " : "  ") << setting.key << '=' << QIM::toUtf8(setting.value);
    if (changed) std::cout << "  (default: " << QIM::toUtf8(setting.defaultValue) << ')';
    std::cout << '\n';
  }
  const std::vector<std::string>& messages = settings.readMessages();
  std::cout << "Rejected or clamped values: " << messages.size() << '\n';
  for (const std::string& message : messages) std::cout << "  " << message << '\n';
  if (!settings.fileFound()) return failure("cannot read " + QIM::toUtf8(path) + ": File not found");
  if (settings.fileDamaged()) return failure(QIM::toUtf8(path) + " is damaged: invalid padding count");
  return kExitOk;
}

}  // namespace

void addSettingsCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* settings = app.add_subcommand("settings", "Encipher, decipher and show settings files");
  settings->require_subcommand(1);
  settings->footer(
      "Exit codes: 0 done; 1 a missing or damaged input, or a target that cannot be\n"
      "written (the input is never changed, an existing target is replaced only\n"
      "whole); 2 a wrong command line.");

  // The arguments live as long as the callbacks that read them.
  struct Arguments {
    std::string in, out;
  };
  const auto args = std::make_shared<Arguments>();
  std::string& in = args->in;
  std::string& out = args->out;
  CLI::App* encrypt =
      settings->add_subcommand("encrypt", "Write the enciphered form of a plain settings file");
  encrypt->add_option("IN", in, "the plain settings file (UTF-8)")->required();
  encrypt->add_option("OUT", out, "the enciphered file to write")->required();
  encrypt->footer(
      "A UTF-8 byte-order mark at the start of IN is left out, with a note: the\n"
      "settings format does not skip one, so it would spoil the first line.");
  encrypt->callback([&chosen, args] { chosen = [args] { return runEncrypt(args->in, args->out); }; });

  CLI::App* decrypt = settings->add_subcommand(
      "decrypt", "Decipher a settings file: print its text, or write it as a plain file");
  decrypt->add_option("IN", in, "the enciphered settings file")->required();
  decrypt->add_option("OUT", out, "the plain settings file to write (default: print the text)");
  decrypt->callback([&chosen, args] { chosen = [args] { return runDecrypt(args->in, args->out); }; });

  CLI::App* show = settings->add_subcommand(
      "show", "Show every main setting as the client reads it, and what was rejected");
  show->add_option("FILE", in, "the enciphered main settings file (default: the installation's)");
  show->footer(
      "Prints each main setting in reading order with its effective value (* marks\n"
      "a value that differs from its default), then the lines the library wrote for\n"
      "values it rejected or clamped. Exit code 1 when the file is missing or\n"
      "damaged (the list then shows the defaults the client would use).");
  show->callback([&chosen, args] { chosen = [args] { return runShow(args->in); }; });
}

}  // namespace qimtool
