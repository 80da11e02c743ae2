#include "tools/rules/table_differences.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <type_traits>
#include <utility>

#include <nlohmann/json.hpp>

#include "dvb/psi_si.h"
#include "thrift/table_fields.h"
#include "tools/json/multiplex_json.h"
#include "tools/json/number_text.h"
#include "tools/json/shown_text.h"

using nlohmann::ordered_json;
using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::size_t kLongestElement = 60;
constexpr const char* kFilesHave = ", the files have ";

// A field that has different values; null stands for a field that is not there.
struct FieldDifference {
    std::string path;
    ordered_json stream;
    ordered_json files;
};

// Returns the value that a field has when multiplex_to_json leaves it out, because it has
// `value` in the other table.
ordered_json left_out(const ordered_json& value) {
    if (value.is_boolean()) return !value.get<bool>();
    if (value.is_array()) return ordered_json::array();
    if (value.is_number() && value != 0) return 0;
    return nullptr;
}

ordered_json field_of(const ordered_json& object, const std::string& name,
                      const ordered_json& other) {
    const auto field = object.find(name);
    return field == object.end() ? left_out(other) : *field;
}

ordered_json element_of(const ordered_json& array, std::size_t index) {
    return index < array.size() ? array[index] : nullptr;
}

// Returns whether the objects can be compared field by field. Two descriptors of
// different names cannot.
bool share_a_name(const ordered_json& one, const ordered_json& other) {
    if (!one.is_object() || !other.is_object()) return false;
    for (const auto& field : one.items()) {
        if (other.contains(field.key())) return true;
    }
    return false;
}

std::optional<FieldDifference> first_difference(const ordered_json& stream,
                                                const ordered_json& files,
                                                const std::string& path) {
    if (stream == files) return std::nullopt;
    if (stream.is_array() && files.is_array()) {
        for (std::size_t i = 0; i < std::max(stream.size(), files.size()); ++i) {
            auto found = first_difference(element_of(stream, i), element_of(files, i),
                                          path + '[' + std::to_string(i) + ']');
            if (found) return found;
        }
    }
    if (!share_a_name(stream, files)) return FieldDifference{path, stream, files};
    const std::string prefix = path.empty() ? "" : path + '.';
    for (const ordered_json* const named : {&files, &stream}) {
        for (const auto& [name, value] : named->items()) {
            auto found = first_difference(field_of(stream, name, value),
                                          field_of(files, name, value), prefix + name);
            if (found) return found;
        }
    }
    return std::nullopt;
}

// Texts are quoted whole: they may differ at their ends.
std::string quote(const ordered_json& value) {
    if (value.is_null()) return "nothing";
    const auto replace = ordered_json::error_handler_t::replace;
    std::string text = value.dump(-1, ' ', /*ensure_ascii=*/false, replace);
    // What is not shown may be the difference.
    if (shown_text(text) != text)
        text = value.dump(-1, ' ', /*ensure_ascii=*/true, replace);
    if (!value.is_structured() || text.size() <= kLongestElement) return text;
    std::size_t end = kLongestElement;
    while ((text[end] & 0xC0) == 0x80) --end;  // in the middle of a character
    return text.substr(0, end) + "…";
}

// Returns the fields of a table in its JSON, but for its version.
template <typename Table>
ordered_json fields_of(const Table& table) {
    constexpr TableKind kind = TableFields<Table>::kind;
    Multiplex alone;
    if constexpr (kind == TableKind::kPmt) {
        alone.pmts.push_back({0, table});
    } else {
        for_each_single_table([&](TableKind, auto member) {
            using Member = std::decay_t<decltype(alone.*member)>;
            if constexpr (std::is_same_v<Member, std::optional<Table>>)
                alone.*member = table;
        });
    }
    const ordered_json tables = multiplex_to_json(alone).at(table_info(kind).key);
    ordered_json fields = kind == TableKind::kPmt ? tables.at(0) : tables;
    fields.erase("version_number");
    return fields;
}

// Compares the tables one by one and collects the differences.
class Comparison {
public:
    explicit Comparison(bool compares_versions) : compares_versions_(compares_versions) {}

