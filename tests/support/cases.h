#ifndef KESTAN_TESTS_SUPPORT_CASES_H
#define KESTAN_TESTS_SUPPORT_CASES_H

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Reads the cases of a file in tests/data. Each line has the input, " => " and the
// expected output. A count after a letter or bracket, as in a{600}, repeats it.
inline std::vector<std::pair<std::string, std::string>> cases_in(const char* name) {
    std::vector<std::pair<std::string, std::string>> cases;
    std::ifstream file(std::string(KESTAN_TEST_DATA "/") + name);
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        for (std::size_t at = 1; at < line.size(); ++at) {
            unsigned times = 0;
            int length = 0;
            if (line[at] == '{') std::sscanf(&line[at], "{%u}%n", &times, &length);
            if (length == 0) continue;
            line.replace(at - 1, 1 + static_cast<std::size_t>(length), times,
                         line[at - 1]);
        }
        const std::size_t arrow = line.find(" => ");
        cases.emplace_back(line.substr(0, arrow), line.substr(arrow + 4));
    }
    if (cases.empty()) throw std::runtime_error(std::string("no cases in ") + name);
    return cases;
}

#endif
