#include "tools/receive/table_import.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "tools/receive/section_assembler.h"
#include "tools/receive/table_collector.h"
#include "tools/receive/ts_file.h"

namespace {

using FileBytes = std::vector<std::uint8_t>;

bool begins_with_section(const FileBytes& head) {
    const auto section = Section::find(head.data(), head.size());
    return section && section->is_long() && section->is_valid();
}

// Finds the valid sections in the bytes and counts the bytes that belong to none.
std::vector<Section> sections_in(const FileBytes& bytes, TableImport& import) {
    std::vector<Section> sections;
    for (std::size_t at = 0; at < bytes.size();) {
        if (bytes[at] == kStuffingByte) {
            ++at;
            continue;
        }
        const auto section = Section::find(&bytes[at], bytes.size() - at);
        if (!section) {
            import.is_cut = true;
            import.stray_bytes += bytes.size() - at;
            break;
        }
        at += section->size();
        if (section->is_valid()) {
            sections.push_back(*section);
        } else {
            import.stray_bytes += section->size();
        }
    }
    return sections;
}

void import_sections(const FileBytes& bytes, TableImport& import) {
    TableCollector collector;
    const std::vector<Section> sections = sections_in(bytes, import);
    import.sections = sections.size();
    for (const Section& section : sections) {
        for_each_single_table([&](TableKind kind, auto) {
            const TableInfo& table = table_info(kind);
            if (table.table_id == section.table_id()) collector.push(*table.pid, section);
        });
    }
    std::map<std::int32_t, std::uint16_t> pmt_pids;  // by service_id, from the last PAT
    if (collector.pat()) {
        for (const auto& program : collector.pat()->programs)
            pmt_pids.emplace(program.program_number, program.pid);
    }
    pmt_pids.erase(0);  // the network PID
    // A PMT may come before the PAT that announces its PID.
    for (const Section& section : sections) {
        if (section.table_id() != kPmtTableId || !section.is_long()) continue;
        const auto pid = pmt_pids.find(section.extension());
        if (pid == pmt_pids.end()) {
            ++import.homeless_pmts;
        } else {
            collector.push(pid->second, section);
        }
    }
    import.tables = collector.tables();
}

void import_packets(TsFile& file, TableImport& import) {
    TableCollector collector;
    std::map<std::uint16_t, PidSections> pids;
    while (const std::uint8_t* const packet = file.next()) {
        const std::uint16_t pid = pid_of(packet);
        if (!collector.follows(pid)) continue;
        const auto take = [pid, &collector](const Section& section, auto) {
            collector.push(pid, section);
        };
        pids.try_emplace(pid, take).first->second.push(packet);
    }
    import.tables = collector.tables();
    import.packets = file.packets();
    import.stray_bytes = file.stray_bytes();
    import.is_cut = file.is_cut();
}

}  // namespace

TableImport import_tables(const std::string& path) {
    std::ifstream opened;
    if (path != "-") opened.open(path, std::ios::binary);
    if (path != "-" && !opened.is_open()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    std::istream& in = path == "-" ? std::cin : opened;

    FileBytes head(kMaxPrivateSectionSize);
    in.read(reinterpret_cast<char*>(head.data()),
            static_cast<std::streamsize>(head.size()));
    if (in.bad()) throw std::system_error(errno, std::generic_category(), path);
    head.resize(static_cast<std::size_t>(in.gcount()));
    TableImport import;
    if (begins_with_section(head)) {
        if (in) head.insert(head.end(), std::istreambuf_iterator<char>(in), {});
        import_sections(head, import);
    } else {
        TsFile file(in, path, std::move(head));
        import_packets(file, import);
    }
    return import;
}
