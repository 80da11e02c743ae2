// kestan-control as a program, against the daemon and against servers that misbehave.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>

#include <thrift/transport/TServerSocket.h>
#include <nlohmann/json.hpp>

#include "tests/support/control_client.h"
#include "tests/support/daemon.h"
#include "tools/multiplex_file.h"
#include "tools/multiplex_json.h"

using namespace std::chrono_literals;
using apache::thrift::transport::TServerSocket;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kControl = KESTAN_BIN "/kestan-control";
const std::string kSmall = KESTAN_EXAMPLES "/small.json";
const std::string kLarge = KESTAN_EXAMPLES "/large.json";

Ended control(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kControl);
    return run(std::move(arguments));
}

// The tables in a file, however its numbers are written.
json tables_in(const std::string& path) {
    return multiplex_to_json(read_multiplex_files({path}));
}

// Accepts one connection, reads a request, sends the answer and closes.
void answer_once(TServerSocket& server, const std::string& answer) {
    const auto client = server.accept();
    std::array<std::uint8_t, 4096> request{};
    EXPECT_GT(client->read(request.data(), request.size()), 0u);
    client->write(reinterpret_cast<const std::uint8_t*>(answer.data()),
                  static_cast<std::uint32_t>(answer.size()));
}

class KestanControl : public testing::Test {
protected:
    KestanControl() { std::filesystem::create_directory(folder_); }
    ~KestanControl() override { std::filesystem::remove_all(folder_); }

    // A file with this content.
    std::string file(const std::string& name, const std::string& content) {
        std::ofstream(folder_ / name, std::ios::binary) << content;
        return folder_ / name;
    }

    const Program& start_daemon(const std::string& set = "0") {
        daemon_.emplace(std::vector<std::string>{"-l", "6", "-b", "5000", "-s", set});
        return daemon_->program();
    }

    Ended import(const std::string& content) {
        return control({"import", file("capture.ts", content)});
    }

    // What the daemon plays, captured for long enough to have every table whole.
    std::string play() {
        std::string content;
        for (const auto& datagram : daemon_->play_for(1200ms)) content += datagram.bytes;
        return content;
    }

    // Pushes a file and looks for the same tables in what is played then.
    void expect_round_trip(const std::string& path) {
        EXPECT_EQ(control({"clear"}).status, 0);
        EXPECT_EQ(control({"push", path}).status, 0);
        const Ended imported = import(play());
        EXPECT_EQ(imported.status, 0) << imported.error;
        EXPECT_EQ(tables_in(file("imported.json", imported.output)), tables_in(path));
    }

    std::optional<Daemon> daemon_;
    const std::filesystem::path folder_ =
        testing::TempDir() + "kestan_control_" + std::to_string(getpid());
};

TEST_F(KestanControl, SaysWhatBecameOfEachTable) {
    const Program& kestan = start_daemon();
    static_cast<void>(ControlClient());  // it listens
    const std::string bad = file("bad.json", R"({"pmts": [{"pid": "0x2000"}]})");
    const Ended mistaken = control({"push", kSmall, bad});
    EXPECT_EQ(mistaken.status, 1);
    EXPECT_THAT(mistaken.error, HasSubstr(bad + ": pmts[0].pid: found \"0x2000\""));
    EXPECT_THAT(kestan.error(), Not(HasSubstr("New ")));
    EXPECT_EQ(control({"push", kSmall}).output,
              "PAT of transport stream 1 (0x0001): version 1, accepted\n"
              "CAT: version 1, accepted\n"
              "SDT of transport stream 1 (0x0001): version 1, accepted\n"
              "PMT of service 101 (0x0065) on PID 0x0100: version 1, accepted\n"
              "PMT of service 102 (0x0066) on PID 0x0110: version 1, accepted\n"
              "PMT of service 103 (0x0067) on PID 0x0120: version 1, accepted\n");

    json large = json::parse(R"({"cat": {"version_number": 40},
        "pmts": [{"pid": 256, "program_number": 9, "version_number": 1, "pcr_pid": 257}]})");
    large["pmts"][0]["streams"] =
        json::array_t(300, {{"stream_type", 2}, {"elementary_pid", 1}});
    const Ended rejected = control({"push", file("large.json", large.dump())});
    EXPECT_EQ(rejected.status, 1);
    EXPECT_EQ(rejected.output,
              "CAT: version 40, accepted as version 0\n"
              "PMT of service 9 (0x0009) on PID 0x0100: version 1, rejected\n");
    EXPECT_THAT(rejected.error, HasSubstr("rejected the PMT of service 9 (0x0009)"));
}

TEST_F(KestanControl, ImportsWhatItPushedAndNamesWhatIsMissing) {
    start_daemon();
    static_cast<void>(ControlClient());
    expect_round_trip(kSmall);
    expect_round_trip(kLarge);

    EXPECT_EQ(control({"stop-pmt", "0x03E9", "512"}).status, 0);
    EXPECT_EQ(control({"clear-cat"}).status, 0);
    const Ended less = import(play());
    EXPECT_EQ(less.status, 1);
    EXPECT_THAT(less.error,
                HasSubstr("the PAT has service 1001, but its PMT on PID 0x0200"));
    json expected = tables_in(kLarge);
    expected.erase("cat");
    expected["pmts"].erase(0);
    EXPECT_EQ(tables_in(file("less.json", less.output)), expected);

    EXPECT_EQ(control({"clear"}).status, 0);
    const Ended nothing = import(play());
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.error, HasSubstr("no table is whole"));
}

