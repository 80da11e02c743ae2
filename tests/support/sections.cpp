#include "tests/support/sections.h"

#include <boost/crc.hpp>

using namespace orvel::thrift::dvb_tables;

namespace {

// The room for entries in one section, in bytes.
constexpr std::size_t kPatRoom = 100 * 4;  // 100 programs
constexpr std::size_t kCatRoom = 1024 - 8 - 4;
constexpr std::size_t kSdtRoom = 1024 - 11 - 4;
constexpr std::size_t kPmtRoom = 1024;  // never split

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

std::string u8(std::int32_t value) {
    return {static_cast<char>(value)};
}

std::string u16(std::size_t value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string u16(std::int32_t value) {
    return u16(static_cast<std::size_t>(value));
}

Sections entries_of(const std::vector<Descriptor>& descriptors) {
    Sections entries;
    for (const Descriptor& descriptor : descriptors) {
        const auto length = static_cast<std::int32_t>(descriptor.data.size());
        entries.push_back(u8(descriptor.tag) + u8(length) + descriptor.data);
    }
    return entries;
}

// Returns the length field, whose highest bits are `flags`, and the descriptors after it.
std::string loop_of(std::size_t flags, const std::vector<Descriptor>& descriptors) {
    std::string loop;
    for (const std::string& entry : entries_of(descriptors)) loop += entry;
    return u16(flags | loop.size()) + loop;
}

// Each section has `fixed` after its header, then whole entries of at most `room` bytes.
template <typename Table>
Sections make(std::int32_t table_id, std::size_t flags, std::int32_t extension,
              const Table& table, const std::string& fixed, const Sections& entries,
              std::size_t room) {
    Sections loads(1);
    for (const std::string& entry : entries) {
        if (loads.back().size() + entry.size() > room) loads.emplace_back();
        loads.back() += entry;
    }
    const std::string version =
        u8(0xC0 | table.version_number << 1 | (table.current_next_indicator ? 1 : 0));
    const auto last = static_cast<std::int32_t>(loads.size() - 1);
    for (std::int32_t number = 0; number <= last; ++number) {
        std::string& section = loads[static_cast<std::size_t>(number)];
        const std::size_t length = 5 + fixed.size() + section.size() + 4;
        section = u8(table_id) + u16(flags | length) + u16(extension) + version +
                  u8(number) + u8(last) + fixed + section;
        const std::uint32_t crc = crc_32(section.data(), section.size());
        section += u16(std::size_t{crc >> 16}) + u16(std::size_t{crc});
    }
    return loads;
}

}  // namespace

Sections sections_of(const PAT& pat) {
    Sections entries;
    for (const PATProgram& program : pat.programs) {
        entries.push_back(u16(program.program_number) + u16(0xE000 | program.pid));
    }
    return make(0x00, 0xB000, pat.transport_stream_id, pat, "", entries, kPatRoom);
}

// libdvbpsi writes 0 to the 16 reserved bits.
Sections sections_of(const CAT& cat) {
    return make(0x01, 0xB000, 0, cat, "", entries_of(cat.descriptors), kCatRoom);
}

Sections sections_of(const SDT& sdt) {
    Sections entries;
    for (const SDTService& service : sdt.services) {
        const std::int32_t eit = 0xFC | (service.eit_schedule_flag ? 2 : 0) |
                                 (service.eit_present_following_flag ? 1 : 0);
        const std::int32_t status =
            service.running_status << 13 | (service.free_ca_mode ? 0x1000 : 0);
        entries.push_back(u16(service.service_id) + u8(eit) +
                          loop_of(static_cast<std::size_t>(status), service.descriptors));
    }
    return make(0x42, 0xF000, sdt.transport_stream_id, sdt,
                u16(sdt.original_network_id) + u8(0xFF), entries, kSdtRoom);
}

Sections sections_of(const PMT& pmt) {
    Sections entries;
    for (const PMTStream& stream : pmt.streams) {
        entries.push_back(u8(stream.stream_type) + u16(0xE000 | stream.elementary_pid) +
                          loop_of(0xF000, stream.descriptors));
    }
    return make(0x02, 0xB000, pmt.program_number, pmt,
                u16(0xE000 | pmt.pcr_pid) + loop_of(0xF000, pmt.descriptors), entries,
                kPmtRoom);
}
