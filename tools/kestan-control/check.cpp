#include "tools/kestan-control/check.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <stdexcept>
#include <utility>

#include "tools/json/shown_text.h"
#include "tools/rules/bit_rate.h"
#include "tools/rules/rules.h"
#include "tools/service/diagnostics.h"

namespace {

constexpr std::size_t kBitsPerKbit = 1000;

struct CheckedFiles {
    JoinedFiles joined;
    std::vector<FileFinding> findings;
    bool is_whole = false;  // all files could be read
    bool can_be_sent = false;
};

std::vector<FileFinding> with(std::vector<FileFinding> first,
                              const std::vector<FileFinding>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::set<std::string> paths_with_errors(const std::vector<FileFinding>& findings) {
    std::set<std::string> paths;
    for (const FileFinding& finding : findings) {
        if (finding.severity == Severity::kError) paths.insert(finding.path);
    }
    return paths;
}

// Returns each place where the tables of the files break a rule, and an error if they
// need more than the bit rate.
std::vector<FileFinding> check_joined(const JoinedFiles& files,
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

CheckedFiles check_files(const TableFiles& files, const CheckSettings& settings) {
    const ReadFiles read = files.read(settings.of_doubts);
    CheckedFiles checked{JoinedFiles(read.files), with(read.mistakes, read.doubts)};
    // Tables that could not be read would count as missing, and their bit rate as 0.
    if (!read.mistakes.empty()) return checked;
    checked.is_whole = true;
    checked.findings =
        with(std::move(checked.findings), check_joined(checked.joined, settings));
    checked.can_be_sent =
        settings.is_forced || paths_with_errors(checked.findings).empty();
    return checked;
}

}  // namespace

void print_findings(std::ostream& to, const std::vector<FileFinding>& findings,
                    Severity least) {
    for (const FileFinding& finding : findings) {
        if (finding.severity > least) continue;
        to << level_prefix(to, finding.severity) << finding.line() << '\n';
    }
    to.flush();
}

std::string bit_rate_line(const Multiplex& tables) {
    return "bit rate: " + needed_bit_rate(tables).text();
}

bool report_check(const TableFiles& files, const CheckSettings& settings) {
    const CheckedFiles checked = check_files(files, settings);
    print_findings(std::cout, checked.findings, Severity::kInformation);
    if (checked.is_whole)
        std::cout << bit_rate_line(checked.joined.tables()) << std::endl;
    if (!std::cout)
        throw std::runtime_error("cannot write the findings: is the disk full?");
    return checked.can_be_sent;
}

std::optional<JoinedFiles> tables_to_send(const TableFiles& files,
                                          const CheckSettings& settings) {
    CheckedFiles checked = check_files(files, settings);
    print_findings(std::cerr, checked.findings, Severity::kWarning);
    if (!checked.can_be_sent) return std::nullopt;
    return std::move(checked.joined);
}

JoinedFiles valid_tables_to_send(const TableFiles& files, const CheckSettings& settings) {
    auto [valid, mistakes, doubts] = files.read(settings.of_doubts);
    print_findings(std::cerr, with(mistakes, doubts), Severity::kWarning);
    std::set<std::string> left_out = paths_with_errors(mistakes);
    while (!valid.empty()) {
        JoinedFiles joined(valid);
        const std::vector<FileFinding> findings = check_joined(joined, settings);
        const std::set<std::string> faulty = paths_with_errors(findings);
        if (faulty.empty() || settings.is_forced) {
            print_findings(std::cerr, findings, Severity::kWarning);
            for (const std::string& path : left_out) {
                complain(Severity::kError,
                         shown_path(path) + ": left out because of its errors");
            }
            return joined;
        }
        // Prints no warnings: without the faulty files they can be different ones.
        print_findings(std::cerr, findings, Severity::kError);
        const auto end = std::remove_if(
            valid.begin(), valid.end(),
            [&](const TableFile& file) { return faulty.count(file.path) != 0; });
        // An error of all files together leaves nothing to send.
        if (end == valid.end()) break;
        valid.erase(end, valid.end());
        left_out.insert(faulty.begin(), faulty.end());
    }
    throw std::runtime_error("no file can be served");
}
