#include "tools/json/multiplex_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <boost/iterator/transform_iterator.hpp>
#include <nlohmann/json.hpp>

#include "tools/json/document_walk.h"
#include "tools/json/multiplex_json.h"
#include "tools/json/shown_text.h"

using nlohmann::json;

namespace {

constexpr std::size_t kLongestToken = 60;  // in a message
constexpr std::size_t kLongestPath = 200;  // in a message

// Returns the same text of standard input each time: a program that reads its files again
// cannot read it twice.
std::string read_whole(const std::string& path, FileKind kind) {
    try {
        if (path != kStandardInput) return read_text_file(path, kind);
        static const std::string input = read_text_file(path, kind);
        return input;
    } catch (const std::runtime_error& error) {
        throw FileMistake(path, {{0, std::string("cannot be read: ") + error.what()}});
    }
}

// Returns a path of names that may be anything, fit for a message.
std::string in_ascii(const std::string& path) {
    std::string text =
        json(path).dump(-1, ' ', /*ensure_ascii=*/true, json::error_handler_t::replace);
    text = text.substr(1, text.size() - 2);  // without its quotes
    return text.size() <= kLongestPath ? text : text.substr(0, kLongestPath) + "...";
}

// Calls visit(walk) at each place of the JSON text from `first` to `end`.
template <typename Iterator, typename Visit>
void walk_through(Iterator first, Iterator end, Visit visit) {
    DocumentWalk<Visit> walk(visit);
    json::sax_parse(first, end, &walk, json::input_format_t::json, /*strict=*/true,
                    /*ignore_comments=*/true);
}

// Adds a mistake for each name that stands twice in one object: the library keeps one of
// the two values without an error. REQUIRES: the text is JSON.
void find_repeated_names(const std::string& text, JsonRemarks& mistakes) {
    walk_through(text.begin(), text.end(), [&](const auto& walk) {
        if (!walk.is_repeated()) return;
        if (mistakes.is_full()) {
            mistakes.add({});  // counts it
            return;
        }
        const std::string owner = walk.owner();
        mistakes.add({walk.path(), (owner.empty() ? "" : in_ascii(owner) + ": ") +
                                       "found the field " + abridged(walk.name()) +
                                       " twice in one object, expected it once"});
    });
}

// Returns whether the place is the one of the path, or inside it.
bool is_at(std::string_view place, std::string_view path) {
    if (place.substr(0, path.size()) != path) return false;
    const bool is_whole = path.empty() || place.size() == path.size();
    return is_whole || place[path.size()] == '.' || place[path.size()] == '[';
}

// Returns the remarks in the order of their lines. A place that is missing has the line
// of the object that lacks it. `plural` is what the remarks are.
// REQUIRES: the text is JSON.
std::vector<FileRemark> with_lines(const JsonRemarks& remarks, const std::string& text,
                                   const char* plural) {
    std::vector<FileRemark> found;
    if (remarks.is_empty()) return found;
    for (const JsonRemark& remark : remarks.first) found.push_back({0, remark.text});
    constexpr std::size_t deepest = 16;  // more than a valid document has
    std::size_t line = 1;
    bool is_after_break = false;
    // The parser reads each character once, and a number's end with the character after
    // it.
    const auto counted = [&](char character) {
        if (is_after_break) ++line;
        is_after_break = character == '\n';
        return character;
    };
    walk_through(boost::make_transform_iterator(text.begin(), counted),
                 boost::make_transform_iterator(text.end(), counted),
                 [&](const auto& walk) {
                     if (walk.depth() > deepest) return;
                     const std::string path = walk.path();
                     for (std::size_t i = 0; i < found.size(); ++i) {
                         if (is_at(remarks.first[i].place, path)) found[i].line = line;
                     }
                 });
    std::stable_sort(
        found.begin(), found.end(),
        [](const FileRemark& a, const FileRemark& b) { return a.line < b.line; });
    if (remarks.others != 0)
        found.push_back({0, fmt::format("{} more {}", remarks.others, plural)});
    return found;
}

// Returns the library's message from "line 3, column 7" on.
std::string without_prefix(const std::string& what) {
    const std::size_t line = what.find("line ");
    if (line != std::string::npos) return what.substr(line);
    const std::size_t bracket = what.find("] ");
    return bracket == std::string::npos ? what : what.substr(bracket + 2);
}

// Cuts what stands in quotes from `token` on so that it fits a line.
std::string with_short_token(std::string message, std::size_t token) {
    const std::size_t end = std::min(message.rfind("'; expected "), message.rfind('\''));
    if (end - token <= kLongestToken) return message;
    std::size_t cut = token + kLongestToken;
    while ((message[cut] & 0xC0) == 0x80) --cut;  // inside a character
    return message.replace(cut, end - cut, "...");
}

// Returns the library's message, made fit for a line.
std::string syntax_error(const std::string& what) {
    std::string message = without_prefix(what);
    for (const std::string_view before : {"last read: '", "number overflow parsing '"}) {
        const std::size_t found = message.find(before);
        if (found == std::string::npos) continue;
        return shown_text(with_short_token(message, found + before.size()));
    }
    return message;
}

std::string lines_of(const std::string& path, const std::vector<FileRemark>& remarks) {
    std::string lines;
    for (const auto& [line, text] : remarks) {
        lines += fmt::format("{}{}{}: {}", lines.empty() ? "" : "\n", shown_path(path),
                             line == 0 ? "" : fmt::format(":{}", line), text);
    }
    return lines;
}

}  // namespace

FileMistake::FileMistake(const std::string& path, std::vector<FileRemark> remarks)
    : std::runtime_error(lines_of(path, remarks)), remarks_(std::move(remarks)) {}

Multiplex read_multiplex_file(const std::string& path, FileKind kind,
                              std::vector<FileRemark>* doubts) {
    const std::string text = read_whole(path, kind);
    try {
        JsonFindings findings;
        const json document = json::parse(text, /*callback=*/nullptr,
                                          /*allow_exceptions=*/true,
                                          /*ignore_comments=*/true);
        find_repeated_names(text, findings.mistakes);
        Multiplex multiplex = multiplex_from_json(JsonNode(document, &findings));
        if (doubts != nullptr) {
            for (FileRemark& doubt : with_lines(findings.doubts, text, "such numbers"))
                doubts->push_back(std::move(doubt));
        }
        if (findings.mistakes.is_empty()) return multiplex;
        throw FileMistake(path, with_lines(findings.mistakes, text, "mistakes"));
    } catch (const json::exception& error) {
        throw FileMistake(path, {{0, "not JSON: " + syntax_error(error.what())}});
    }
}
