#ifndef KESTAN_TOOLS_KESTAN_CONTROL_STATE_FILE_H
#define KESTAN_TOOLS_KESTAN_CONTROL_STATE_FILE_H

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/json/shown_text.h"
#include "tools/kestan-control/control_connection.h"

// A JSON object in a file, in which a process leaves what the next one needs to know.
//
// The object has a field "format": the version of its form. A file without it has format
// 1. A file of a newer format is of a newer release: it is never read and never changed.
// Errors are std::runtime_error, and their messages begin with the path. One thread.
class StateFile {
public:
    // Makes a file that keeps nothing.
    StateFile() = default;

    // Makes the file `name`-HOST-SET.json in the state directory: $STATE_DIRECTORY, or
    // kestan-control in $XDG_STATE_HOME or in ~/.local/state. Keeps nothing if none of
    // the three variables is set.
    StateFile(const char* name, const ControlAddress& address);

    // Returns whether something is kept.
    [[nodiscard]] bool keeps() const { return !path_.empty(); }

    // Returns what `parse` makes of the object, or nullopt if there is no file. Throws if
    // the file cannot be read, has a newer format, or if `parse` throws.
    template <typename Parse>
    [[nodiscard]] auto load(Parse parse)
        -> std::optional<decltype(parse(nlohmann::json()))> {
        try {
            const auto content = load_json();
            if (content) return parse(*content);
            return std::nullopt;
        } catch (const std::exception& error) {
            throw std::runtime_error(shown_path(path_) + ": not read: " + error.what());
        }
    }

    // Replaces the file in one step, and makes its directory. Does nothing if the file
    // has this content, or if load() found a newer format. Throws if it cannot.
    void save(const nlohmann::ordered_json& content);

    // Removes the file. Returns false if it is still there.
    [[nodiscard]] bool remove();

private:
    [[nodiscard]] std::optional<nlohmann::json> load_json();

    std::string path_;  // empty if nothing is kept
    std::string kept_;  // the text in the file, if it is known
    bool is_newer_ = false;
};

#endif
