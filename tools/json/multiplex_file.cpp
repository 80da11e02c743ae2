#include "tools/json/multiplex_file.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "tools/json/document_path.h"
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

// Calls follow(event, key) for each event of the parser. The library has such a callback
// for json::parse() too, but its time grows with the square of an array's elements.
template <typename Follow>
class Follower final : public nlohmann::json_sax<json> {
public:
    explicit Follower(Follow follow) : follow_(std::move(follow)) {}

    bool null() override { return on(Event::value); }
    bool boolean(bool) override { return on(Event::value); }
    bool number_integer(number_integer_t) override { return on(Event::value); }
    bool number_unsigned(number_unsigned_t) override { return on(Event::value); }
    bool number_float(number_float_t, const string_t&) override {
        return on(Event::value);
    }
    bool string(string_t&) override { return on(Event::value); }
    bool binary(binary_t&) override { return on(Event::value); }
    bool start_object(std::size_t) override { return on(Event::object_start); }
    bool key(string_t& name) override { return on(Event::key, name); }
    bool end_object() override { return on(Event::object_end); }
    bool start_array(std::size_t) override { return on(Event::array_start); }
    bool end_array() override { return on(Event::array_end); }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception&) override {
        return false;
    }

private:
    using Event = DocumentPath::Event;

    bool on(Event event, const std::string& key = {}) {
        follow_(event, key);
        return true;
    }

    Follow follow_;
};

template <typename Input, typename Follow>
void follow(Input from, Input to, Follow on_event) {
    Follower<Follow> follower(on_event);
    json::sax_parse(from, to, &follower, json::input_format_t::json, /*strict=*/true,
                    /*ignore_comments=*/true);
}

// Adds a mistake for each name that stands twice in one object: the library keeps one of
// the two values without an error. REQUIRES: the text is JSON.
void find_repeated_names(const std::string& text, JsonRemarks& mistakes) {
    DocumentPath path;
    follow(text.begin(), text.end(),
           [&](DocumentPath::Event event, const std::string& key) {
               path.follow(event, key);
               if (event != DocumentPath::Event::key || !path.is_repeated()) return;
               if (mistakes.is_full()) {
                   mistakes.add({});  // counts it
                   return;
               }
               const std::string owner = path.owner();
               mistakes.add({path.text(), (owner.empty() ? "" : in_ascii(owner) + ": ") +
                                              "found the field " + abridged(path.name()) +
                                              " twice in one object, expected it once"});
           });
}

// Gives a text to the parser and counts the lines. A line begins when its first character
// is read, because the parser reads one character more than a number has.
class LineCounter {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    LineCounter(const char* at, std::size_t& line) : at_(at), line_(&line) {}

    const char& operator*() const { return *at_; }
    LineCounter& operator++() {
        if (is_after_break_) ++*line_;
        is_after_break_ = *at_ == '\n';
        ++at_;
        return *this;
    }
    bool operator==(const LineCounter& other) const { return at_ == other.at_; }
    bool operator!=(const LineCounter& other) const { return at_ != other.at_; }

private:
    const char* at_;
    std::size_t* line_;
    bool is_after_break_ = false;
};

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
    DocumentPath path;
    const auto note_line = [&](DocumentPath::Event event, const std::string& key) {
        if (!path.follow(event, key) || path.depth() > deepest) return;
        const std::string at = path.text();
        for (std::size_t i = 0; i < found.size(); ++i) {
            if (is_at(remarks.first[i].place, at)) found[i].line = line;
        }
    };
    follow(LineCounter(text.data(), line), LineCounter(text.data() + text.size(), line),
           note_line);
    std::stable_sort(
        found.begin(), found.end(),
        [](const FileRemark& a, const FileRemark& b) { return a.line < b.line; });
    if (remarks.others != 0) {
        found.push_back({0, std::to_string(remarks.others) + " more " + plural});
    }
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
        lines += (lines.empty() ? "" : "\n") + shown_path(path) +
                 (line == 0 ? "" : ':' + std::to_string(line)) + ": " + text;
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
