#include "tools/json/multiplex_json.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dvb/psi_si.h"
#include "tools/json/descriptor_json.h"
#include "tools/json/number_text.h"

using nlohmann::ordered_json;
using namespace orvel::thrift::dvb_tables;

namespace {

constexpr unsigned kPidBits = 13;  // ISO/IEC 13818-1, 2.4.3.3

void read_version(const JsonNode& node, std::int32_t& version, bool& current) {
    version = node["version_number"].i32_of(8);
    if (node.has("current_next_indicator")) {
        current = node["current_next_indicator"].boolean();
    }
}

void write_version(ordered_json& to, std::int32_t version, bool current) {
    to["version_number"] = version;
    if (!current) to["current_next_indicator"] = current;
}

void read_flag(const JsonNode& node, const char* name, bool& flag) {
    if (node.has(name)) flag = node[name].boolean();
}

std::vector<Descriptor> read_descriptors(const JsonNode& node) {
    std::vector<Descriptor> descriptors;
    for (const JsonNode& element : node.elements_of("descriptors")) {
        descriptors.push_back(descriptor_from_json(element));
    }
    return descriptors;
}

void write_descriptors(ordered_json& to, const std::vector<Descriptor>& descriptors) {
    for (const Descriptor& descriptor : descriptors) {
        to["descriptors"].push_back(descriptor_to_json(descriptor));
    }
}

PAT read_pat(const JsonNode& node) {
    node.expect_fields(
        {"transport_stream_id", "version_number", "current_next_indicator", "programs"});
    PAT pat;
    pat.transport_stream_id = node["transport_stream_id"].i32_of(16);
    read_version(node, pat.version_number, pat.current_next_indicator);
    for (const JsonNode& element : node.elements_of("programs")) {
        element.expect_fields({"program_number", "pid"});
        PATProgram& program = pat.programs.emplace_back();
        program.program_number = element["program_number"].i32_of(16);
        program.pid = element["pid"].number(1, kMaxPid);
    }
    return pat;
}

ordered_json write(const PAT& pat) {
    ordered_json to{{"transport_stream_id", pat.transport_stream_id}};
    write_version(to, pat.version_number, pat.current_next_indicator);
    to["programs"] = ordered_json::array();
    for (const PATProgram& program : pat.programs) {
        to["programs"].push_back(
            {{"program_number", program.program_number}, {"pid", pid_text(program.pid)}});
    }
    return to;
}

CAT read_cat(const JsonNode& node) {
    node.expect_fields({"version_number", "current_next_indicator", "descriptors"});
    CAT cat;
    read_version(node, cat.version_number, cat.current_next_indicator);
    cat.descriptors = read_descriptors(node);
    return cat;
}

ordered_json write(const CAT& cat) {
    ordered_json to;
    write_version(to, cat.version_number, cat.current_next_indicator);
    write_descriptors(to, cat.descriptors);
    return to;
}

SDTService read_service(const JsonNode& node) {
    node.expect_fields({"service_id", "eit_schedule_flag", "eit_present_following_flag",
                        "running_status", "free_ca_mode", "descriptors"});
    SDTService service;
    service.service_id = node["service_id"].i32_of(16);
    read_flag(node, "eit_schedule_flag", service.eit_schedule_flag);
    read_flag(node, "eit_present_following_flag", service.eit_present_following_flag);
    if (node.has("running_status")) {
        service.running_status = node["running_status"].i32_of(3);
    }
    read_flag(node, "free_ca_mode", service.free_ca_mode);
    service.descriptors = read_descriptors(node);
    return service;
}

ordered_json write(const SDTService& service) {
    ordered_json to{{"service_id", service.service_id}};
    if (service.eit_schedule_flag) to["eit_schedule_flag"] = true;
    if (service.eit_present_following_flag) to["eit_present_following_flag"] = true;
    if (service.running_status != 0) to["running_status"] = service.running_status;
    if (service.free_ca_mode) to["free_ca_mode"] = true;
    write_descriptors(to, service.descriptors);
    return to;
}

SDT read_sdt(const JsonNode& node) {
    node.expect_fields({"transport_stream_id", "original_network_id", "version_number",
                        "current_next_indicator", "services"});
    SDT sdt;
    sdt.transport_stream_id = node["transport_stream_id"].i32_of(16);
    sdt.original_network_id = node["original_network_id"].i32_of(16);
    read_version(node, sdt.version_number, sdt.current_next_indicator);
    for (const JsonNode& element : node.elements_of("services")) {
        sdt.services.push_back(read_service(element));
    }
    return sdt;
}

ordered_json write(const SDT& sdt) {
    ordered_json to{{"transport_stream_id", sdt.transport_stream_id},
                    {"original_network_id", sdt.original_network_id}};
    write_version(to, sdt.version_number, sdt.current_next_indicator);
    to["services"] = ordered_json::array();
    for (const SDTService& service : sdt.services) {
        to["services"].push_back(write(service));
    }
    return to;
}

PMTStream read_stream(const JsonNode& node) {
    node.expect_fields({"stream_type", "elementary_pid", "descriptors"});
    PMTStream stream;
    stream.stream_type = node["stream_type"].i32_of(8);
    stream.elementary_pid = node["elementary_pid"].i32_of(kPidBits);
    stream.descriptors = read_descriptors(node);
    return stream;
}

ordered_json write(const PMTStream& stream) {
    ordered_json to{{"stream_type", hex_number(stream.stream_type, 2)},
                    {"elementary_pid", pid_text(stream.elementary_pid)}};
    write_descriptors(to, stream.descriptors);
    return to;
}

PmtOnPid read_pmt(const JsonNode& node) {
    node.expect_fields({"pid", "program_number", "version_number",
                        "current_next_indicator", "pcr_pid", "descriptors", "streams"});
    PmtOnPid read;
    read.pid = static_cast<std::uint16_t>(node["pid"].unsigned_of(kPidBits));
    read.pmt.program_number = node["program_number"].i32_of(16);
    read_version(node, read.pmt.version_number, read.pmt.current_next_indicator);
    read.pmt.pcr_pid = node["pcr_pid"].i32_of(kPidBits);
    read.pmt.descriptors = read_descriptors(node);
    for (const JsonNode& element : node.elements_of("streams")) {
        read.pmt.streams.push_back(read_stream(element));
    }
    return read;
}

ordered_json write(const PmtOnPid& from) {
    ordered_json to{{"pid", pid_text(from.pid)},
                    {"program_number", from.pmt.program_number}};
    write_version(to, from.pmt.version_number, from.pmt.current_next_indicator);
    to["pcr_pid"] = pid_text(from.pmt.pcr_pid);
    write_descriptors(to, from.pmt.descriptors);
    to["streams"] = ordered_json::array();
    for (const PMTStream& stream : from.pmt.streams) {
        to["streams"].push_back(write(stream));
    }
    return to;
}

}  // namespace

