#pragma once

#include <optional>
#include <string>
#include <string_view>

// What the header lines of an HTTP answer say. All functions look at the last answer in a header text, that is at the lines after the
// last status line; earlier ones belong to redirects, authentication rounds and interim answers. Views are into the text.

namespace Corvane {

// Names of fields know no upper and lower case.
[[nodiscard]] bool IsSameName(std::string_view a, std::string_view b);

// The name of a request header in the form in which libcurl takes it, "NAME: VALUE", or "NAME;" for an empty value.
[[nodiscard]] std::string_view NameOf(std::string_view header);

// Whether an answer begins with this line, as libcurl takes it: in any case.
[[nodiscard]] bool IsStatusLine(std::string_view line);

// The lines of the last answer, its status line included; the whole text when there is no status line.
[[nodiscard]] std::string_view LastAnswer(std::string_view header);

// Takes the next line, "\n" included, off `text`. False at the end; an unfinished line counts as the end.
[[nodiscard]] bool TakeLine(std::string_view& text, std::string_view& line);

// The value on a line when it is the field `name` (in any case), without the blanks around it.
[[nodiscard]] std::optional<std::string_view> FieldOn(std::string_view line, std::string_view name);

// The last answer's status; 0 without one.
[[nodiscard]] long StatusOf(std::string_view header);

// The last answer's field. None when it is missing, and when it is there with several values.
[[nodiscard]] std::optional<std::string_view> FieldOf(std::string_view header, std::string_view name);

// What proves that a later answer is of the same version (RFC 9110, section 8.8): the strong entity tag, else the time of
// Last-Modified where the server's own clock had left that second behind. Empty when the answer has neither.
[[nodiscard]] std::string ValidatorOf(std::string_view header);

// Whether the answer says of itself that it is of another version than `validator` stands for. An answer that says nothing does not.
[[nodiscard]] bool IsOtherVersion(std::string_view header, std::string_view validator);

}  // namespace Corvane
