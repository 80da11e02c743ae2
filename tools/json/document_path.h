#ifndef KESTAN_TOOLS_JSON_DOCUMENT_PATH_H
#define KESTAN_TOOLS_JSON_DOCUMENT_PATH_H

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// The path to what a JSON parser has come to, as in "pmts[2].streams[0].pid".
class DocumentPath {
public:
    using Event = nlohmann::json::parse_event_t;

    // Takes the parser's next event, with the name of a key. Returns true where a field,
    // an element or the document begins: text() is then its path.
    bool follow(Event event, const std::string& key = {});

    [[nodiscard]] std::string text() const { return of_outer(open_.size()); }

    // Returns the path to the object or array that the field or element is in.
    [[nodiscard]] std::string owner() const { return of_outer(open_.size() - 1); }

    // Returns how many objects and arrays are open.
    [[nodiscard]] std::size_t depth() const { return open_.size(); }

    // Returns whether the object had a field of this name before.
    // REQUIRES: the last event was a key.
    [[nodiscard]] bool is_repeated() const { return open_.back().is_repeated; }

    // Returns the name of the field, cut if it is longer than any that is known.
    // REQUIRES: the last event was a key.
    [[nodiscard]] const std::string& name() const { return open_.back().name; }

private:
    // An object or array whose end has not come.
    struct Open {
        bool is_object;
        std::size_t values = 0;
        std::string name{};  // of the field that came last
        bool is_repeated = false;
        std::set<std::string> names{};
    };

    [[nodiscard]] std::string of_outer(std::size_t levels) const;

    std::vector<Open> open_;
};

#endif
