#include "tools/json/document_path.h"

bool DocumentPath::follow(Event event, const nlohmann::json& parsed) {
    if (event == Event::object_end || event == Event::array_end) {
        open_.pop_back();
        return false;
    }
    if (event == Event::key) {
        Open& object = open_.back();
        object.name = parsed.get<std::string>();
        object.is_repeated = !object.names.insert(object.name).second;
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
