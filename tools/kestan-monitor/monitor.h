#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MONITOR_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MONITOR_H

#include <csignal>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "tools/json/text_file.h"
#include "tools/kestan-monitor/measure/bit_rates.h"
#include "tools/kestan-monitor/measure/stream_statistics.h"
#include "tools/kestan-monitor/options.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/screen/terminal.h"
#include "tools/kestan-monitor/screen/terminal_view.h"
#include "tools/model/multiplex.h"
#include "tools/receive/packet_recorder.h"
#include "tools/receive/udp_receiver.h"

// Reads the tables of the files and directories that the options name, as kestan-control
// reads them. Writes their mistakes to standard error, or else their doubts. Returns
// nullopt if there is a mistake.
[[nodiscard]] std::optional<Multiplex> read_expected_tables(const Options& options,
                                                            FileKind kind);

// One run of the program: receives and measures the stream, and shows and writes what the
// options ask for. One thread.
class Monitor {
public:
    // Compares what is on air with the `expected` tables, if there are some. Throws
    // std::runtime_error if it cannot receive or cannot write a file.
    Monitor(const Options& options, std::optional<Multiplex> expected);

    // Runs for the duration of the options, or until `stop_requested` is not 0 or the
    // user ends it. Reads the files of tables again when `wants_reload` is not 0, and
    // resets it. A file that cannot be written does not end the run: standard error says
    // so once. Throws std::runtime_error.
    void run(const volatile std::sig_atomic_t& stop_requested,
             volatile std::sig_atomic_t& wants_reload);

    // Returns whether a file could not be written at any time, even if it could later.
    [[nodiscard]] bool has_lost_output() const { return !unwritten_.empty(); }

    // Returns the report of the whole run. REQUIRES: run() has returned.
    [[nodiscard]] Report report() const;

private:
    struct Screen {
        Screen() : view(Terminal::has_colour()) {}

        Terminal terminal;
        TerminalView view;
        TerminalSize drawn;  // the size when it was drawn last
    };

    [[nodiscard]] Report report_of_last_second() const;
    [[nodiscard]] std::int64_t receive(std::int64_t timeout);
    void read_expected_again();
    void look_at_terminal();
    void every_second(std::int64_t complete_until);
    void read_clock();
    void write_files();
    void open_files();
    void write_metrics() const;
    template <typename Write>
    bool try_to_write(const std::string& path, const char* consequence,
                      const Write& write);
    void say_complaints();
    void draw();

    Options options_;
    UdpReceiver receiver_;
    StreamStatistics stream_;
    RateMeter meter_;
    BitRates rates_;  // of the last second
    bool quit_ = false;
    std::optional<PacketRecorder> recorder_;
    std::optional<Screen> screen_;
    std::set<std::string> unwritten_;  // files that could not be written
    std::string complaints_;           // to be said when there is no display
};

#endif
