#pragma once
// Which languages the user wants, and which of a bundle's localizations suit them. Any thread.
#include <string>
#include <vector>

#include "platform/UserDefaults.h"

namespace platform::Linux {

// The languages of the environment, best first: the list in LANGUAGE, else the first of LC_ALL, LC_MESSAGES and LANG that
// is set. LANGUAGE counts whatever the locale is, so that it does the same where a session sets "C" and where it sets none.
// Empty when only the C (or POSIX) locale is named.
std::vector<std::string> languagesOfTheEnvironment();

// "AppleLanguages" of the defaults when it names any language, else those of the environment. A list given as text
// ("(de, en)", as an argument of the command line is) is read like one.
std::vector<std::string> preferredLanguages(const platform::UserDefaults& defaults);

// The localizations among `available` (names of .lproj folders) that suit the wanted languages, best first, each once, in
// the spelling of `available`; the development region comes last, and alone when nothing suits. A regional language falls
// back to its plain one, and when that is missing to another region of the same language and script.
std::vector<std::string> matchingLocalizations(const std::vector<std::string>& available,
                                               const std::vector<std::string>& wanted,
                                               const std::string& developmentRegion);

}  // namespace platform::Linux
