// Writes the fuzzers' seeds into a directory for each of them: make_seeds <directory>
//
// They are made, not kept, so that they stay valid when the definitions change.

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include "control/mux_control_handler.h"
#include "mux/slot_time.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"
#include "tools/multiplex_json.h"

namespace {

using orvel::thrift::ci_module::cm_MuxControlSrvClient;
using orvel::thrift::ci_module::EMMData;
using orvel::thrift::ci_module::ScramblingConfig;

void write_file(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

// The requests that `call` makes as they go over the connection.
std::string bytes_of(const std::function<void(cm_MuxControlSrvClient&)>& call) {
    using namespace apache::thrift;
    const auto buffer = std::make_shared<transport::TMemoryBuffer>();
    cm_MuxControlSrvClient client(std::make_shared<protocol::TBinaryProtocol>(
        std::make_shared<transport::TFramedTransport>(buffer)));
    call(client);
    return buffer->getBufferAsString();
}

void make_control_seeds(const std::filesystem::path& directory) {
    RandomTables random(7);
    ScramblingConfig config;
    config.services.resize(1);
    config.services[0].pids = {0x100, 0x101};
    config.services[0].ca_system_ids = {0x0B00};
    EMMData emm;
    emm.data = std::string(40, 'e');
    std::string conversation;
    const auto write = [&](const std::string& name, const auto& call) {
        const std::string bytes = bytes_of(call);
        write_file(directory / name, bytes);
        conversation += bytes;
    };
    for (const std::size_t size : {1u, 16u}) {  // of one section, and of several
        const std::string suffix = size > 1 ? "-long" : "";
        write("NewPAT" + suffix, [&](auto& to) { to.send_NewPAT(random.pat(size * 8)); });
        write("NewCAT" + suffix,
              [&](auto& to) { to.send_NewCAT(random.cat(size * 90)); });
        write("NewSDTActual" + suffix,
              [&](auto& to) { to.send_NewSDTActual(random.sdt(size, 100)); });
        write("NewPMT" + suffix,
              [&](auto& to) { to.send_NewPMT(random.pmt(1, size * 63), 0x20); });
    }
    write("ClearCAT", [](auto& to) { to.send_ClearCAT(); });
    write("StopPMT", [](auto& to) { to.send_StopPMT(1, 0x20); });
    write("ClearAllTables", [](auto& to) { to.send_ClearAllTables(); });
    write("newScramblingConfig", [&](auto& to) { to.send_newScramblingConfig(config); });
    write("EMM", [&](auto& to) { to.send_EMM(emm); });
    write_file(directory / "conversation", conversation + conversation);
}

Multiplex random_multiplex(std::uint32_t seed) {
    RandomTables random(seed);
    Multiplex multiplex;
    multiplex.pat = random.pat(2);
    multiplex.pat->programs[0].program_number = 1;
    multiplex.pat->programs[0].pid = 0x20;
    multiplex.cat = random.cat(60);
    multiplex.sdt = random.sdt(2, 30);
    multiplex.pmts.push_back({0x20, random.pmt(1, 100)});
    return multiplex;
}

// As kestan-control writes it, and with a descriptor of each name.
void make_json_seeds(const std::filesystem::path& directory) {
    Multiplex multiplex = random_multiplex(1);
    write_file(directory / "raw", multiplex_to_json(multiplex).dump(2));
    const auto data = [](std::initializer_list<int> bytes) {
        return std::string(bytes.begin(), bytes.end());
    };
    const std::pair<int, std::string> descriptors[] = {
        {0x48, data({1, 3}) + "Bay" + data({5}) + "Harbo"},
        {0x0A, "eng" + data({0}) + "deu" + data({3})},
        {0x09, data({0x0B, 0, 0xE1, 0x23, 7})}};
    for (const auto& [tag, bytes] : descriptors) {
        auto& descriptor = multiplex.sdt->services[0].descriptors.emplace_back();
        descriptor.tag = tag;
        descriptor.data = bytes;
    }
    write_file(directory / "named", multiplex_to_json(multiplex).dump(2));
}

// The stream of a fifth of a second, which has each table.
void make_import_seeds(const std::filesystem::path& directory) {
    const Multiplex multiplex = random_multiplex(2);
    Playout playout(1000);
    cm_MuxControlSrvHandler handler;
    handler.NewPAT(*multiplex.pat);
    handler.NewCAT(*multiplex.cat);
    handler.NewSDTActual(*multiplex.sdt);
    handler.NewPMT(multiplex.pmts[0].pmt, 0x20);
    std::string stream;
    for (const Datagram& datagram : playout.run_for(200 * kNsPerMs)) {
        stream += datagram.bytes;
    }
    write_file(directory / "stream", stream);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make_seeds <directory>\n";
        return 2;
    }
    const std::filesystem::path directory = argv[1];
    make_control_seeds(directory / "control");
    make_json_seeds(directory / "json");
    make_import_seeds(directory / "import");
}