    // Takes a table of the stream, of the files, or of both; null stands for a table that
    // is not there.
    template <typename Table>
    void compare(const TableDifference& place, const Table* stream, const Table* files) {
        if (files == nullptr) {
            return add(place, DifferenceKind::kForeign,
                       "is on air, the files do not have it");
        }
        if (stream == nullptr) {
            if (!files->current_next_indicator) return;
            return add(place, DifferenceKind::kMissing, "is missing, the files have it");
        }
        if (*stream == *files) return;
        compare_versions(place, stream->version_number, files->version_number);
        const auto found = first_difference(fields_of(*stream), fields_of(*files), "");
        if (!found) return;
        add(place, DifferenceKind::kContent,
            "has " + quote(found->stream) + " at " + found->path + kFilesHave +
                quote(found->files));
    }

    void compare_pids(const TableDifference& place, std::uint16_t files) {
        if (place.pid == files) return;
        add(place, DifferenceKind::kPid,
            "is on PID " + pid_text(place.pid) + kFilesHave + pid_text(files));
    }

    [[nodiscard]] std::vector<TableDifference> found() && { return std::move(found_); }

private:
    void add(TableDifference place, DifferenceKind kind, std::string text) {
        place.kind = kind;
        place.text = std::move(text);
        found_.push_back(std::move(place));
    }

    void compare_versions(const TableDifference& place, std::int32_t stream,
                          std::int32_t files) {
        const bool is_too_high = files > kMaxVersionNumber;
        if (!compares_versions_ || stream == (is_too_high ? 0 : files)) return;
        add(place, DifferenceKind::kVersion,
            "is version " + std::to_string(stream) + kFilesHave + std::to_string(files) +
                (is_too_high ? ", which is 0 on air" : ""));
    }

    bool compares_versions_;
    std::vector<TableDifference> found_;
};

TableDifference place_of(const PmtOnPid& pmt) {
    return {TableKind::kPmt, static_cast<std::uint16_t>(pmt.pmt.program_number), pmt.pid};
}

// The PMTs of the files by service and PID.
using PmtsByPlace = std::map<std::pair<std::int32_t, std::uint16_t>, const PmtOnPid*>;

// Returns the service's PMT, that on the same PID if there is one, or null.
const PmtOnPid* counterpart(const PmtsByPlace& pmts, const PmtOnPid& of) {
    const auto same = pmts.find({of.pmt.program_number, of.pid});
    if (same != pmts.end()) return same->second;
    const auto first = pmts.lower_bound({of.pmt.program_number, 0});
    const bool is_its =
        first != pmts.end() && first->first.first == of.pmt.program_number;
    return is_its ? first->second : nullptr;
}

void compare_pmts(const Multiplex& stream, const Multiplex& files, Comparison& to) {
    PmtsByPlace expected;
    for (const PmtOnPid& pmt : files.pmts)
        expected.emplace(std::pair(pmt.pmt.program_number, pmt.pid), &pmt);
    std::set<const PmtOnPid*> on_air;
    for (const PmtOnPid& pmt : stream.pmts) {
        const TableDifference place = place_of(pmt);
        const PmtOnPid* const other = counterpart(expected, pmt);
        if (other != nullptr) to.compare_pids(place, other->pid);
        to.compare(place, &pmt.pmt, other == nullptr ? nullptr : &other->pmt);
        on_air.insert(other);
    }
    for (const auto& [place, pmt] : expected) {
        if (on_air.count(pmt) == 0) to.compare<PMT>(place_of(*pmt), nullptr, &pmt->pmt);
    }
}

}  // namespace

std::vector<TableDifference> table_differences(const Multiplex& stream,
                                               const Multiplex& files,
                                               bool compares_versions) {
    Comparison comparison(compares_versions);
    for_each_single_table([&](TableKind kind, auto member) {
        const auto& on_air = stream.*member;
        const auto& expected = files.*member;
        if (!on_air && !expected) return;
        comparison.compare({kind, 0, *table_info(kind).pid}, on_air ? &*on_air : nullptr,
                           expected ? &*expected : nullptr);
    });
    compare_pmts(stream, files, comparison);
    return std::move(comparison).found();
}
