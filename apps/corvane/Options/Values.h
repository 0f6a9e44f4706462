#pragma once

#include <string>

#include <Corvane/Base/String.h>

#include "apps/corvane/Target.h"

// Understands the values of options and arguments. Numbers come as text, so that what is wrong with them is told in
// words. What cannot be used throws Failure(kUsage), whose text names the option, the reason and the remedy, and never
// shows anything that could be a password.
namespace CorvaneCli {

[[noreturn]] void RefuseUsage(const std::string& text);

// A value for a message, with nothing in it that could be a password.
[[nodiscard]] std::string ShownValue(const std::string& value);

[[nodiscard]] Corvane::ZString DecodeValue(const char* option, const std::string& value);

// The URL of a directory for the command `command`: without a fragment, which goes into `fragment` in UTF-8.
[[nodiscard]] Target UnderstandDirectoryUrl(const char* command, const std::string& url, std::string& fragment);

// A whole number from `least` to `most`; `what` names it in the message.
[[nodiscard]] unsigned long long UnderstandNumber(const char* option, const std::string& value,
                                                  unsigned long long least, unsigned long long most, const char* what);

// Bytes per second, at least `least`; k, M or G may follow the number.
[[nodiscard]] unsigned int UnderstandRate(const char* option, const std::string& value, unsigned long long least);

}  // namespace CorvaneCli
