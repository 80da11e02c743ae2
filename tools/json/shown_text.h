#ifndef KESTAN_TOOLS_JSON_SHOWN_TEXT_H
#define KESTAN_TOOLS_JSON_SHOWN_TEXT_H

#include <string>
#include <string_view>

// Text from outside, made fit to stand among other text: on a terminal, in a report, in a
// picture or in a message.

// Returns UTF-8 text without what acts on its neighbours. U+FFFD stands for each control
// character, each U+FFFE and U+FFFF, and each byte that is not UTF-8. Controls of
// direction are left out, and so are combining marks after the fourth of a character.
[[nodiscard]] std::string shown_text(std::string_view text);

// Returns the name of a file as it is, or in quotes and with \x1B for the byte 0x1B if
// shown_text() would change it.
[[nodiscard]] std::string shown_path(std::string_view path);

#endif
