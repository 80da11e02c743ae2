#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CHECK_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CHECK_H

#include <cstdint>
#include <iosfwd>
#include <optional>
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

// Returns each place where the tables of the files break a rule, and an error if they
// need more than the bit rate.
[[nodiscard]] std::vector<FileFinding> check_files(const JoinedFiles& files,
                                                   const CheckSettings& settings);

// Writes one line for each finding. Information is left out unless it is asked for.
void print_findings(std::ostream& to, const std::vector<FileFinding>& findings,
                    bool with_information);

// Returns a text such as "bit rate: 25.0 packets a second, 37.6 kbit/s".
[[nodiscard]] std::string bit_rate_line(const Multiplex& tables);

// Checks the files and prints everything to `report`, and last the bit rate if all files
// could be read. Returns whether the tables can be sent.
[[nodiscard]] bool report_check(const TableFiles& files, const CheckSettings& settings,
                                std::ostream& report);

// Returns the tables to send: those of all files. Prints what is wrong to `errors`.
// Returns nullopt if a file cannot be read, or if a rule is broken and `is_forced` is
// false.
[[nodiscard]] std::optional<JoinedFiles> tables_to_send(const TableFiles& files,
                                                        const CheckSettings& settings,
                                                        std::ostream& errors);

// Returns the tables to send when nothing is on air yet: leaves out the files with an
// error and keeps the others. Returns nullopt if no file is left.
[[nodiscard]] std::optional<JoinedFiles> valid_tables_to_send(
    const TableFiles& files, const CheckSettings& settings, std::ostream& errors);

#endif
