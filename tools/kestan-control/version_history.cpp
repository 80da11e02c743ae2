#include "tools/kestan-control/version_history.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "dvb/psi_si.h"
#include "tools/json/multiplex_json.h"

using nlohmann::json;

namespace {

constexpr std::int32_t kVersions = kMaxVersionNumber + 1;

// Returns the version that Kestan plays.
std::int32_t played_version(std::int32_t version) {
    return version < kVersions ? version : 0;
}

template <typename Table>
bool has_same_content(Table one, const Table& other) {
    one.version_number = other.version_number;
    return one == other;
}

// Returns whether `other` has each table that `tables` has.
bool has_all_of(const Multiplex& tables, const Multiplex& other) {
    bool has_all = true;
    for_each_single_table([&](TableKind, auto member) {
        if (tables.*member && !(other.*member)) has_all = false;
    });
    return has_all &&
           std::all_of(tables.pmts.begin(), tables.pmts.end(), [&](const PmtOnPid& pmt) {
               return find_pmt(other.pmts, pmt.pmt.program_number) != nullptr;
           });
}

// Records one table, and returns it if its content has changed under the same version.
template <typename Table>
std::optional<UnchangedVersion> take_table(TablePlace place, bool raises, Table& table,
                                           Table& written, Table& sent) {
    const Table as_written = table;
    const std::int32_t last = played_version(sent.version_number);
    const bool has_changed = !has_same_content(table, written);
    const bool has_new_version = table.version_number != written.version_number &&
                                 played_version(table.version_number) != last;
    std::optional<UnchangedVersion> unchanged;
    if (has_changed && !has_new_version) {
        if (raises) table.version_number = (last + 1) % kVersions;
        unchanged = {place, as_written.version_number, table.version_number};
    } else if (!has_changed && raises && !has_new_version) {
        table.version_number = sent.version_number;
    }
    written = as_written;
    sent = table;
    return unchanged;
}

}  // namespace

std::vector<UnchangedVersion> VersionHistory::take(Multiplex& tables, bool raises) {
    std::vector<UnchangedVersion> all_unchanged;
    const auto take_one = [&](TablePlace place, auto& table, auto& written, auto& sent) {
        const auto unchanged = take_table(place, raises, table, written, sent);
        if (unchanged) all_unchanged.push_back(*unchanged);
    };
    for_each_single_table([&](TableKind kind, auto member) {
        auto& table = tables.*member;
        if (!table) return;
        if (!(written_.*member)) written_.*member = sent_.*member = table;
        take_one({kind, 0}, *table, *(written_.*member), *(sent_.*member));
    });
    for (std::size_t i = 0; i < tables.pmts.size(); ++i) {
        PmtOnPid& pmt = tables.pmts[i];
        const std::int32_t service = pmt.pmt.program_number;
        if (find_pmt(written_.pmts, service) == nullptr) {
            written_.pmts.push_back(pmt);
            sent_.pmts.push_back(pmt);
        }
        take_one({TableKind::kPmt, i}, pmt.pmt, find_pmt(written_.pmts, service)->pmt,
                 find_pmt(sent_.pmts, service)->pmt);
    }
    return all_unchanged;
}

VersionHistory VersionHistory::from_json(const json& document) {
    VersionHistory history;
    const JsonNode root(document);
    root.expect_fields({"written", "sent"});
    history.written_ = multiplex_from_json(root["written"]);
    history.sent_ = multiplex_from_json(root["sent"]);
    if (!has_all_of(history.written_, history.sent_)) {
        throw std::runtime_error("a table that was written is missing in what was sent");
    }
    return history;
}

nlohmann::ordered_json VersionHistory::to_json() const {
    return {{"written", multiplex_to_json(written_)}, {"sent", multiplex_to_json(sent_)}};
}
