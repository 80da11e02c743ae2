#include "tests/support/program.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

std::string content(int fd) {
    struct stat file {};
    fstat(fd, &file);
    std::string text(static_cast<std::size_t>(file.st_size), '\0');
    const ssize_t length = pread(fd, text.data(), text.size(), 0);
    return text.substr(0, static_cast<std::size_t>(length));
}

bool poll_until(std::chrono::milliseconds timeout, const std::function<bool()>& is_so) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!is_so()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

}  // namespace

Program::Program(std::vector<std::string> arguments,
                 const std::vector<std::string>& environment)
    : output_fd_(memfd_create("output", MFD_CLOEXEC)),
      error_fd_(memfd_create("error", MFD_CLOEXEC)) {
    arguments.insert(arguments.begin(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), "env");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output_fd_, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error_fd_, STDERR_FILENO);
    const int failure =
        posix_spawnp(&pid_, "env", &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + arguments[0]);
}

Program::~Program() {
    if (!status_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_fd_);
    close(error_fd_);
}

void Program::signal(int number) const {
    kill(pid_, number);
}

std::optional<int> Program::wait(std::chrono::milliseconds timeout) {
    poll_until(timeout, [&] {
        int status = 0;
        if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return status_.has_value();
    });
    return status_;
}

bool Program::wait_for_error(const std::string& text,
                             std::chrono::milliseconds timeout) const {
    return poll_until(timeout, [&] { return error().find(text) != std::string::npos; });
}

std::string Program::output() const {
    return content(output_fd_);
}

std::string Program::error() const {
    return content(error_fd_);
}

Ended run(std::vector<std::string> arguments) {
    Program program(std::move(arguments));
    const int status = program.wait(60s).value_or(-1);
    return {status, program.output(), program.error()};
}
