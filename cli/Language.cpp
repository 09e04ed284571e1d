#include "Language.h"

#include <orvKestrel/hostio.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

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
  std::string lower = lang;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return lower;
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
  const std::string exe = orvKestrel::hostio::OwnExecutable();
  if (exe.empty()) return {};
  const std::filesystem::path folder =
      std::filesystem::path(exe).parent_path().parent_path() / "share/orvKestrel/lang";
  for (const std::string& name : {FileOf(lang), std::string("English.lng")}) {
    if (name.empty()) continue;
    const std::string path = (folder / name).string();
    if (orvKestrel::hostio::KindOf(path) == orvKestrel::hostio::Kind::File) return path;
  }
  return {};
}

}  // namespace kestrel
