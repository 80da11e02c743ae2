#include "tools/receive/table_import.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/crc.hpp>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "tools/receive/section_feed.h"
#include "tools/receive/table_collector.h"
#include "tools/receive/ts_file.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// The fields that sections have in common (ISO/IEC 13818-1, 2.4.4.11).
constexpr std::size_t kLengthEnd = 3;  // section_length counts the bytes behind it
constexpr std::size_t kLongHeaderSize = 8;

// ISO/IEC 13818-1, annex A.
constexpr auto kCrc32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

// A view of the section at the start of some bytes, which must outlive it.
class SectionView {
public:
    // REQUIRES: at least kLengthEnd bytes.
    SectionView(const std::uint8_t* bytes, std::size_t left)
        : bytes_(bytes), left_(left) {}

    [[nodiscard]] const std::uint8_t* begin() const { return bytes_; }
    [[nodiscard]] std::uint8_t table_id() const { return bytes_[0]; }
    [[nodiscard]] std::uint16_t table_id_extension() const {
        return static_cast<std::uint16_t>(bytes_[3] << 8 | bytes_[4]);
    }
    [[nodiscard]] std::size_t size() const {
        return kLengthEnd + ((bytes_[1] & 0x0FU) << 8 | bytes_[2]);
    }
    [[nodiscard]] bool is_whole() const { return size() <= left_; }
    [[nodiscard]] bool is_long() const {
        return (bytes_[1] & 0x80) != 0 && size() >= kLongHeaderSize + kCrc32Size;
    }
    [[nodiscard]] bool has_right_crc() const { return kCrc32(bytes_, size()) == 0; }

private:
    const std::uint8_t* bytes_;
    std::size_t left_;
};

bool begins_with_section(const Bytes& head) {
    if (head.size() < kLengthEnd) return false;
    const SectionView section(head.data(), head.size());
    return section.is_whole() && section.is_long() && section.has_right_crc();
}

// Returns the PID on which the PAT announces the service's PMT, if it does.
std::optional<std::uint16_t> pmt_pid(const TableCollector& collector,
                                     std::uint16_t service) {
    if (!collector.pat() || service == 0) return std::nullopt;
    for (const auto& program : collector.pat()->programs) {
        if (program.program_number == service) {
            return static_cast<std::uint16_t>(program.pid);
        }
    }
    return std::nullopt;
}

// Finds the sections in the bytes and counts the bytes that belong to none.
std::vector<SectionView> sections_in(const Bytes& bytes, TableImport& import) {
    std::vector<SectionView> sections;
    for (std::size_t at = 0; at < bytes.size();) {
        if (bytes[at] == kStuffingByte) {
            ++at;
            continue;
        }
        const std::size_t left = bytes.size() - at;
        const SectionView section(&bytes[at], left);
        if (left < kLengthEnd || !section.is_whole()) {
            import.is_cut = true;
            import.stray_bytes += left;
            break;
        }
        at += section.size();
        if (section.is_long() && !section.has_right_crc()) {
            import.stray_bytes += section.size();
            continue;
        }
        ++import.sections;
        if (section.is_long()) sections.push_back(section);
    }
    return sections;
}

void import_sections(const Bytes& bytes, TableImport& import) {
    TableCollector collector;
    SectionFeed feed(collector);
    const std::vector<SectionView> sections = sections_in(bytes, import);
    // A PMT may come before the PAT that announces its PID.
    for (const SectionView& section : sections) {
        if (section.table_id() == kPatTableId)
            feed.push(kPatPid, section.begin(), section.size());
        if (section.table_id() == kCatTableId)
            feed.push(kCatPid, section.begin(), section.size());
        if (section.table_id() == kSdtActualTableId)
            feed.push(kSdtPid, section.begin(), section.size());
    }
    for (const SectionView& section : sections) {
        if (section.table_id() != kPmtTableId) continue;
        const auto pid = pmt_pid(collector, section.table_id_extension());
        if (pid) {
            feed.push(*pid, section.begin(), section.size());
        } else {
            ++import.homeless_pmts;
        }
    }
    import.tables = collector.tables();
}

void import_packets(TsFile& file, TableImport& import) {
    TableCollector collector;
    while (const std::uint8_t* const packet = file.next()) collector.push(packet);
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

    Bytes head(kMaxPrivateSectionSize);
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
