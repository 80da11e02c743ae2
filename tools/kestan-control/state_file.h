#ifndef KESTAN_TOOLS_KESTAN_CONTROL_STATE_FILE_H
#define KESTAN_TOOLS_KESTAN_CONTROL_STATE_FILE_H

#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/kestan-control/control_connection.h"

// A JSON object in a file, in which a process leaves what the next one needs to know.
//
// The object has a field "format": the version of its form. A file without it has format
// 1. A file of a newer format is of a newer release: it is never read and never changed.
// One thread.
class StateFile {
public:
    // Makes the file `name`-HOST-SET.json in the state directory: $STATE_DIRECTORY, or
    // kestan-control in $XDG_STATE_HOME or in ~/.local/state. Keeps nothing if none of
    // the three variables is set.
    StateFile(const char* name, const ControlAddress& address);

    // Returns whether something is kept.
    [[nodiscard]] bool keeps() const { return !path_.empty(); }

    // Calls `read` with the object, if there is a file. If the file cannot be read or has
    // a newer format, or if `read` throws, warns and says with `effect` what follows.
    void load(const char* effect, const std::function<void(const nlohmann::json&)>& read);

    // Replaces the file in one step, and makes its directory. Does nothing if the file
    // has this content, or if load() found a newer format. Throws std::runtime_error if
    // it cannot; the message begins with the path.
    void save(const nlohmann::ordered_json& content);

    // Removes the file. Returns false if it is still there.
    [[nodiscard]] bool remove();

private:
    std::string path_;  // empty if nothing is kept
    std::string kept_;  // the text in the file, if it is known
    bool is_newer_ = false;
};

#endif
