#include "tools/kestan-control/version_history.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "tools/json/multiplex_json.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr std::int32_t kVersions = 32;  // ISO/IEC 13818-1, 2.4.4.5: 5 bits

// Returns the version that Kestan plays.
std::int32_t played_version(std::int32_t version) {
    return version < kVersions ? version : 0;
}

template <typename Table>
bool has_same_content(Table one, const Table& other) {
    one.version_number = other.version_number;
    return one == other;
}

PmtOnPid* pmt_of(std::vector<PmtOnPid>& pmts, std::int32_t service) {
    const auto found = std::find_if(pmts.begin(), pmts.end(), [&](const PmtOnPid& pmt) {
        return pmt.pmt.program_number == service;
    });
    return found == pmts.end() ? nullptr : &*found;
}

// Returns whether `other` has each table that `tables` has.
bool has_all_of(const Multiplex& tables, Multiplex& other) {
    return (!tables.pat || other.pat) && (!tables.cat || other.cat) &&
           (!tables.sdt || other.sdt) &&
           std::all_of(tables.pmts.begin(), tables.pmts.end(), [&](const PmtOnPid& pmt) {
               return pmt_of(other.pmts, pmt.pmt.program_number) != nullptr;
           });
}

json parse(const std::string& path, std::istream& file) {
    try {
        return json::parse(file);
    } catch (const json::exception& error) {
        throw std::runtime_error(path + ": not a history of versions: " + error.what());
    }
}

}  // namespace

template <typename Table>
void VersionHistory::take_table(TablePlace place, Table& table, Table& written,
                                Table& sent) {
    const Table as_written = table;
    const std::int32_t last = played_version(sent.version_number);
    const bool has_changed = !has_same_content(table, written);
    const bool has_new_version = table.version_number != written.version_number &&
                                 played_version(table.version_number) != last;
    if (has_changed && !has_new_version) {
        if (raises_) table.version_number = (last + 1) % kVersions;
        unchanged_.push_back({place, as_written.version_number, table.version_number});
    } else if (!has_changed && raises_ && !has_new_version) {
        table.version_number = sent.version_number;
    }
    written = as_written;
    sent = table;
}

std::vector<UnchangedVersion> VersionHistory::take(Multiplex& tables, bool raises) {
    raises_ = raises;
    unchanged_.clear();
    const auto take_one = [&](TableKind kind, auto& table, auto& written, auto& sent) {
        if (!table) return;
        if (!written) written = sent = table;
        take_table({kind, 0}, *table, *written, *sent);
    };
    take_one(TableKind::kPat, tables.pat, written_.pat, sent_.pat);
    take_one(TableKind::kCat, tables.cat, written_.cat, sent_.cat);
    take_one(TableKind::kSdt, tables.sdt, written_.sdt, sent_.sdt);
    for (std::size_t i = 0; i < tables.pmts.size(); ++i) {
        PmtOnPid& pmt = tables.pmts[i];
        const std::int32_t service = pmt.pmt.program_number;
        if (pmt_of(written_.pmts, service) == nullptr) {
            written_.pmts.push_back(pmt);
            sent_.pmts.push_back(pmt);
        }
        take_table({TableKind::kPmt, i}, pmt.pmt, pmt_of(written_.pmts, service)->pmt,
                   pmt_of(sent_.pmts, service)->pmt);
    }
    return std::move(unchanged_);
}

VersionHistory VersionHistory::load(const std::string& path) {
    VersionHistory history;
    std::ifstream file(path);
    if (!file.is_open() && !fs::exists(path)) return history;
    const json document = parse(path, file);
    try {
        const JsonNode root(document);
        root.expect_fields({"written", "sent"});
        history.written_ = multiplex_from_json(root["written"]);
        history.sent_ = multiplex_from_json(root["sent"]);
    } catch (const JsonMistake& mistake) {
        throw std::runtime_error(path + ": not a history of versions: " + mistake.what());
    }
    if (!has_all_of(history.written_, history.sent_)) {
        throw std::runtime_error(path +
                                 ": not a history of versions: a table is missing");
    }
    return history;
}

void VersionHistory::save(const std::string& path) const {
    const nlohmann::ordered_json document{{"written", multiplex_to_json(written_)},
                                          {"sent", multiplex_to_json(sent_)}};
    const std::string next = path + ".new";
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    std::ofstream file(next);
    file << document.dump() << std::endl;
    file.close();
    if (file) fs::rename(next, path, error);
    if (file && !error) return;
    throw std::runtime_error(path + ": cannot be written");
}
