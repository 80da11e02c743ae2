#include "tools/kestan-monitor/screen/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>
#include <utility>

namespace {

// Control sequences: alternate screen, hidden cursor, no line wrap; and back.
constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr const char* kLeave = "\x1b[?7h\x1b[?25h\x1b[?1049l";

constexpr std::array<std::pair<std::string_view, Key>, 7> kKeys{{
    {"\x1b[A", Key::kUp},
    {"\x1b[B", Key::kDown},
    {"\x1b[5~", Key::kPageUp},
    {"\x1b[6~", Key::kPageDown},
    {"k", Key::kUp},
    {"j", Key::kDown},
    {"q", Key::kQuit},
}};

bool can_be_read(int fd) {
    pollfd readable{fd, POLLIN, 0};
    return poll(&readable, 1, 0) > 0 && (readable.revents & POLLIN) != 0;
}

}  // namespace

bool Terminal::is_there() {
    const char* const type = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && type != nullptr && *type != '\0' &&
           std::string_view(type) != "dumb";
}

Terminal::Terminal() {
    termios input{};
    if (tcgetattr(STDIN_FILENO, &input) == 0) {
        input_before_ = input;
        input.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        // Ctrl-Z would leave the shell with a terminal in this state.
        input.c_cc[VSUSP] = _POSIX_VDISABLE;
        tcsetattr(STDIN_FILENO, TCSANOW, &input);
    }
    std::cout << kEnter << std::flush;
}

Terminal::~Terminal() {
    std::cout << kLeave << std::flush;
    if (input_before_) tcsetattr(STDIN_FILENO, TCSANOW, &*input_before_);
}

TerminalSize Terminal::size() {
    winsize size{};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 &&
                          size.ws_row != 0 && size.ws_col != 0;
    return is_known ? TerminalSize{size.ws_row, size.ws_col} : TerminalSize{};
}

bool Terminal::has_colour() {
    const char* const no_color = std::getenv("NO_COLOR");
    return no_color == nullptr || *no_color == '\0';
}

int Terminal::key_fd() const {
    return input_before_ ? STDIN_FILENO : -1;
}

std::vector<Key> Terminal::read_keys() const {
    std::vector<Key> keys;
    std::array<char, 64> input{};
    if (!input_before_ || !can_be_read(STDIN_FILENO)) return keys;
    const ssize_t size = read(STDIN_FILENO, input.data(), input.size());
    std::string_view rest(input.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    while (!rest.empty()) {
        std::size_t used = 1;
        for (const auto& [text, key] : kKeys) {
            if (rest.substr(0, text.size()) != text) continue;
            keys.push_back(key);
            used = text.size();
            break;
        }
        rest.remove_prefix(used);
    }
    return keys;
}

void Terminal::show(const std::vector<std::string>& lines) {
    std::string text = "\x1b[H";
    for (std::size_t i = 0; i < lines.size(); ++i)
        text +=
            (i > 0 ? "\r\n\x1b[K" : "\x1b[K") + lines[i];  // erased before it is drawn
    if (lines.size() < size().rows) text += "\r\n\x1b[J";
    std::cout << text << std::flush;
}
