#pragma once
// The language that the texts are in, for everything that lays them out. Main thread only.
#include <string>
#include <string_view>

namespace platform::Linux {

// The localization in which the program that is started with these arguments will speak ("zh-Hans"), whatever the language
// of the process's locale. Usable before there is an application object. Troubles with the files that it reads are logged
// by those who read them for the run.
std::string chosenLocalization(int argc, const char* const* argv);

// The localization as the system's font library names languages, for which it chooses the forms of letters: "zh-cn" for
// "zh-Hans".
std::string fontLanguage(std::string_view localization);

// Sets the layout's direction and the rules for texts from the localization. Before the start-up environment, which names
// the fonts' language, goes.
void applyLanguage(std::string_view localization);

}  // namespace platform::Linux
