#ifndef KESTAN_TOOLS_KESTAN_CONTROL_VERSION_HISTORY_H
#define KESTAN_TOOLS_KESTAN_CONTROL_VERSION_HISTORY_H

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/model/multiplex.h"
#include "tools/rules/finding.h"

// A table whose content has changed under the same version_number. Receivers ignore the
// change: they read a table again when its version changes (ISO/IEC 13818-1, 2.4.4.5).
struct UnchangedVersion {
    TablePlace table;
    std::int32_t written = 0;  // version_number in the file
    std::int32_t sent = 0;     // what goes out: the same, or raised
};

// The tables that went out last and their versions. It keeps a table that is no longer
// sent, since receivers remember it too.
class VersionHistory {
public:
    // Records the tables, as they are in the files, as the next ones to be sent. Returns
    // those whose content has changed under the same version. If `raises`, sets the
    // version of each of these in `tables` to the one after the last one sent, modulo 32,
    // and that of the others to the version under which they were sent before.
    std::vector<UnchangedVersion> take(Multiplex& tables, bool raises);

    // Reads what to_json() wrote. Throws a std::exception if it is something else.
    [[nodiscard]] static VersionHistory from_json(const nlohmann::json& document);
    [[nodiscard]] nlohmann::ordered_json to_json() const;

private:
    Multiplex written_;
    // The same tables in the same order, with the versions that went out.
    Multiplex sent_;
};

#endif
