#include "tests/support/random_tables.h"

#include <algorithm>
#include <string>

#include "dvb/psi_si.h"

using namespace orvel::thrift::dvb_tables;

std::int32_t RandomTables::up_to(std::int32_t highest) {
    const std::int32_t limits[] = {0, highest, highest / 2 + 1};  // the topmost bit alone
    const std::size_t choice = below(8);
    if (choice < std::size(limits)) return limits[choice];
    return static_cast<std::int32_t>(below(static_cast<std::size_t>(highest) + 1));
}

std::vector<Descriptor> RandomTables::descriptors(std::size_t bytes) {
    std::vector<Descriptor> all;
    while (bytes >= 2) {
        std::size_t length = below(4) == 0 ? 255 : below(256);
        length = std::min(length, bytes - 2);
        if (bytes - 2 - length == 1) length == 0 ? ++length : --length;
        Descriptor& descriptor = all.emplace_back();
        descriptor.tag = up_to(0xFF);
        descriptor.data.resize(length);
        for (char& byte : descriptor.data) byte = static_cast<char>(below(256));
        bytes -= std::min(bytes, 2 + length);
    }
    return all;
}

PAT RandomTables::pat(std::size_t programs) {
    PAT pat;
    pat.transport_stream_id = up_to(0xFFFF);
    pat.version_number = up_to(31);
    pat.current_next_indicator = below(4) != 0;
    pat.programs.resize(programs);
    for (PATProgram& program : pat.programs) {
        program.program_number = up_to(0xFFFF);
        program.pid = std::max(1, up_to(kMaxPid));
    }
    return pat;
}

CAT RandomTables::cat(std::size_t descriptor_bytes) {
    CAT cat;
    cat.version_number = up_to(31);
    cat.current_next_indicator = below(4) != 0;
    cat.descriptors = descriptors(descriptor_bytes);
    return cat;
}

SDT RandomTables::sdt(std::size_t services, std::size_t descriptor_bytes) {
    SDT sdt;
    sdt.transport_stream_id = up_to(0xFFFF);
    sdt.original_network_id = up_to(0xFFFF);
    sdt.version_number = up_to(31);
    sdt.current_next_indicator = below(4) != 0;
    sdt.services.resize(services);
    for (SDTService& service : sdt.services) {
        service.service_id = up_to(0xFFFF);
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
    pmt.current_next_indicator = below(4) != 0;
    pmt.pcr_pid = up_to(kMaxPid);
    const std::size_t program_bytes = below(bytes / 2 + 1);
    pmt.descriptors = descriptors(program_bytes);
    bytes -= program_bytes;
    while (bytes >= stream_header) {
        const std::size_t stream_bytes = std::min(bytes - stream_header, below(400));
        PMTStream& stream = pmt.streams.emplace_back();
        stream.stream_type = up_to(0xFF);
        stream.elementary_pid = up_to(kMaxPid);
        stream.descriptors = descriptors(stream_bytes);
        bytes -= stream_header + stream_bytes;
    }
    return pmt;
}
