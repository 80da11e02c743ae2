#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CHECK_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CHECK_H

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/table_files.h"

// Settings of the check that precedes sending.
struct CheckSettings {
    bool is_forced = false;  // send in spite of errors
    // Of a number that may be meant otherwise, as "0100". serve only warns: a file that
    // an earlier version has sent stays on air.
    Severity of_doubts = Severity::kError;
    std::optional<std::int64_t> bitrate_kbps;  // that the tables have to fit in
};

// Writes one line for each finding that is `least` or more severe.
void print_findings(std::ostream& to, const std::vector<FileFinding>& findings,
                    Severity least);

// Returns a text such as "bit rate: 25.0 packets a second, 37.6 kbit/s".
[[nodiscard]] std::string bit_rate_line(const Multiplex& tables);

// Checks the files and prints everything to standard output, and last the bit rate if all
// files could be read. Returns whether the tables can be sent.
[[nodiscard]] bool report_check(const TableFiles& files, const CheckSettings& settings);

// Returns the tables to send: those of all files. Prints what is wrong to standard error.
// Returns nullopt if a file cannot be read, or if a rule is broken and `is_forced` is
// false.
[[nodiscard]] std::optional<JoinedFiles> tables_to_send(const TableFiles& files,
                                                        const CheckSettings& settings);

// Returns the tables to send when nothing is on air yet: leaves out the files with an
// error and keeps the others. Throws std::runtime_error if no file is left.
[[nodiscard]] JoinedFiles valid_tables_to_send(const TableFiles& files,
                                               const CheckSettings& settings);

#endif
