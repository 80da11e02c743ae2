#ifndef KESTAN_TOOLS_JSON_DOCUMENT_WALK_H
#define KESTAN_TOOLS_JSON_DOCUMENT_WALK_H

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// Follows the parser through a JSON text, and calls visit(walk) where the document, a
// field or an element begins. The library has such a callback for json::parse() too, but
// its time grows with the square of an array's elements.
template <typename Visit>
class DocumentWalk final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit DocumentWalk(Visit visit) : visit_(std::move(visit)) {}

    // Returns the path to what has been reached, as in "pmts[2].streams[0].pid".
    [[nodiscard]] std::string path() const { return path_of(open_.size()); }

    // Returns the path to the object or array that it is in. REQUIRES: it is in one.
    [[nodiscard]] std::string owner() const { return path_of(open_.size() - 1); }

    // Returns how many objects and arrays it is in.
    [[nodiscard]] std::size_t depth() const { return open_.size(); }

    // Returns whether it is a field of an object that had one of this name before.
    [[nodiscard]] bool is_repeated() const {
        return !open_.empty() && open_.back().is_repeated;
    }

    // Returns the field's name, cut if it is longer than any that is known.
    // REQUIRES: a field has been reached.
    [[nodiscard]] const std::string& name() const { return open_.back().name; }

    bool null() override { return value(); }
    bool boolean(bool) override { return value(); }
    bool number_integer(number_integer_t) override { return value(); }
    bool number_unsigned(number_unsigned_t) override { return value(); }
    bool number_float(number_float_t, const string_t&) override { return value(); }
    bool string(string_t&) override { return value(); }
    bool binary(binary_t&) override { return value(); }
    bool start_object(std::size_t) override { return value() && open(true); }
    bool start_array(std::size_t) override { return value() && open(false); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        Open& object = open_.back();
        object.name = name.substr(0, kLongestName);
        object.is_repeated = !object.names.insert(name).second;
        visit_(*this);
        return true;
    }
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception&) override {
        return false;
    }

private:
    static constexpr std::size_t kLongestName = 64;

    // An object or array whose end has not come.
    struct Open {
        bool is_object;
        std::size_t elements = 0;  // of an array
        std::string name{};        // of an object's field that came last
        bool is_repeated = false;  // of the same
        std::set<std::string> names{};
    };

    // Takes the begin of a value. One in an object was visited at its name.
    bool value() {
        if (!open_.empty()) ++open_.back().elements;
        if (open_.empty() || !open_.back().is_object) visit_(*this);
        return true;
    }

    bool open(bool is_object) {
        open_.push_back({is_object});
        return true;
    }

    bool close() {
        open_.pop_back();
        return true;
    }

    [[nodiscard]] std::string path_of(std::size_t levels) const {
        std::string path;
        for (std::size_t i = 0; i < levels; ++i) {
            const Open& open = open_[i];
            if (open.is_object) {
                path += (path.empty() ? "" : ".") + open.name;
            } else {
                path += '[' + std::to_string(open.elements - 1) + ']';
            }
        }
        return path;
    }

    Visit visit_;
    std::vector<Open> open_;
};

#endif
