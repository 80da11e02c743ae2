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

#include "tests/support/random_tables.h"
#include "thrift/cm_MuxControlSrv.h"

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
    const std::pair<std::string, std::function<void(cm_MuxControlSrvClient&)>> calls[] = {
        {"NewPAT", [&](auto& client) { client.send_NewPAT(random.pat(3)); }},
        {"NewPAT-long", [&](auto& client) { client.send_NewPAT(random.pat(120)); }},
        {"NewCAT", [&](auto& client) { client.send_NewCAT(random.cat(100)); }},
        {"NewCAT-long", [&](auto& client) { client.send_NewCAT(random.cat(1500)); }},
        {"NewSDTActual",
         [&](auto& client) { client.send_NewSDTActual(random.sdt(2, 20)); }},
        {"NewSDTActual-long",
         [&](auto& client) { client.send_NewSDTActual(random.sdt(6, 250)); }},
        {"NewPMT", [&](auto& client) { client.send_NewPMT(random.pmt(1, 60), 0x20); }},
        {"NewPMT-long",
         [&](auto& client) { client.send_NewPMT(random.pmt(2, 1008), 0x20); }},
        {"ClearCAT", [](auto& client) { client.send_ClearCAT(); }},
        {"StopPMT", [](auto& client) { client.send_StopPMT(1, 0x20); }},
        {"ClearAllTables", [](auto& client) { client.send_ClearAllTables(); }},
        {"newScramblingConfig",
         [&](auto& client) { client.send_newScramblingConfig(config); }},
        {"EMM", [&](auto& client) { client.send_EMM(emm); }},
    };
    for (const auto& [name, call] : calls) write_file(directory / name, bytes_of(call));
    write_file(directory / "session", bytes_of([&](auto& client) {
                   for (const auto& named : calls) named.second(client);
                   for (const auto& named : calls) named.second(client);
               }));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make_seeds <directory>\n";
        return 2;
    }
    make_control_seeds(std::filesystem::path(argv[1]) / "control");
}
