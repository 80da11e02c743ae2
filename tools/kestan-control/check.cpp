#include "tools/kestan-control/check.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <stdexcept>
#include <utility>

#include "tools/json/shown_text.h"
#include "tools/rules/bit_rate.h"
#include "tools/rules/rules.h"
#include "tools/service/diagnostics.h"

namespace {

constexpr std::size_t kBitsPerKbit = 1000;

std::vector<FileFinding> only_errors(std::vector<FileFinding> findings) {
    const auto end = std::remove_if(
        findings.begin(), findings.end(),
        [](const FileFinding& found) { return found.severity != Severity::kError; });
    findings.erase(end, findings.end());
    return findings;
}

std::vector<FileFinding> with(std::vector<FileFinding> first,
                              const std::vector<FileFinding>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::set<std::string> paths_with_errors(const std::vector<FileFinding>& findings) {
    std::set<std::string> paths;
    for (const FileFinding& finding : only_errors(findings)) paths.insert(finding.path);
    return paths;
}

// Returns whether it removed a file.
bool remove_files(std::vector<TableFile>& files, const std::set<std::string>& paths) {
    const auto end = std::remove_if(
        files.begin(), files.end(),
        [&](const TableFile& file) { return paths.count(file.path) != 0; });
    const bool has_removed = end != files.end();
    files.erase(end, files.end());
    return has_removed;
}

}  // namespace

std::vector<FileFinding> check_files(const JoinedFiles& files,
                                     const CheckSettings& settings) {
    std::vector<FileFinding> findings;
    for (const Finding& finding : check_tables(files.tables(), RuleScope::kFileTables)) {
        findings.push_back(files.in_file(finding));
    }
    if (!settings.bitrate_kbps) return findings;
    const BitRate needed = needed_bit_rate(files.tables());
    const auto bits = static_cast<std::size_t>(*settings.bitrate_kbps) * kBitsPerKbit;
    if (needed.bits_per_second() <= bits) return findings;
    findings.push_back({Severity::kError, "",
                        "the tables need " + needed.text() + ", and --bitrate allows " +
                            std::to_string(*settings.bitrate_kbps) +
                            " kbit/s: receivers get the tables too seldom"});
    return findings;
}

void print_findings(std::ostream& to, const std::vector<FileFinding>& findings,
                    bool with_information) {
    for (const FileFinding& finding : findings) {
        if (finding.severity == Severity::kInformation && !with_information) continue;
        to << level_prefix(to, finding.severity) << finding.line() << '\n';
    }
    to.flush();
}

std::string bit_rate_line(const Multiplex& tables) {
    return "bit rate: " + needed_bit_rate(tables).text();
}

bool report_check(const TableFiles& files, const CheckSettings& settings,
                  std::ostream& report) {
    ReadFiles read = files.read(settings.of_doubts);
    // Tables that could not be read would count as missing, and their bit rate as 0.
    const bool is_whole = read.mistakes.empty();
    const JoinedFiles joined(read.files);
    std::vector<FileFinding> findings = with(std::move(read.mistakes), read.doubts);
    if (is_whole) findings = with(std::move(findings), check_files(joined, settings));
    print_findings(report, findings, /*with_information=*/true);
    if (is_whole) report << bit_rate_line(joined.tables()) << '\n';
    report.flush();
    if (!report) throw std::runtime_error("cannot write the findings: is the disk full?");
    return is_whole && (settings.is_forced || !has_errors(findings));
}

std::optional<JoinedFiles> tables_to_send(const TableFiles& files,
                                          const CheckSettings& settings,
                                          std::ostream& errors) {
    const ReadFiles read = files.read(settings.of_doubts);
    JoinedFiles joined(read.files);
    std::vector<FileFinding> findings = with(read.mistakes, read.doubts);
    const bool is_whole = read.mistakes.empty();
    if (is_whole) findings = with(std::move(findings), check_files(joined, settings));
    print_findings(errors, findings, /*with_information=*/false);
    if (!is_whole) return std::nullopt;
    if (has_errors(findings) && !settings.is_forced) return std::nullopt;
    return joined;
}

std::optional<JoinedFiles> valid_tables_to_send(const TableFiles& files,
                                                const CheckSettings& settings,
                                                std::ostream& errors) {
    ReadFiles read = files.read(settings.of_doubts);
    print_findings(errors, with(read.mistakes, read.doubts), /*with_information=*/false);
    std::set<std::string> left_out = paths_with_errors(read.mistakes);
    while (!read.files.empty()) {
        JoinedFiles joined(read.files);
        const std::vector<FileFinding> findings = check_files(joined, settings);
        if (!has_errors(findings) || settings.is_forced) {
            print_findings(errors, findings, /*with_information=*/false);
            for (const std::string& path : left_out) {
                errors << level_prefix(errors, Severity::kError) << shown_path(path)
                       << ": left out because of its errors" << std::endl;
            }
            return joined;
        }
        // Prints no warnings: without the faulty files they can be different ones.
        print_findings(errors, only_errors(findings), /*with_information=*/false);
        const std::set<std::string> faulty = paths_with_errors(findings);
        // An error of all files together leaves nothing to send.
        if (!remove_files(read.files, faulty)) break;
        left_out.insert(faulty.begin(), faulty.end());
    }
    return std::nullopt;
}
