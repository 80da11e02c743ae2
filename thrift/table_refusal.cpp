#include "thrift/table_refusal.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"

using namespace orvel::thrift::dvb_tables;

namespace {

using Fault = std::optional<std::string>;

constexpr std::int32_t kMax8Bits = 0xFF;
constexpr std::int32_t kMax16Bits = 0xFFFF;

// Kestan puts 100 programs in a section.
constexpr std::size_t kMaxPatPrograms = kMaxSections * 100;

// Writes a number in groups of three digits: "25,600".
std::string grouped(std::size_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
    return text;
}

// Returns a fault if `amount` is above `most`. `what` includes its verb, such as
// "services take".
Fault too_much(const char* what, std::size_t amount, const char* unit, std::size_t most) {
    if (amount <= most) return std::nullopt;
    return what + (" " + grouped(amount)) + " " + unit + ", " + grouped(most) + " fit";
}

struct Field {
    const char* name;
    std::int32_t value;
    std::int32_t lowest;
    std::int32_t highest;
};

Fault out_of_range(std::initializer_list<Field> fields) {
    for (const Field& field : fields) {
        if (field.lowest <= field.value && field.value <= field.highest) continue;
        return field.name + (" is " + std::to_string(field.value)) + ", " +
               std::to_string(field.lowest) + " to " + std::to_string(field.highest) +
               " fit";
    }
    return std::nullopt;
}

// Puts the place of the fault before its text.
Fault at(const std::string& place, const Fault& fault) {
    if (!fault) return std::nullopt;
    return place + ": " + *fault;
}

std::string element(const char* list, std::size_t index) {
    return list + ("[" + std::to_string(index)) + "]";
}

std::size_t size_of(const Descriptor& descriptor) {
    return kDescriptorHeaderSize + descriptor.data.size();
}

std::size_t size_of(const std::vector<Descriptor>& descriptors) {
    std::size_t size = 0;
    for (const Descriptor& descriptor : descriptors) size += size_of(descriptor);
    return size;
}

Fault fault_of(const Descriptor& descriptor) {
    if (Fault fault = out_of_range({{"tag", descriptor.tag, 0, kMax8Bits}})) return fault;
    return too_much("data takes", descriptor.data.size(), "bytes", kMaxDescriptorData);
}

Fault fault_of(const std::vector<Descriptor>& descriptors) {
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
        if (const Fault fault = fault_of(descriptors[i])) {
            return at(element("descriptors", i), fault);
        }
    }
    return std::nullopt;
}

Fault fault_of(const PATProgram& program) {
    return out_of_range({{"program_number", program.program_number, 0, kMax16Bits},
                         {"pid", program.pid, 1, kMaxPid}});
}

Fault fault_of(const PAT& pat) {
    if (Fault fault =
            out_of_range({{"transport_stream_id", pat.transport_stream_id, 0, kMax16Bits},
                          {"version_number", pat.version_number, 0, kMax8Bits}})) {
        return fault;
    }
    for (const PATProgram& program : pat.programs) {
        if (const Fault fault = fault_of(program)) {
            return at("program " + std::to_string(program.program_number), fault);
        }
    }
    return too_much("the table has", pat.programs.size(), "programs", kMaxPatPrograms);
}

Fault fault_of(const CAT& cat) {
    if (Fault fault =
            out_of_range({{"version_number", cat.version_number, 0, kMax8Bits}})) {
        return fault;
    }
    if (Fault fault = fault_of(cat.descriptors)) return fault;
    SectionFill fill(section_capacity(kCatHeaderSize));
    for (const Descriptor& descriptor : cat.descriptors) fill.add(size_of(descriptor));
    return too_much("descriptors take", fill.sections(), "sections", kMaxSections);
}

Fault fault_of(const SDTService& service) {
    if (Fault fault = out_of_range(
            {{"service_id", service.service_id, 0, kMax16Bits},
             {"running_status", service.running_status, 0, kMaxRunningStatus}})) {
        return fault;
    }
    if (Fault fault = fault_of(service.descriptors)) return fault;
    return too_much("descriptors take", size_of(service.descriptors), "bytes",
                    section_capacity(kSdtHeaderSize) - kSdtServiceHeaderSize);
}

Fault fault_of(const SDT& sdt) {
    if (Fault fault =
            out_of_range({{"transport_stream_id", sdt.transport_stream_id, 0, kMax16Bits},
                          {"original_network_id", sdt.original_network_id, 0, kMax16Bits},
                          {"version_number", sdt.version_number, 0, kMax8Bits}})) {
        return fault;
    }
    SectionFill fill(section_capacity(kSdtHeaderSize));
    for (const SDTService& service : sdt.services) {
        if (const Fault fault = fault_of(service)) {
            return at("service " + std::to_string(service.service_id), fault);
        }
        fill.add(kSdtServiceHeaderSize + size_of(service.descriptors));
    }
    return too_much("services take", fill.sections(), "sections", kMaxSections);
}

Fault fault_of(const PMTStream& stream) {
    if (Fault fault =
            out_of_range({{"stream_type", stream.stream_type, 0, kMax8Bits},
                          {"elementary_pid", stream.elementary_pid, 0, kMaxPid}})) {
        return fault;
    }
    return fault_of(stream.descriptors);
}

Fault fault_of(const PMT& pmt) {
    if (Fault fault = out_of_range({{"program_number", pmt.program_number, 0, kMax16Bits},
                                    {"version_number", pmt.version_number, 0, kMax8Bits},
                                    {"pcr_pid", pmt.pcr_pid, 0, kMaxPid}})) {
        return fault;
    }
    if (Fault fault = fault_of(pmt.descriptors)) return fault;
    std::size_t size = size_of(pmt.descriptors);
    for (std::size_t i = 0; i < pmt.streams.size(); ++i) {
        const PMTStream& stream = pmt.streams[i];
        if (const Fault fault = fault_of(stream)) {
            return at(element("streams", i), fault);
        }
        size += kPmtStreamHeaderSize + size_of(stream.descriptors);
    }
    return too_much("descriptors and streams take", size, "bytes",
                    section_capacity(kPmtHeaderSize));
}

}  // namespace

Fault refusal_reason(const PAT& pat) {
    return at("PAT", fault_of(pat));
}

Fault refusal_reason(const CAT& cat) {
    return at("CAT", fault_of(cat));
}

Fault refusal_reason(const SDT& sdt) {
    return at("SDT", fault_of(sdt));
}

Fault refusal_reason(const PMT& pmt) {
    return at("PMT of service " + std::to_string(pmt.program_number), fault_of(pmt));
}
