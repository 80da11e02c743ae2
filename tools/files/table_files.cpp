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

// Adds the kinds of the file's tables but PMTs. Throws FileMistake if there is one of
// them already.
void add_single_tables(const TableFile& file, std::set<TableKind>& kinds) {
    for_each_single_table([&](TableKind kind, auto member) {
        if (!(file.tables.*member) || kinds.count(kind) == 0) return;
        const std::string name = table_info(kind).key;
        throw FileMistake(file.path, {{0, name + ": an earlier file has this table too, "
                                                 "expected it in one file"}});
    });
    for_each_single_table([&](TableKind kind, auto member) {
        if (file.tables.*member) kinds.insert(kind);
    });
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

// Returns the files that the paths stand for. `kind` is that of a file with its own path.
std::vector<std::pair<std::string, FileKind>> expand(
    const std::vector<std::string>& paths, FileKind kind,
    std::vector<FileFinding>& mistakes) {
    std::vector<std::pair<std::string, FileKind>> files;
    for (const std::string& path : paths) {
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            files.emplace_back(path, kind);
            continue;
        }
        try {
            const std::vector<std::string> in_it = json_files_in(path);
            for (const std::string& file : in_it)
                files.emplace_back(file, FileKind::kRegular);
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

}  // namespace

std::string FileFinding::line() const {
    const std::string file =
        shown_path(path) + (line_number == 0 ? "" : ':' + std::to_string(line_number));
    return std::string(name_of(severity)) + ": " + (path.empty() ? "" : file + ": ") +
           text;
}

ReadFiles TableFiles::read(Severity of_doubts) const {
    ReadFiles read;
    std::set<TableKind> singles;
    for (const auto& [path, kind] : expand(paths_, kind_, read.mistakes)) {
        std::vector<FileRemark> doubts;
        try {
            TableFile file{path, read_multiplex_file(path, kind, &doubts)};
            add_single_tables(file, singles);
            read.files.push_back(std::move(file));
        } catch (const FileMistake& mistake) {
            for (const auto& [line, text] : mistake.remarks())
                read.mistakes.push_back({Severity::kError, path, text, line});
        }
        for (const auto& [line, text] : doubts)
            read.doubts.push_back({of_doubts, path, text, line});
    }
    return read;
}

JoinedFiles::JoinedFiles(const std::vector<TableFile>& files) {
    for (const TableFile& file : files) {
        for_each_single_table([&](TableKind kind, auto member) {
            if (!(file.tables.*member)) return;
            tables_.*member = file.tables.*member;
            singles_[static_cast<std::size_t>(kind)].path = file.path;
        });
        for (std::size_t i = 0; i < file.tables.pmts.size(); ++i) {
            tables_.pmts.push_back(file.tables.pmts[i]);
            pmts_.push_back({file.path, i});
        }
    }
}

FileFinding JoinedFiles::in_file(Finding finding) const {
    TablePlace& table = finding.table;
    const Origin& origin = table.kind == TableKind::kPmt
                               ? pmts_[table.pmt]
                               : singles_[static_cast<std::size_t>(table.kind)];
    table.pmt = origin.pmt;
    std::string text = place_of(finding) + ": " + finding.text;
    if (!finding.clause.empty()) text += " (" + std::string(finding.clause) + ')';
    return {finding.severity, origin.path, std::move(text)};
}
