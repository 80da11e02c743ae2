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

std::int32_t RandomTables::beyond(std::int32_t highest) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int32_t values[] = {-1, limits::min(), highest + 1, limits::max()};
    return values[below(std::size(values))];
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

Descriptor RandomTables::too_long_descriptor() {
    Descriptor descriptor;
    descriptor.tag = 0x80;
    descriptor.data.resize(256 + below(1000));
    return descriptor;
}

void RandomTables::spoil(PAT& pat) {
    switch (below(4)) {
        case 0:
            pat.transport_stream_id = beyond(kMax16);
            return;
        case 1:
            pat.version_number = beyond(kMax8);
            return;
        default:
            break;
    }
    PATProgram& program = pat.programs.emplace_back();
    program.pid = below(2) == 0 ? 0 : beyond(kMaxPid);
    if (below(2) == 0) return;
    program.pid = 1;
    program.program_number = beyond(kMax16);
}

void RandomTables::spoil(CAT& cat) {
    switch (below(3)) {
        case 0:
            cat.version_number = beyond(kMax8);
            return;
        case 1:
            cat.descriptors.push_back(too_long_descriptor());
            return;
        default:
            cat.descriptors.emplace_back().tag = beyond(kMax8);
    }
}

void RandomTables::spoil(SDT& sdt) {
    SDTService& service = sdt.services.emplace_back();
    switch (below(7)) {
        case 0:
            sdt.transport_stream_id = beyond(kMax16);
            return;
        case 1:
            sdt.original_network_id = beyond(kMax16);
            return;
        case 2:
            sdt.version_number = beyond(kMax8);
            return;
        case 3:
            service.service_id = beyond(kMax16);
            return;
        case 4:
            service.running_status = beyond(7);
            return;
        case 5:
            service.descriptors.push_back(too_long_descriptor());
            return;
        default:
            service.descriptors = descriptors(1005 + 2 * below(500));
    }
}

void RandomTables::spoil(PMT& pmt) {
    PMTStream& stream = pmt.streams.emplace_back();
    switch (below(8)) {
        case 0:
            pmt.program_number = beyond(kMax16);
            return;
        case 1:
            pmt.version_number = beyond(kMax8);
            return;
        case 2:
            pmt.pcr_pid = beyond(kMaxPid);
            return;
        case 3:
            stream.stream_type = beyond(kMax8);
            return;
        case 4:
            stream.elementary_pid = beyond(kMaxPid);
            return;
        case 5:
            stream.descriptors.push_back(too_long_descriptor());
            return;
        case 6:
            pmt.descriptors = descriptors(1009 + 2 * below(500));
            return;
        default:
            pmt.streams.resize(202);
    }
}
