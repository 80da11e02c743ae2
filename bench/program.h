#ifndef KESTAN_BENCH_PROGRAM_H
#define KESTAN_BENCH_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

// A program that runs until it goes out of scope.
class Program {
public:
    // Started by its name or path; std::runtime_error when it cannot be.
    explicit Program(std::vector<std::string> arguments);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

private:
    pid_t pid_ = 0;
};

#endif
