#pragma once

namespace CorvaneCli {

// What the help of the program or of one command says beside the options. Lines are broken by hand, at 80 columns.
struct HelpTexts {
  const char* usage;
  const char* description;
  const char* footer;
};

extern const HelpTexts kProgramHelp;
extern const HelpTexts kGetHelp;
extern const HelpTexts kPostHelp;
extern const HelpTexts kMirrorHelp;
extern const HelpTexts kSyncHelp;
extern const HelpTexts kResolveHelp;

}  // namespace CorvaneCli
