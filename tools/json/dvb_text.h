#ifndef KESTAN_TOOLS_JSON_DVB_TEXT_H
#define KESTAN_TOOLS_JSON_DVB_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Text fields of DVB descriptors (ETSI EN 300 468, annex A) as UTF-8.
//
// A field begins with the selector of its character coding, or has the default table,
// which is ISO/IEC 6937 with the euro sign. iconv converts the characters. The control
// codes 0x80 to 0x9F of the one-byte tables (0x86 and 0x87 switch emphasis on and off,
// 0x8A ends a line) are U+E080 to U+E09F in UTF-8, which is what the codings of more
// bytes have for them.

struct DvbCoding {
    std::string name;      // as in "ISO-8859-5"
    std::string selector;  // the bytes before the text
    std::string charset;   // iconv's name of it
    bool has_one_byte_controls;
};

// Returns all codings, the default table first and UTF-8 second.
[[nodiscard]] const std::vector<DvbCoding>& dvb_codings();

// Returns whether this is UTF-8 without control characters (U+0000 to U+001F, U+007F to
// U+009F), which is what a field can hold.
[[nodiscard]] bool is_dvb_text(std::string_view text);

// Encodes the text in `coding`. If `coding` is null, takes the default table if it has
// all characters, and else UTF-8. Returns nullopt if the coding lacks a character.
// REQUIRES: is_dvb_text(text).
[[nodiscard]] std::optional<std::string> encode_dvb_text(std::string_view text,
                                                         const DvbCoding* coding);

// Returns the first character that the coding lacks, in UTF-8, or an empty text if it has
// each of them. REQUIRES: is_dvb_text(text).
[[nodiscard]] std::string_view first_lacking(std::string_view text,
                                             const DvbCoding& coding);

// Returns a coding that has the whole text: one with a byte per character, or else UTF-8.
// REQUIRES: is_dvb_text(text).
[[nodiscard]] const DvbCoding& coding_for(std::string_view text);

struct DvbText {
    std::string text;
    const DvbCoding* coding;  // null if encode_dvb_text chooses the same
};

// Returns nullopt if the coding is unknown, or if the field is not right in it.
[[nodiscard]] std::optional<DvbText> decode_dvb_text(std::string_view field);

#endif
