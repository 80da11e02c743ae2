#include "tools/receive/section_set.h"

#include <utility>

SectionSet::Change SectionSet::add(const Section& section) {
    if (section.number() > section.last_number()) return Change::kNone;
    const bool is_new_version =
        std::exchange(version_, section.version()) != section.version();
    if (is_new_version) bytes_.clear();
    last_number_ = section.last_number();
    bytes_.erase(bytes_.upper_bound(last_number_), bytes_.end());
    std::string& kept = bytes_[section.number()];
    if (kept == section.bytes()) return Change::kNone;
    const Change change = kept.empty() ? Change::kAdded : Change::kReplaced;
    kept = section.bytes();
    return change;
}

std::vector<Section> SectionSet::sections() const {
    std::vector<Section> sections;
    for (const auto& [number, bytes] : bytes_) {
        const auto* const first = reinterpret_cast<const std::uint8_t*>(bytes.data());
        sections.push_back(*Section::find(first, bytes.size()));
    }
    return sections;
}
