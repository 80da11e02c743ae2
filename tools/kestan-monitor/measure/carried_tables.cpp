#include "tools/kestan-monitor/measure/carried_tables.h"

#include "dvb/psi_si.h"
#include "tools/json/descriptor_fields.h"
#include "tools/json/dvb_text.h"
#include "tools/json/shown_text.h"
#include "tools/receive/table_collector.h"

namespace {

// Removes the control codes of DVB, U+E080 to U+E09F.
std::string without_controls(const std::string& text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        const bool is_control = text.compare(at, 2, "\xEE\x82") == 0;
        if (!is_control) plain += text[at];
        at += is_control ? 3 : 1;
    }
    return plain;
}

std::string name_of(const orvel::thrift::dvb_tables::Descriptor& service) {
    const auto field = service_name_field(service);
    if (!field) return "";
    if (const auto text = decode_dvb_text(*field))
        return shown_text(without_controls(text->text));
    std::string ascii;  // of another coding, what all have in common
    for (const char byte : *field) {
        if (byte >= ' ' && byte < 0x7F) ascii += byte;
    }
    return ascii;
}

}  // namespace

Multiplex carried_tables(const PidRecords& pids) {
    TableCollector collector;
    for (const auto& [number, pid] : pids) {  // the PAT first
        for (const auto& [key, table] : pid.tables) {
            if (!table.is_complete()) continue;
            for (const Section& section : table.contents().sections())
                collector.push(number, section);
        }
    }
    return collector.tables();
}

std::map<std::uint16_t, std::string> service_names_in(const Multiplex& tables) {
    std::map<std::uint16_t, std::string> names;
    if (!tables.sdt) return names;
    for (const auto& service : tables.sdt->services) {
        for (const auto& descriptor : service.descriptors) {
            if (descriptor.tag == kServiceTag)
                names[static_cast<std::uint16_t>(service.service_id)] =
                    name_of(descriptor);
        }
    }
    return names;
}