Multiplex multiplex_from_json(const JsonNode& root) {
    root.expect_fields({"pat", "cat", "sdt", "pmts", "$schema"});
    if (root.has("$schema")) static_cast<void>(root["$schema"].text());  // for editors
    Multiplex multiplex;
    if (root.has("pat")) multiplex.pat = read_pat(root["pat"]);
    if (root.has("cat")) multiplex.cat = read_cat(root["cat"]);
    if (root.has("sdt")) multiplex.sdt = read_sdt(root["sdt"]);
    std::map<std::int32_t, std::size_t> place_of;  // by service
    for (const JsonNode& element : root.elements_of("pmts")) {
        const PmtOnPid& read = multiplex.pmts.emplace_back(read_pmt(element));
        const auto [same, is_new] =
            place_of.emplace(read.pmt.program_number, multiplex.pmts.size() - 1);
        if (is_new) continue;
        element["program_number"].mistake("one PMT per service: pmts[" +
                                          std::to_string(same->second) +
                                          "] is this service's too");
    }
    const bool has_tables = multiplex.pat || multiplex.cat || multiplex.sdt;
    if (!has_tables && multiplex.pmts.empty()) {
        root.mistake("at least one table: pat, cat, sdt or pmts");
    }
    return multiplex;
}

ordered_json multiplex_to_json(const Multiplex& multiplex) {
    ordered_json to = ordered_json::object();
    if (multiplex.pat) to["pat"] = write(*multiplex.pat);
    if (multiplex.cat) to["cat"] = write(*multiplex.cat);
    if (multiplex.sdt) to["sdt"] = write(*multiplex.sdt);
    for (const PmtOnPid& pmt : multiplex.pmts) to["pmts"].push_back(write(pmt));
    return to;
}
