#include "tools/kestan-monitor/carried_tables.h"

#include <algorithm>
#include <array>

#include "dvb/psi_si.h"
#include "tools/json/dvb_text.h"
#include "tools/receive/table_collector.h"

namespace {

constexpr std::int64_t kServiceDescriptorTag = 0x48;

// Gives a decoder the sections of one PID, each in packets of its own.
class SectionFeed {
public:
    SectionFeed(TableCollector& to, std::uint16_t pid) : to_(to), pid_(pid) {}

    void push(const TableRecord& table) {
        for (const auto& [number, section] : table.contents()) push(section);
    }

private:
    void push(const std::string& section) {
        std::size_t at = 0;
        while (at < section.size()) {
            std::array<std::uint8_t, kTsPacketSize> packet{};
            packet.fill(kStuffingByte);
            const bool is_first = at == 0;
            packet[0] = kSyncByte;
            packet[1] =
                static_cast<std::uint8_t>((is_first ? kPayloadUnitStart : 0) | pid_ >> 8);
            packet[2] = static_cast<std::uint8_t>(pid_ & 0xFF);
            packet[3] =
                static_cast<std::uint8_t>(kHasPayload | (counter_++ & kContinuityMask));
            packet[4] = 0;  // pointer_field, in the first one
            const std::size_t header = is_first ? 5 : 4;
            const std::size_t size =
                std::min(kTsPacketSize - header, section.size() - at);
            std::copy_n(section.begin() + static_cast<std::ptrdiff_t>(at), size,
                        packet.begin() + header);
            to_.push(packet.data());
            at += size;
        }
    }

    TableCollector& to_;
    std::uint16_t pid_;
    std::uint8_t counter_ = 0;
};

std::string name_of(const orvel::thrift::dvb_tables::Descriptor& service) {
    const std::string& data = service.data;
    const auto length_at = [&](std::size_t at) -> std::size_t {
        return at < data.size() ? static_cast<std::uint8_t>(data[at]) : 0;
    };
    const std::size_t name_at = 2 + length_at(1);  // behind service_type and provider
    if (name_at >= data.size()) return "";
    const std::string field = data.substr(name_at + 1, length_at(name_at));
    if (const auto text = decode_dvb_text(field)) return *text;
    std::string ascii;  // of another coding, what all have in common
    for (const char byte : field) {
        if (byte >= ' ' && byte < 0x7F) ascii += byte;
    }
    return ascii;
}

}  // namespace

std::optional<orvel::thrift::dvb_tables::PAT> decode_pat(const TableRecord& table) {
    if (!table.is_complete()) return std::nullopt;
    TableCollector collector;
    SectionFeed(collector, kPatPid).push(table);
    return collector.pat();
}

Multiplex decode_tables(const std::map<std::uint16_t, PidRecord>& pids) {
    TableCollector collector;
    for (const auto& [number, pid] : pids) {  // the PAT first
        SectionFeed feed(collector, number);
        for (const auto& [key, table] : pid.tables) {
            if (table.is_complete()) feed.push(table);
        }
    }
    return collector.tables();
}

std::map<std::uint16_t, std::string> service_names(const Multiplex& tables) {
    std::map<std::uint16_t, std::string> names;
    if (!tables.sdt) return names;
    for (const auto& service : tables.sdt->services) {
        for (const auto& descriptor : service.descriptors) {
            if (descriptor.tag == kServiceDescriptorTag)
                names[static_cast<std::uint16_t>(service.service_id)] =
                    name_of(descriptor);
        }
    }
    return names;
}
