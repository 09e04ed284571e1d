#include "Language.h"

#include <cstdlib>
#include <string_view>

#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/Process.h"

namespace kestrel {
namespace {

// The language part of a locale name ("fr_CA.UTF-8@euro" -> "fr"); "" for C and POSIX.
std::string LocaleLanguage() {
  std::string name;
  for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const char* v = std::getenv(var); v != nullptr && *v != '\0') {
      name = v;
      break;
    }
  }
  const std::string lang = name.substr(0, name.find_first_of("_.@"));
  if (lang == "C" || lang == "POSIX") return {};
  return orvKestrel::paths::LowerAscii(lang);
}

// The file names a language's texts may have, best first.
std::string FileOf(const std::string& lang) {
  static const std::pair<std::string_view, std::string_view> kNames[] = {
      {"en", "English"}, {"fr", "French"},  {"es", "Spanish"},
      {"it", "Italian"}, {"nl", "Dutch"},   {"pt", "Portuguese"}};
  for (const auto& [code, name] : kNames) {
    if (code == lang) return std::string(name) + ".lng";
  }
  return {};
}

}  // namespace

std::string ChooseLanguageFile(const std::string& option) {
  if (!option.empty()) return option;
  if (const char* env = std::getenv("KESTREL_LANG"); env != nullptr && *env != '\0') return env;
  const std::string lang = LocaleLanguage();
  // The built-in texts are German.
  if (lang.empty() || lang == "de") return {};
  const std::string exe = orvKestrel::OwnExecutable();
  if (exe.empty()) return {};
  const std::string folder = orvKestrel::paths::BuildPath(
      orvKestrel::paths::GetParentFolderName(orvKestrel::paths::GetParentFolderName(exe)),
      "share/orvKestrel/lang");
  orvKestrel::FileSystem fs;
  for (const std::string& name : {FileOf(lang), std::string("English.lng")}) {
    if (name.empty()) continue;
    const std::string path = orvKestrel::paths::BuildPath(folder, name);
    if (fs.FileExists(path)) return path;
  }
  return {};
}

}  // namespace kestrel
