#include "tools/json/document_path.h"

namespace {

constexpr std::size_t kLongestName = 64;

}  // namespace

bool DocumentPath::follow(Event event, const std::string& key) {
    if (event == Event::object_end || event == Event::array_end) {
        open_.pop_back();
        return false;
    }
    if (event == Event::key) {
        Open& object = open_.back();
        object.name = key.substr(0, kLongestName);
        object.is_repeated = !object.names.insert(key).second;
        return true;
    }
    const bool is_named = !open_.empty() && open_.back().is_object;
    if (!open_.empty()) ++open_.back().values;
    if (event == Event::object_start) open_.push_back({true});
    if (event == Event::array_start) open_.push_back({false});
    return !is_named;
}

std::string DocumentPath::of_outer(std::size_t levels) const {
    std::string path;
    for (std::size_t i = 0; i < levels; ++i) {
        const Open& open = open_[i];
        if (open.is_object) {
            if (open.names.empty()) break;  // no field has come
            path += (path.empty() ? "" : ".") + open.name;
        } else if (open.values != 0) {
            path += '[' + std::to_string(open.values - 1) + ']';
        }
    }
    return path;
}
