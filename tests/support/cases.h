#ifndef KESTAN_TESTS_SUPPORT_CASES_H
#define KESTAN_TESTS_SUPPORT_CASES_H

#include <fstream>
#include <regex>
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
        std::smatch times;
        while (std::regex_search(line, times, std::regex(R"(([a-z\[\]])\{(\d+)\})"))) {
            line = times.prefix().str() +
                   std::string(std::stoul(times[2]), times.str()[0]) +
                   times.suffix().str();
        }
        const std::size_t arrow = line.find(" => ");
        cases.emplace_back(line.substr(0, arrow), line.substr(arrow + 4));
    }
    if (cases.empty()) throw std::runtime_error(std::string("no cases in ") + name);
    return cases;
}

#endif
