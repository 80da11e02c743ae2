// A control process: keeps one multiplex on air, also when Kestan restarts.
//   thrift -r --gen cpp:no_skeleton /usr/share/kestan/thrift/ci_module.thrift
//   g++ -std=c++17 -I gen-cpp -o control_process *.cpp gen-cpp/*.cpp -lthrift
//   ./control_process [INSTANCE]
// Debian's packages g++, thrift-compiler, libthrift-dev and libboost-dev are needed.
#include <semaphore.h>
#include <unistd.h>

#include <iostream>
#include <thread>

#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include "cm_MuxControlSrv.h"
#include "cm_MuxNotifySrv.h"

using namespace apache::thrift::protocol;
using namespace apache::thrift::transport;
using namespace orvel::thrift::ci_module;
using namespace orvel::thrift::dvb_tables;
using std::make_shared;

// Services that earlier versions of this program pushed, or pushed on another PID.
struct OldService {
    int16_t service_id;
    int16_t pid;
};
constexpr OldService kNoLongerWanted[] = {{102, 0x110}};

// Replaces the tables one by one. A changed table needs another version_number.
void push_tables(cm_MuxControlSrvClient& kestan) {
    PAT pat;
    SDT sdt;
    PMT pmt;
    PATProgram& program = pat.programs.emplace_back();
    SDTService& service = sdt.services.emplace_back();
    PMTStream& stream = pmt.streams.emplace_back();
    Descriptor& name = service.descriptors.emplace_back();
    pat.version_number = sdt.version_number = pmt.version_number = 1;
    pat.transport_stream_id = sdt.transport_stream_id = 1;
    sdt.original_network_id = 0xFF01;
    program.program_number = service.service_id = pmt.program_number = 101;
    program.pid = 0x100;
    stream.elementary_pid = pmt.pcr_pid = 0x101;
    stream.stream_type = 0x1B;
    service.running_status = 4;  // running
    name.tag = 0x48;             // service_descriptor: EN 300 468, 6.2.33
    name.data = "\x01\x0ALighthouse\x07Harbour";
    kestan.newScramblingConfig({});  // no effect; waits until Kestan serves this client
    kestan.ClearCAT();               // this multiplex has none
    for (const OldService& old : kNoLongerWanted) kestan.StopPMT(old.service_id, old.pid);
    if (kestan.NewPAT(pat) == -1 || kestan.NewSDTActual(sdt) == -1 ||
        kestan.NewPMT(pmt, 0x100) == -1)
        std::cerr << "Kestan refused a table: its log says why\n";
}

sem_t kestan_started;

// Connects, pushes and closes: Kestan serves one connection at a time.
void keep_on_air(int control_port) {
    for (;; sem_wait(&kestan_started)) {
        try {
            const auto socket = make_shared<TSocket>("127.0.0.1", control_port);
            socket->setRecvTimeout(3000);  // ms
            const auto transport = make_shared<TFramedTransport>(socket);
            transport->open();
            cm_MuxControlSrvClient kestan(make_shared<TBinaryProtocol>(transport));
            push_tables(kestan);
        } catch (const apache::thrift::TException& error) {
            std::cerr << "push failed: " << error.what() << '\n';
            sleep(1);  // Kestan can open its control port after the notification
            sem_post(&kestan_started);
        }
    }
}

struct NotificationHandler : cm_MuxNotifySrvIf {  // answers at once: Kestan waits for it
    void NotifyKestanStarted() override { sem_post(&kestan_started); }
};

int main(int argc, char** argv) {
    const int control_port = argc > 1 ? 9501 + 10 * std::stoi(argv[1]) : 9501;
    std::thread(keep_on_air, control_port).detach();
    apache::thrift::server::TThreadedServer(
        make_shared<cm_MuxNotifySrvProcessor>(make_shared<NotificationHandler>()),
        make_shared<TServerSocket>("127.0.0.1", control_port + 20),
        make_shared<TFramedTransportFactory>(), make_shared<TBinaryProtocolFactory>())
        .serve();
}
