#ifndef KESTAN_TOOLS_FILES_TABLE_FILES_H
#define KESTAN_TOOLS_FILES_TABLE_FILES_H

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tools/json/text_file.h"
#include "tools/model/multiplex.h"
#include "tools/rules/finding.h"

// The tables of one JSON file.
struct TableFile {
    std::string path;
    Multiplex tables;
};

// A mistake in the files, as a line for a person.
struct FileFinding {
    Severity severity = Severity::kError;
    std::string path;             // empty if it concerns all files together
    std::string text;             // the place in the file, what is wrong, what follows
    std::size_t line_number = 0;  // 0 if it is not known

    // Returns a text such as "error: tables.json:12: pmts[0].pid: …".
    [[nodiscard]] std::string line() const;
};

// The files that could be read, and why the others could not.
struct ReadFiles {
    std::vector<TableFile> files;
    std::vector<FileFinding> mistakes;
    std::vector<FileFinding> doubts;  // numbers that may be meant otherwise
};

// The files and directories that a command line names. A directory stands for the files
// named *.json in it, in the order of their names, without hidden ones. These files must
// be regular ones.
class TableFiles {
public:
    // `kind` is what the paths may name, apart from directories.
    TableFiles(std::vector<std::string> paths, FileKind kind)
        : paths_(std::move(paths)), kind_(kind) {}

    // Reads all of them. Doubts have the severity `of_doubts`. A PAT, CAT or SDT that an
    // earlier file has too is a mistake in the later file. So is a directory without a
    // file: its tables may be on air.
    [[nodiscard]] ReadFiles read(Severity of_doubts) const;

private:
    std::vector<std::string> paths_;
    FileKind kind_;
};

// The tables of several files as one multiplex. It knows from which file each table is.
class JoinedFiles {
public:
    // REQUIRES: at most one of the files has a PAT, one a CAT and one an SDT.
    explicit JoinedFiles(const std::vector<TableFile>& files);

    [[nodiscard]] const Multiplex& tables() const { return tables_; }

    // Converts a finding to one about the file that has the table.
    [[nodiscard]] FileFinding in_file(Finding finding) const;

private:
    struct Origin {
        std::string path;
        std::size_t pmt = 0;  // index in the file's pmts
    };

    Multiplex tables_;
    std::array<Origin, kTables.size()> singles_;  // by TableKind
    std::vector<Origin> pmts_;                    // as tables_.pmts
};

#endif
