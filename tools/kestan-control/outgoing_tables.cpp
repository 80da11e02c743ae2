#include "tools/kestan-control/outgoing_tables.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "dvb/psi_si.h"
#include "tools/json/multiplex_json.h"
#include "tools/kestan-control/check.h"
#include "tools/service/diagnostics.h"

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

// Chooses the version of one table and records it. Returns whether the content has
// changed under the same version.
template <typename Table>
bool take_table(bool raises, Table& table, Table& written, Table& sent) {
    const Table as_written = table;
    const std::int32_t last = played_version(sent.version_number);
    const bool has_changed = !has_same_content(table, written);
    const bool has_new_version = table.version_number != written.version_number &&
                                 played_version(table.version_number) != last;
    if (raises && !has_new_version)
        table.version_number = has_changed ? (last + 1) % kVersions : sent.version_number;
    written = as_written;
    sent = table;
    return has_changed && !has_new_version;
}

// `raises` is whether the version has been raised.
Finding unchanged_version(TablePlace table, std::int32_t written, std::int32_t sent,
                          bool raises) {
    std::string text =
        raises ? "the table has changed, version " + std::to_string(sent) +
                     " goes out instead of " + std::to_string(written)
               : "the table has changed and is still version " + std::to_string(written) +
                     ": receivers ignore the change; raise the version, or use "
                     "--bump-versions";
    return {raises ? Severity::kInformation : Severity::kWarning,
            "",
            "",
            table,
            "version_number",
            std::move(text)};
}

}  // namespace

// A history that is lost must not keep the tables off the air.
OutgoingTables::OutgoingTables(const ControlAddress& address, bool raises)
    : file_("versions", address), raises_(raises) {
    if (raises && !file_.keeps()) {
        warn(
            "no directory to keep the versions in: set XDG_STATE_HOME, or changes may go "
            "out under their old version");
    }
    file_.load("the first change of a table may go out under its old version",
               [this](const json& kept) { read(kept); });
}

void OutgoingTables::read(const json& kept) {
    const JsonNode root(kept);
    root.expect_fields({"written", "sent"});
    Multiplex written = multiplex_from_json(root["written"]);
    Multiplex sent = multiplex_from_json(root["sent"]);
    if (!has_all_of(written, sent)) {
        throw std::runtime_error("a table that was written is missing in what was sent");
    }
    written_ = std::move(written);
    sent_ = std::move(sent);
}

Multiplex OutgoingTables::take(const JoinedFiles& files) {
    Multiplex tables = files.tables();
    const auto take_one = [&](TablePlace place, auto& table, auto& written, auto& sent) {
        const std::int32_t in_file = table.version_number;
        if (!take_table(raises_, table, written, sent)) return;
        const Finding finding =
            unchanged_version(place, in_file, table.version_number, raises_);
        print_findings(raises_ ? std::cout : std::cerr, {files.in_file(finding)},
                       Severity::kInformation);
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
    // Saved before the tables are sent, so that a version that was sent is not given
    // again after a restart.
    try {
        file_.save({{"written", multiplex_to_json(written_)},
                    {"sent", multiplex_to_json(sent_)}});
    } catch (const std::exception& error) {
        warn(std::string(error.what()) +
             ": after a restart, a change may go out under its old version");
    }
    return tables;
}