TEST_F(KestanControl, CarriesTheTablesOfAForeignCapture) {
    const Ended made =
        run({"sh", "-c",
             "command -v ffmpeg >/dev/null || exit 77; "
             "ffmpeg -v error -f lavfi -i testsrc=size=128x96:rate=10 -f lavfi -i sine "
             "-program title=Harbour:program_num=7:st=0 "
             "-program title=Möwe:program_num=9:st=1 -map 0 -map 1 "
             "-metadata:s:a:0 language=deu -t 2 -f mpegts - </dev/null"});
    if (made.status == 77) GTEST_SKIP() << "ffmpeg is not installed: no foreign capture";
    const Ended imported = import(made.output);
    ASSERT_EQ(imported.status, 0) << imported.error;
    for (const char* text :
         {"\"Harbour\"", "\"Möwe\"", "\"deu\"", "\"pid\": \"0x1001\""}) {
        EXPECT_THAT(imported.output, HasSubstr(text));
    }
    start_daemon();
    static_cast<void>(ControlClient());
    expect_round_trip(file("foreign.json", imported.output));
}

TEST_F(KestanControl, ImportsDamagedCapturesAsFarAsTheyGo) {
    EXPECT_THAT(control({"import", "/nonexistent"}).error, HasSubstr("No such file"));
    EXPECT_THAT(import("").error, HasSubstr("no transport-stream packets"));
    EXPECT_THAT(control({"import", KESTAN_HOSTILE_PMT}).error, HasSubstr(" 0 PMTs"));
    start_daemon();
    static_cast<void>(ControlClient());
    ASSERT_EQ(control({"push", kSmall}).status, 0);
    const std::string whole = play();
    const Ended cut = import(whole.substr(0, whole.size() - 100));
    EXPECT_THAT(cut.error, HasSubstr("ends in the middle of a packet"));
    EXPECT_EQ(tables_in(file("cut.json", cut.output)), tables_in(kSmall));
}

TEST_F(KestanControl, SaysWhatWentWrongAndWhatToDo) {
    EXPECT_EQ(control({"--set", "2", "clear"}).status, 2);
    EXPECT_EQ(control({"stop-pmt", "1", "0x2000"}).status, 2);
    EXPECT_EQ(control({"clear", "--set", "1"}).error,
              "kestan-control: nothing listens on 127.0.0.1:9511: is kestan running with "
              "-s 1?\n");
    TServerSocket server("127.0.0.1", 9501);
    server.setAcceptTimeout(10000);
    server.listen();
    const std::pair<std::string, const char*> answers[] = {
        {"", "127.0.0.1:9501 broke off before it answered NewPAT"},
        {std::string("\0\0\0\4junk", 8), "is it kestan, and of this release?"},
        {"HTTP/1.1 400 Bad Request\r\n\r\n", "before it answered NewPAT"},
    };
    for (const auto& [answer, message] : answers) {
        Program push({kControl, "push", kSmall});
        answer_once(server, answer);
        EXPECT_EQ(push.wait(10s), 1);
        EXPECT_THAT(push.error(), HasSubstr(message));
    }
    const Ended late = control({"push", kSmall, "--timeout", "0.2"});
    EXPECT_EQ(late.status, 1);
    EXPECT_THAT(late.error,
                HasSubstr("127.0.0.1:9501 did not answer NewPAT within 0.2 s: "
                          "kestan serves one client at a time"));
}

TEST_F(KestanControl, ServesTheTablesAcrossRestartsOfTheDaemon) {
    json tables = tables_in(kSmall);
    const std::string path = file("serve.json", tables.dump());
    Program serve({kControl, "serve", "--set", "1", path});
    for (int starts = 0; starts < 3; ++starts) {
        const Program& kestan = start_daemon("1");
        ASSERT_TRUE(kestan.wait_for_error("New PMT sid=0067 pid=0120 version=1", 10s));
        if (starts == 0) continue;  // it may have been quicker than `serve`
        EXPECT_THAT(kestan.error(), Not(HasSubstr("EXCEPTION")));
    }
    EXPECT_EQ(control({"push", "--set", "1", kSmall}).status, 0);  // the port is free
    EXPECT_THAT(control({"serve", "--set", "1", kSmall}).error,
                HasSubstr("does another control process of this instance run?"));

    tables.erase("cat");
    tables["pmts"][0]["pid"] = "0x0130";
    tables["pmts"].erase(2);
    file("serve.json", tables.dump());
    serve.signal(SIGHUP);
    for (const char* line : {"Clear CAT", "Clear PMT 0065 on PID 0100",
                             "Clear PMT 0067 on PID 0120", "New PMT sid=0065 pid=0130"}) {
        EXPECT_TRUE(daemon_->program().wait_for_error(line, 10s)) << line;
    }
    file("serve.json", "{");
    serve.signal(SIGHUP);
    ASSERT_TRUE(serve.wait_for_error("the tables read before stay", 10s));
    EXPECT_TRUE(start_daemon("1").wait_for_error("New PMT sid=0066 pid=0110", 10s));

    // A daemon that goes away in the middle is tried again.
    daemon_.reset();
    TServerSocket late("127.0.0.1", 9511);
    late.setAcceptTimeout(10000);
    late.listen();
    file("serve.json", tables.dump());
    serve.signal(SIGHUP);
    answer_once(late, "");
    answer_once(late, "");
    serve.signal(SIGTERM);
    EXPECT_EQ(serve.wait(10s), 0);
}

}  // namespace
