#include "tools/files/table_files.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "tools/json/multiplex_file.h"
#include "tools/json/shown_text.h"

namespace fs = std::filesystem;

namespace {

// Returns the names of the tables that a multiplex has only once and `tables` has.
std::vector<std::string> single_tables_of(const Multiplex& tables) {
    std::vector<std::string> names;
    for_each_single_table([&](TableKind kind, auto member) {
        if (tables.*member) names.emplace_back(table_info(kind).key);
    });
    return names;
}

std::vector<std::string> json_files_in(const std::string& directory) {
    std::vector<std::string> paths;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        const fs::path name = entry.path().filename();
        const bool is_hidden = name.string().front() == '.';
        if (name.extension() == ".json" && !is_hidden) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace

std::string FileFinding::line() const {
    const std::string file =
        shown_path(path) + (line_number == 0 ? "" : ':' + std::to_string(line_number));
    return std::string(name_of(severity)) + ": " + (path.empty() ? "" : file + ": ") +
           text;
}

std::vector<TableFiles::NamedFile> TableFiles::expand(
    std::vector<FileFinding>& mistakes) const {
    std::vector<NamedFile> files;
    for (const std::string& path : paths_) {
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            files.push_back({path, kind_});
            continue;
        }
        try {
            const std::vector<std::string> in_it = json_files_in(path);
            for (const std::string& file : in_it) {
                files.push_back({file, FileKind::kRegular});
            }
            if (in_it.empty()) {
                mistakes.push_back({Severity::kError, path,
                                    "no file in this directory is named *.json"});
            }
        } catch (const fs::filesystem_error& failure) {
            mistakes.push_back(
                {Severity::kError, path, "cannot be read: " + failure.code().message()});
        }
    }
    return files;
}

ReadFiles TableFiles::read(Severity of_doubts) const {
    ReadFiles read;
    std::set<std::string> seen;  // names of single tables
    for (const auto& [path, kind] : expand(read.mistakes)) {
        TableFile file{path, {}};
        std::vector<FileRemark> doubts;
        bool is_valid = true;
        try {
            file.tables = read_multiplex_file(path, kind, &doubts);
        } catch (const FileMistake& mistake) {
            is_valid = false;
            for (const auto& [line, text] : mistake.remarks()) {
                read.mistakes.push_back({Severity::kError, path, text, line});
            }
        }
        for (const auto& [line, text] : doubts) {
            read.doubts.push_back({of_doubts, path, text, line});
        }
        if (!is_valid) continue;
        const std::vector<std::string> names = single_tables_of(file.tables);
        const auto repeated =
            std::find_if(names.begin(), names.end(),
                         [&](const std::string& name) { return seen.count(name) != 0; });
        if (repeated != names.end()) {
            read.mistakes.push_back({Severity::kError, path,
                                     *repeated +
                                         ": an earlier file has this table too, expected "
                                         "it in one file"});
            continue;
        }
        seen.insert(names.begin(), names.end());
        read.files.push_back(std::move(file));
    }
    return read;
}

JoinedFiles::JoinedFiles(const std::vector<TableFile>& files) {
    for (const TableFile& file : files) {
        for_each_single_table([&](TableKind kind, auto member) {
            if (!(file.tables.*member)) return;
            tables_.*member = file.tables.*member;
            single_paths_[static_cast<std::size_t>(kind)] = file.path;
        });
        for (std::size_t i = 0; i < file.tables.pmts.size(); ++i) {
            tables_.pmts.push_back(file.tables.pmts[i]);
            pmts_.push_back({file.path, i});
        }
    }
}

const std::string& JoinedFiles::path_of(TablePlace table) const {
    if (table.kind == TableKind::kPmt) return pmts_[table.pmt].path;
    return single_paths_[static_cast<std::size_t>(table.kind)];
}

FileFinding JoinedFiles::in_file(Finding finding) const {
    const std::string& path = path_of(finding.table);
    if (finding.table.kind == TableKind::kPmt)
        finding.table.pmt = pmts_[finding.table.pmt].index;
    std::string text = place_of(finding) + ": " + finding.text;
    if (!finding.clause.empty()) text += " (" + std::string(finding.clause) + ')';
    return {finding.severity, path, std::move(text)};
}
