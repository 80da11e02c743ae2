#ifndef KESTAN_TESTS_SUPPORT_PROGRAM_H
#define KESTAN_TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// A program that a test runs; what it writes can be read as it comes. Killed and reaped
// with the object.
class Program {
public:
    // Starts arguments[0] with its arguments and, additionally, the environment variables
    // given as "NAME=value".
    explicit Program(std::vector<std::string> arguments,
                     const std::vector<std::string>& environment = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const;
    [[nodiscard]] pid_t pid() const { return pid_; }

    // Waits for the end; the exit status, or 128 plus the signal's number. Nothing when
    // it has not ended in time.
    std::optional<int> wait(std::chrono::milliseconds timeout);

    // Waits until standard error holds `text`; false when it does not come in time.
    [[nodiscard]] bool wait_for_error(const std::string& text,
                                      std::chrono::milliseconds timeout) const;

    // Everything written so far.
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string error() const;

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
    int output_fd_;
    int error_fd_;
};

// Runs a program to its end.
struct Ended {
    int status;  // as of Program::wait; -1 when it had to be killed after a minute
    std::string output;
    std::string error;
};
[[nodiscard]] Ended run(std::vector<std::string> arguments);

#endif
