#ifndef KESTAN_TOOLS_KESTAN_MONITOR_SCREEN_TERMINAL_H
#define KESTAN_TOOLS_KESTAN_MONITOR_SCREEN_TERMINAL_H

#include <termios.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

struct TerminalSize {
    std::size_t rows = 24;
    std::size_t columns = 80;

    bool operator==(const TerminalSize& other) const {
        return rows == other.rows && columns == other.columns;
    }
};

enum class Key { kUp, kDown, kPageUp, kPageDown, kQuit };

// Switches the terminal on standard output to a separate screen. The destructor restores
// the previous screen. One thread, and one object at a time.
class Terminal {
public:
    // Returns whether standard output is a terminal that knows control sequences: TERM
    // is set, and is not "dumb".
    [[nodiscard]] static bool is_there();

    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] static TerminalSize size();

    // Returns whether colours may be used: NO_COLOR is not set, or is empty.
    [[nodiscard]] static bool has_colour();

    // Returns the file descriptor that becomes readable when a key is pressed, or -1 if
    // standard input is not a terminal.
    [[nodiscard]] int key_fd() const;

    // Returns the keys that have been pressed since the last call.
    [[nodiscard]] std::vector<Key> read_keys() const;

    // Shows `lines` from the top, in place of what was shown. REQUIRES: they fit.
    static void show(const std::vector<std::string>& lines);

private:
    std::optional<termios> input_before_;  // no value: standard input is no terminal
};

#endif
