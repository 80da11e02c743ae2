#include "tools/json/multiplex_file.h"

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "tools/json/multiplex_json.h"

using nlohmann::json;

namespace {

std::string read_whole(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file.is_open()) text << file.rdbuf();
    if (!file.is_open() || (text.fail() && errno != 0)) {
        throw FileMistake(path +
                          ": cannot be read: " + std::generic_category().message(errno));
    }
    return text.str();
}

// Raises a mistake for a name that stands twice in one object: the library would keep one
// of the two values without a word.
class RepeatedFields {
public:
    bool operator()(int /*depth*/, json::parse_event_t event, const json& parsed) {
        if (event == json::parse_event_t::object_start) names_.emplace_back();
        if (event == json::parse_event_t::object_end) names_.pop_back();
        if (event != json::parse_event_t::key) return true;
        const bool is_new = names_.back().insert(parsed.get<std::string>()).second;
        if (is_new) return true;
        throw JsonMistake("found the field " + parsed.dump() +
                          " twice in one object, expected it once");
    }

private:
    std::vector<std::set<std::string>> names_;
};

// What the library says, from "line 3, column 7" on.
std::string without_prefix(const std::string& what) {
    const std::size_t line = what.find("line ");
    if (line != std::string::npos) return what.substr(line);
    const std::size_t bracket = what.find("] ");
    return bracket == std::string::npos ? what : what.substr(bracket + 2);
}

template <typename Table>
void move_table(std::optional<Table>& from, std::optional<Table>& to, const char* name,
                const std::string& path) {
    if (!from) return;
    if (to) {
        throw FileMistake(path + ": " + name + ": an earlier file has this table too, " +
                          "expected it in one file");
    }
    to = std::move(from);
}

}  // namespace

Multiplex read_multiplex_file(const std::string& path) {
    const std::string text = read_whole(path);
    try {
        auto repeated = std::make_shared<RepeatedFields>();
        const json document = json::parse(
            text, [repeated](auto&&... parsed) { return (*repeated)(parsed...); },
            /*allow_exceptions=*/true, /*ignore_comments=*/true);
        return multiplex_from_json(JsonNode(document));
    } catch (const JsonMistake& mistake) {
        throw FileMistake(path + ": " + mistake.what());
    } catch (const json::exception& error) {
        throw FileMistake(path + ": not JSON: " + without_prefix(error.what()));
    }
}

Multiplex read_multiplex_files(const std::vector<std::string>& paths) {
    Multiplex all;
    std::map<std::int32_t, std::string> file_of;  // by the service of a PMT
    for (const std::string& path : paths) {
        Multiplex read = read_multiplex_file(path);
        move_table(read.pat, all.pat, "pat", path);
        move_table(read.cat, all.cat, "cat", path);
        move_table(read.sdt, all.sdt, "sdt", path);
        for (PmtOnPid& pmt : read.pmts) {
            const std::int32_t service = pmt.pmt.program_number;
            const auto [other, is_new] = file_of.emplace(service, path);
            if (!is_new) {
                throw FileMistake(path + ": pmts: " + other->second +
                                  " has a PMT of service " + std::to_string(service) +
                                  " too, expected it in one file");
            }
            all.pmts.push_back(std::move(pmt));
        }
    }
    return all;
}
