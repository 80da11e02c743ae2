#ifndef KESTAN_TOOLS_KESTAN_CONTROL_VERSION_HISTORY_H
#define KESTAN_TOOLS_KESTAN_CONTROL_VERSION_HISTORY_H

#include <cstdint>
#include <string>
#include <vector>

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

    // Reads what save() wrote. A file that is missing makes an empty history. Throws
    // std::runtime_error if the file is another one or cannot be read.
    [[nodiscard]] static VersionHistory load(const std::string& path);

    // Replaces the file in one step and makes its directory. Throws std::runtime_error.
    void save(const std::string& path) const;

private:
    template <typename Table>
    void take_table(TablePlace place, Table& table, Table& written, Table& sent);

    Multiplex written_;
    Multiplex
        sent_;  // the same tables in the same order, with the versions that went out
    bool raises_ = false;
    std::vector<UnchangedVersion> unchanged_;
};

#endif
