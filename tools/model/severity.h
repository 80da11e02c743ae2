#ifndef KESTAN_TOOLS_MODEL_SEVERITY_H
#define KESTAN_TOOLS_MODEL_SEVERITY_H

#include <string_view>

// How much a finding or a message matters.
enum class Severity {
    kError,        // receivers go wrong, Kestan refuses a table, or a program fails
    kWarning,      // some receivers go wrong, or something is lost
    kInformation,  // may be intended
};

[[nodiscard]] constexpr std::string_view name_of(Severity severity) {
    if (severity == Severity::kError) return "error";
    return severity == Severity::kWarning ? "warning" : "information";
}

#endif
