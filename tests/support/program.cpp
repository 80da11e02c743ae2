#include "tests/support/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPollInterval = 5ms;

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

void read_available(int fd, std::string& into) {
    std::array<char, 65536> buffer{};
    for (ssize_t n = 0; (n = read(fd, buffer.data(), buffer.size())) > 0;) {
        into.append(buffer.data(), static_cast<std::size_t>(n));
    }
}

}  // namespace

Program::Program(std::vector<std::string> arguments,
                 const std::vector<std::string>& environment) {
    std::array<int, 2> output{};
    std::array<int, 2> error{};
    if (pipe2(output.data(), O_CLOEXEC) != 0 || pipe2(error.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    output_fd_ = output[0];
    error_fd_ = error[0];
    fcntl(output_fd_, F_SETFL, O_NONBLOCK);
    fcntl(error_fd_, F_SETFL, O_NONBLOCK);

    std::vector<std::string> variables = environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    const int failure =
        posix_spawnp(&pid_, arguments[0].c_str(), &actions, nullptr,
                     pointers(arguments).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    close(error[1]);
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
    const auto end = Clock::now() + timeout;
    while (!status_) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (Clock::now() >= end) {
            break;
        } else {
            read_all();  // a full pipe would keep it from ending
            std::this_thread::sleep_for(kPollInterval);
        }
    }
    return status_;
}

bool Program::wait_for_error(const std::string& text, std::chrono::milliseconds timeout) {
    const auto end = Clock::now() + timeout;
    while (error().find(text) == std::string::npos) {
        if (Clock::now() >= end) return false;
        std::this_thread::sleep_for(kPollInterval);
    }
    return true;
}

std::string Program::output() {
    read_all();
    return output_;
}

std::string Program::error() {
    read_all();
    return error_;
}

void Program::read_all() {
    read_available(output_fd_, output_);
    read_available(error_fd_, error_);
}

Ended run(std::vector<std::string> arguments) {
    Program program(std::move(arguments));
    const int status = program.wait(60s).value_or(-1);
    return {status, program.output(), program.error()};
}
