#pragma once

#include <span>

namespace CorvaneCli {

// An option as the short help shows it, on one line.
struct BriefOption {
  const char* name;  // "--output"
  const char* text;
};

// What the help of the program or of one command says beside the options. Lines are broken by hand, at 80 columns.
struct HelpTexts {
  const char* usage;
  const char* description;
  const char* footer;
  // The short help, which fits on one screen of 24 lines with the line of the shell below it. Without options: there is none, the
  // other one is short enough.
  struct Brief {
    const char* description = "";
    std::span<const BriefOption> options = {};
    const char* footer = "";
  } brief = {};
};

extern const HelpTexts kProgramHelp;
extern const HelpTexts kGetHelp;
extern const HelpTexts kPostHelp;
extern const HelpTexts kMirrorHelp;
extern const HelpTexts kSyncHelp;
extern const HelpTexts kResolveHelp;

}  // namespace CorvaneCli
