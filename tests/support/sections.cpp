#include "tests/support/sections.h"

#include <boost/crc.hpp>

using namespace orvel::thrift::dvb_tables;

namespace {

template <typename Number>
std::string u8(Number value) {
    return {static_cast<char>(value)};
}

template <typename Number>
std::string u16(Number value) {
    return u8(value >> 8) + u8(value);
}

Sections entries_of(const std::vector<Descriptor>& descriptors) {
    Sections entries;
    for (const Descriptor& of : descriptors)
        entries.push_back(u8(of.tag) + u8(of.data.size()) + of.data);
    return entries;
}

// Returns the length field, whose highest bits are `flags`, and the descriptors after it.
std::string loop_of(int flags, const std::vector<Descriptor>& descriptors) {
    std::string loop;
    for (const std::string& entry : entries_of(descriptors)) loop += entry;
    return u16(static_cast<std::size_t>(flags) | loop.size()) + loop;
}

// Each section has `fixed` after its header, then whole entries of at most `room` bytes.
template <typename Table>
Sections make(int table_id, int flags, int extension, const Table& table,
              const std::string& fixed, const Sections& entries, std::size_t room) {
    Sections sections(1);
    for (const std::string& entry : entries) {
        if (sections.back().size() + entry.size() > room) sections.emplace_back();
        sections.back() += entry;
    }
    const int version = table.version_number << 1 | table.current_next_indicator;
    const std::string header = u8(table_id) + u16(flags) + u16(extension);
    for (std::size_t i = 0; i < sections.size(); ++i) {
        sections[i] = sealed(header + u8(0xC0 | version) + u8(i) +
                             u8(sections.size() - 1) + fixed + sections[i]);
    }
    return sections;
}

}  // namespace

Sections sections_of(const PAT& pat) {
    Sections entries;
    for (const PATProgram& program : pat.programs)
        entries.push_back(u16(program.program_number) + u16(0xE000 | program.pid));
    constexpr std::size_t room = 100 * 4;  // 100 programs
    return make(0x00, 0xB000, pat.transport_stream_id, pat, "", entries, room);
}

// libdvbpsi writes 0 to the 16 reserved bits.
Sections sections_of(const CAT& cat) {
    constexpr std::size_t room = 1024 - 8 - 4;
    return make(0x01, 0xB000, 0, cat, "", entries_of(cat.descriptors), room);
}

Sections sections_of(const SDT& sdt) {
    Sections entries;
    for (const SDTService& service : sdt.services) {
        const int eit =
            0xFC | service.eit_schedule_flag << 1 | service.eit_present_following_flag;
        const int status = service.running_status << 13 | service.free_ca_mode << 12;
        entries.push_back(u16(service.service_id) + u8(eit) +
                          loop_of(status, service.descriptors));
    }
    const std::string fixed = u16(sdt.original_network_id) + u8(0xFF);
    constexpr std::size_t room = 1024 - 11 - 4;
    return make(0x42, 0xF000, sdt.transport_stream_id, sdt, fixed, entries, room);
}

Sections sections_of(const PMT& pmt) {
    Sections entries;
    for (const PMTStream& stream : pmt.streams) {
        entries.push_back(u8(stream.stream_type) + u16(0xE000 | stream.elementary_pid) +
                          loop_of(0xF000, stream.descriptors));
    }
    const std::string fixed =
        u16(0xE000 | pmt.pcr_pid) + loop_of(0xF000, pmt.descriptors);
    constexpr std::size_t room = 1024;  // it is never split
    return make(0x02, 0xB000, pmt.program_number, pmt, fixed, entries, room);
}

std::string sealed(std::string section) {
    const bool is_long = (section[1] & 0x80) != 0;
    const std::size_t length = section.size() - 3 + (is_long ? 4 : 0);
    section[1] = static_cast<char>((section[1] & 0xF0) | length >> 8);
    section[2] = static_cast<char>(length);
    // ISO/IEC 13818-1, annex A.
    constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;
    const std::uint32_t crc = crc_32(section.data(), section.size());
    return is_long ? section + u16(crc >> 16) + u16(crc) : section;
}
