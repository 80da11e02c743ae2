#include "tools/json/multiplex_file.h"

#include <memory>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/json/multiplex_json.h"

using nlohmann::json;

namespace {

constexpr const char* kStandardInput = "-";

// Returns the same text of standard input each time: a program that reads its files again
// cannot read it twice.
std::string read_whole(const std::string& path, FileKind kind) {
    try {
        if (path != kStandardInput) return read_text_file(path, kind);
        static const std::string input = read_text_file(path, kind);
        return input;
    } catch (const std::runtime_error& error) {
        throw FileMistake(path, std::string("cannot be read: ") + error.what());
    }
}

// Raises a mistake if a name stands twice in one object: the library would keep one of
// the two values without an error. Follows the document so that it knows the place.
class RepeatedFields {
public:
    bool operator()(int /*depth*/, json::parse_event_t event, const json& parsed) {
        using Event = json::parse_event_t;
        const bool is_value = event != Event::key && event != Event::object_end &&
                              event != Event::array_end;
        if (is_value && !open_.empty()) ++open_.back().values;
        if (event == Event::object_start) open_.push_back({true, 0, {}, {}});
        if (event == Event::array_start) open_.push_back({false, 0, {}, {}});
        if (event == Event::object_end || event == Event::array_end) open_.pop_back();
        if (event == Event::key) check(parsed.get<std::string>());
        return true;
    }

private:
    // An object or array whose end has not come.
    struct Open {
        bool is_object;
        std::size_t values;
        std::string name;  // of the field that came last
        std::set<std::string> names;
    };

    void check(const std::string& name) {
        const bool is_new = open_.back().names.insert(name).second;
        open_.back().name = name;
        if (is_new) return;
        const std::string where = place();
        throw JsonMistake(where + (where.empty() ? "" : ": ") + "found the field " +
                          json(name).dump() + " twice in one object, expected it once");
    }

    // Returns the path to the innermost object.
    [[nodiscard]] std::string place() const {
        std::string path;
        for (auto outer = open_.begin(); outer + 1 != open_.end(); ++outer) {
            if (outer->is_object) {
                path += (path.empty() ? "" : ".") + outer->name;
            } else {
                path += '[' + std::to_string(outer->values - 1) + ']';
            }
        }
        return path;
    }

    std::vector<Open> open_;
};

// Returns the library's message from "line 3, column 7" on.
std::string without_prefix(const std::string& what) {
    const std::size_t line = what.find("line ");
    if (line != std::string::npos) return what.substr(line);
    const std::size_t bracket = what.find("] ");
    return bracket == std::string::npos ? what : what.substr(bracket + 2);
}

}  // namespace

Multiplex read_multiplex_file(const std::string& path, FileKind kind,
                              std::vector<std::string>* doubts) {
    const std::string text = read_whole(path, kind);
    try {
        auto repeated = std::make_shared<RepeatedFields>();
        const json document = json::parse(
            text, [repeated](auto&&... parsed) { return (*repeated)(parsed...); },
            /*allow_exceptions=*/true, /*ignore_comments=*/true);
        return multiplex_from_json(JsonNode(document, doubts));
    } catch (const JsonMistake& mistake) {
        throw FileMistake(path, mistake.what());
    } catch (const json::exception& error) {
        throw FileMistake(path, "not JSON: " + without_prefix(error.what()));
    }
}
