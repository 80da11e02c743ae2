#include "thrift/table_refusal.h"

namespace orvel::thrift::dvb_tables::refusal {

namespace {

// Writes a number in groups of three digits: "25,600".
std::string grouped(std::size_t number) {
    constexpr std::size_t group = 3;
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > group; at -= group) {
        text.insert(at - group, ",");
    }
    return text;
}

}  // namespace

std::string out_of_range(const NumberField& field, std::int32_t value) {
    return std::string(field.name) + " is " + std::to_string(value) + ", " +
           std::to_string(field.lowest) + " to " + std::to_string(field.highest()) +
           " fit";
}

std::string too_long(const char* name, std::size_t size, std::size_t most) {
    return too_much(std::string(name) + " takes", size, "bytes", most);
}

std::string too_much(const std::string& what, std::size_t amount, const char* unit,
                     std::size_t most) {
    return what + " " + grouped(amount) + " " + unit + ", " + grouped(most) + " fit";
}

std::string place_of(const PATProgram& program, const char* /*list*/, std::size_t) {
    return "program " + std::to_string(program.program_number);
}

std::string place_of(const SDTService& service, const char* /*list*/, std::size_t) {
    return "service " + std::to_string(service.service_id);
}

std::string name_of(const PMT& pmt) {
    return std::string(table_info(TableKind::kPmt).full_name) + ' ' +
           std::to_string(pmt.program_number);
}

Fault excess(const PAT& pat) {
    constexpr std::size_t most = kMaxSections * kPatProgramsPerSection;
    if (pat.programs.size() <= most) return std::nullopt;
    return too_much("the table has", pat.programs.size(), "programs", most);
}

}  // namespace orvel::thrift::dvb_tables::refusal
