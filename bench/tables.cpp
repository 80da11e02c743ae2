#include "bench/tables.h"

#include <string>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint8_t kServiceDescriptor = 0x48;   // ETSI EN 300 468, 6.2.33
constexpr std::uint8_t kLanguageDescriptor = 0x0A;  // ISO/IEC 13818-1, 2.6.18

Descriptor make_descriptor(std::uint8_t tag, const std::string& data) {
    Descriptor descriptor;
    descriptor.tag = tag;
    descriptor.data = data;
    return descriptor;
}

PMTStream make_stream(std::uint8_t type, std::size_t pid) {
    PMTStream stream;
    stream.stream_type = type;
    stream.elementary_pid = static_cast<std::int32_t>(pid);
    return stream;
}

}  // namespace

PAT make_pat(std::size_t programs) {
    PAT pat;
    pat.transport_stream_id = 1;
    for (std::size_t i = 0; i < programs; ++i) {
        PATProgram& program = pat.programs.emplace_back();
        program.program_number = static_cast<std::int32_t>(i + 1);
        program.pid = static_cast<std::int32_t>(kFirstPmtPid + i % 0x1000);
    }
    return pat;
}

SDT make_sdt(std::size_t services) {
    SDT sdt;
    sdt.transport_stream_id = 1;
    for (std::size_t i = 0; i < services; ++i) {
        SDTService& service = sdt.services.emplace_back();
        service.service_id = static_cast<std::int32_t>(i + 1);
        service.running_status = 4;
        const std::string name = "A station's name, " + std::to_string(i % 10);
        service.descriptors.push_back(
            make_descriptor(kServiceDescriptor, "\x01\x10The provider - X\x13" + name));
    }
    return sdt;
}

PMT make_pmt(std::uint16_t service, std::size_t packets) {
    constexpr std::size_t sound_size = kPmtStreamHeaderSize + kDescriptorHeaderSize + 4;
    const std::size_t room = kTsPacketSize * packets - 40;  // less headers and the video
    PMT pmt;
    pmt.program_number = service;
    pmt.pcr_pid = 0x1000;
    pmt.streams.push_back(make_stream(0x1B, 0x1000));
    for (std::size_t i = 0; i < room / sound_size; ++i) {
        PMTStream sound = make_stream(0x0F, 0x1001 + i);
        sound.descriptors.push_back(
            make_descriptor(kLanguageDescriptor, std::string("eng\0", 4)));
        pmt.streams.push_back(sound);
    }
    return pmt;
}
