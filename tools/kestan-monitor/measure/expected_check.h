#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_EXPECTED_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_EXPECTED_CHECK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/pid_record.h"
#include "tools/model/multiplex.h"
#include "tools/rules/table_differences.h"

// Compares the tables on air with those of files.
//
// A table is on air while it is whole and comes within its repetition limit, or within
// that of the SDT if it has none. Here a PMT needs no PAT that announces it.
//
// The tables of a new set come on air one after the other. So a difference counts only
// once it has lasted for more than two seconds, or at the end of the run. Times are
// nanoseconds of the steady clock. One thread.
class ExpectedCheck {
public:
    explicit ExpectedCheck(FaultLog& faults) : faults_(faults) {}

    // Takes the tables of the files, in place of those before.
    void expect(Multiplex files, bool compares_versions);

    // Compares them with the tables on `pids` if any of these have changed, as
    // `has_new_tables` says, have come or have gone. Logs the differences that count by
    // `now`: each one once while it lasts.
    void advance(std::int64_t now, const PidRecords& pids, bool has_new_tables);

    // Forgets what lasts: the stream is down, which is another fault. It is compared
    // again by the next advance().
    void forget();

    // Logs the differences of the last advance() that have not lasted for long enough.
    void finish() { log_begun_by(INT64_MAX); }

    // Returns how many differences count now and are not accepted. Returns nullopt if
    // nothing is compared.
    [[nodiscard]] std::optional<std::size_t> differences() const;

private:
    // What differs: the table on a PID, in one respect.
    using Place = std::tuple<DifferenceKind, std::uint16_t, TableKey>;

    // `found` is the time of the fault, and `since` that of the first one at its place.
    struct Difference {
        Fault fault;
        std::int64_t since;
        std::int64_t found;
        bool is_logged = false;
    };

    void compare(std::int64_t now, const Multiplex& on_air);
    void log_begun_by(std::int64_t latest);

    FaultLog& faults_;
    std::optional<Multiplex> files_;
    bool compares_versions_ = true;

    // The tables on air at the last comparison; nullopt if there was none since the last
    // expect() or forget().
    std::optional<std::vector<std::pair<std::uint16_t, TableKey>>> on_air_;
    std::map<Place, Difference> differences_;
};

#endif
