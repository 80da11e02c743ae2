#ifndef KESTAN_TOOLS_RECEIVE_SECTION_SET_H
#define KESTAN_TOOLS_RECEIVE_SECTION_SET_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/receive/section.h"

// The sections of one table, those of the version that came last. One thread.
class SectionSet {
public:
    enum class Change : std::uint8_t {
        kNone,
        kAdded,     // the version had no section of this number
        kReplaced,  // it had another section of this number
    };

    // Keeps the section; the first one of a version removes those of the version before.
    // Ignores a section_number above the last one. REQUIRES: it is long and valid.
    Change add(const Section& section);

    [[nodiscard]] std::optional<std::uint8_t> version() const { return version_; }

    // Returns whether all sections of the version have come.
    [[nodiscard]] bool is_complete() const {
        return bytes_.size() == std::size_t{last_number_} + 1;
    }

    // Returns the sections in the order of their numbers. They last until the next add().
    [[nodiscard]] std::vector<Section> sections() const;

private:
    std::optional<std::uint8_t> version_;
    std::uint8_t last_number_ = 0;
    std::map<std::uint8_t, std::string> bytes_;  // of each section, by section_number
};

#endif
