#include "tools/kestan-control/state_file.h"

#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "tools/json/shown_text.h"
#include "tools/json/text_file.h"
#include "tools/service/diagnostics.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kFormat = 1;
constexpr const char* kFormatField = "format";

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string state_directory() {
    std::string of_service = environment("STATE_DIRECTORY");
    if (!of_service.empty()) return of_service;
    const std::string of_user = environment("XDG_STATE_HOME");
    if (!of_user.empty()) return of_user + "/kestan-control";
    const std::string home = environment("HOME");
    return home.empty() ? "" : home + "/.local/state/kestan-control";
}

// Returns nullopt if there is no file.
std::optional<std::string> read_if_present(const std::string& path) {
    try {
        return read_text_file(path, FileKind::kRegular);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
        throw;
    }
}

}  // namespace

StateFile::StateFile(const char* name, const ControlAddress& address) {
    const std::string directory = state_directory();
    if (directory.empty()) return;
    path_ = directory + '/' + name + '-' + address.host + '-' +
            std::to_string(address.set) + ".json";
}

void StateFile::load(const char* effect, const std::function<void(const json&)>& read) {
    if (!keeps()) return;
    try {
        const auto text = read_if_present(path_);
        if (!text) return;
        json content = json::parse(*text);
        const int format = content.value(kFormatField, 1);
        is_newer_ = format > kFormat;
        if (is_newer_) {
            throw std::runtime_error("a newer release wrote it (format " +
                                     std::to_string(format) + "); it is left as it is");
        }
        content.erase(kFormatField);
        kept_ = *text;
        read(content);
    } catch (const std::exception& error) {
        warn(shown_path(path_) + ": not read: " + error.what() + ": " + effect);
    }
}

void StateFile::save(const nlohmann::ordered_json& content) {
    if (!keeps() || is_newer_) return;
    nlohmann::ordered_json with_format{{kFormatField, kFormat}};
    with_format.update(content);
    const std::string text = with_format.dump() + '\n';
    if (text == kept_) return;
    kept_.clear();
    try {
        fs::create_directories(fs::path(path_).parent_path());
        replace_text_file(path_, text, FileUse::kState);
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error(shown_path(path_) + ": cannot be written: directory " +
                                 shown_path(error.path1().string()) +
                                 " cannot be made: " + error.code().message());
    } catch (const std::system_error& error) {
        throw std::runtime_error(shown_path(path_) +
                                 ": cannot be written: " + error.code().message());
    }
    kept_ = text;
}

bool StateFile::remove() {
    kept_.clear();
    unlink(path_.c_str());
    std::error_code error;
    return !fs::exists(fs::symlink_status(path_, error));
}
