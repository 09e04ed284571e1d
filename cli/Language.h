// Which language file a run uses when --lang does not say.
#pragma once

#include <string>

namespace kestrel {

// --lang, else KESTREL_LANG, else the installed language file of the locale's language (English
// for a language without a file of its own), else "" (the built-in German texts). The "C" and
// "POSIX" locales and an unset locale keep the built-in texts, as does a German locale.
std::string ChooseLanguageFile(const std::string& option);

}  // namespace kestrel
