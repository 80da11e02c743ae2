#include "bench/program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

Program::Program(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    if (posix_spawnp(&pid_, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0)
        throw std::runtime_error("cannot start " + arguments[0]);
}

Program::~Program() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}
