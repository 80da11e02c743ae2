#include "tests/support/random_tables.h"

#include <algorithm>
#include <limits>
#include <string>

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::int32_t kMaxPid = 0x1FFF;
constexpr std::int32_t kMax8 = 0xFF;
constexpr std::int32_t kMax16 = 0xFFFF;

}  // namespace

std::int32_t RandomTables::up_to(std::int32_t highest) {
    switch (below(8)) {
        case 0:
            return 0;
        case 1:
            return highest;
        case 2:
            return highest / 2 + 1;  // the topmost bit alone
        default:
            return static_cast<std::int32_t>(
                below(static_cast<std::size_t>(highest) + 1));
    }
}

void RandomTables::spoil_one(std::initializer_list<Field> fields,
                             std::vector<Descriptor>* descriptors) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::size_t choice = below(fields.size() + (descriptors != nullptr ? 1 : 0));
    if (choice == fields.size()) {
        descriptors->emplace_back().data.resize(256 + below(1000));
        return;
    }
    const Field& field = *(fields.begin() + choice);
    const std::int32_t beyond[] = {-1, limits::min(), field.highest + 1, limits::max()};
    *field.value = beyond[below(std::size(beyond))];
}

std::vector<Descriptor> RandomTables::descriptors(std::size_t bytes) {
    std::vector<Descriptor> all;
    while (bytes >= 2) {
        std::size_t length = below(4) == 0 ? 255 : below(256);
        length = std::min(length, bytes - 2);
        if (bytes - 2 - length == 1) length == 0 ? ++length : --length;
        Descriptor& descriptor = all.emplace_back();
        descriptor.tag = up_to(kMax8);
        descriptor.data.resize(length);
        for (char& byte : descriptor.data) byte = static_cast<char>(below(256));
        bytes -= std::min(bytes, 2 + length);
    }
    return all;
}

PAT RandomTables::pat(std::size_t programs) {
    PAT pat;
    pat.transport_stream_id = up_to(kMax16);
    pat.version_number = up_to(31);
    for (std::size_t i = 0; i < programs; ++i) {
        PATProgram& program = pat.programs.emplace_back();
        program.program_number = up_to(kMax16);
        program.pid = std::max(1, up_to(kMaxPid));
    }
    return pat;
}

CAT RandomTables::cat(std::size_t descriptor_bytes) {
    CAT cat;
    cat.version_number = up_to(31);
    cat.descriptors = descriptors(descriptor_bytes);
    return cat;
}

SDT RandomTables::sdt(std::size_t services, std::size_t descriptor_bytes) {
    SDT sdt;
    sdt.transport_stream_id = up_to(kMax16);
    sdt.original_network_id = up_to(kMax16);
    sdt.version_number = up_to(31);
    for (std::size_t i = 0; i < services; ++i) {
        SDTService& service = sdt.services.emplace_back();
        service.service_id = up_to(kMax16);
        service.eit_schedule_flag = below(2) == 0;
        service.eit_present_following_flag = below(2) == 0;
        service.running_status = up_to(7);
        service.free_ca_mode = below(2) == 0;
        service.descriptors = descriptors(descriptor_bytes);
    }
    return sdt;
}

PMT RandomTables::pmt(std::int32_t program_number, std::size_t bytes) {
    constexpr std::size_t stream_header = 5;
    PMT pmt;
    pmt.program_number = program_number;
    pmt.version_number = up_to(31);
    pmt.pcr_pid = up_to(kMaxPid);
    const std::size_t program_bytes = below(bytes / 2 + 1);
    pmt.descriptors = descriptors(program_bytes);
    bytes -= program_bytes;
    while (bytes >= stream_header) {
        const std::size_t stream_bytes = std::min(bytes - stream_header, below(400));
        PMTStream& stream = pmt.streams.emplace_back();
        stream.stream_type = up_to(kMax8);
        stream.elementary_pid = up_to(kMaxPid);
        stream.descriptors = descriptors(stream_bytes);
        bytes -= stream_header + stream_bytes;
    }
    return pmt;
}

void RandomTables::spoil(PAT& pat) {
    PATProgram& program = pat.programs.emplace_back();
    program.pid = 1;
    if (below(4) == 0) {
        program.pid = 0;
        return;
    }
    spoil_one({{&pat.transport_stream_id, kMax16},
               {&pat.version_number, kMax8},
               {&program.program_number, kMax16},
               {&program.pid, kMaxPid}},
              nullptr);
}

void RandomTables::spoil(CAT& cat) {
    Descriptor& descriptor = cat.descriptors.emplace_back();
    spoil_one({{&cat.version_number, kMax8}, {&descriptor.tag, kMax8}}, &cat.descriptors);
}

void RandomTables::spoil(SDT& sdt) {
    SDTService& service = sdt.services.emplace_back();
    if (below(6) == 0) {
        service.descriptors = descriptors(1005 + 2 * below(500));
        return;
    }
    spoil_one({{&sdt.transport_stream_id, kMax16},
               {&sdt.original_network_id, kMax16},
               {&sdt.version_number, kMax8},
               {&service.service_id, kMax16},
               {&service.running_status, 7}},
              &service.descriptors);
}

void RandomTables::spoil(PMT& pmt) {
    PMTStream& stream = pmt.streams.emplace_back();
    if (below(6) == 0) {
        pmt.descriptors = descriptors(1009 + 2 * below(500));
        return;
    }
    spoil_one({{&pmt.program_number, kMax16},
               {&pmt.version_number, kMax8},
               {&pmt.pcr_pid, kMaxPid},
               {&stream.stream_type, kMax8},
               {&stream.elementary_pid, kMaxPid}},
              &stream.descriptors);
}
