// kestan-control as a program, against the daemon and against servers that misbehave.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "app/simple_client.h"
#include "tests/support/own_network.h"
#include "tests/support/program.h"
#include "tests/support/udp_capture.h"
#include "thrift/cm_MuxNotifySrv.h"

using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kControl = KESTAN_BIN "/kestan-control";
const std::string kDaemon = KESTAN_BIN "/kestan";
const std::string kSmall = KESTAN_EXAMPLES "/small.json";
const std::string kLarge = KESTAN_EXAMPLES "/large.json";

Ended control(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kControl);
    return run(std::move(arguments));
}

std::string read_file(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

class KestanControl : public testing::Test {
protected:
    KestanControl() { std::filesystem::create_directory(folder_); }
    ~KestanControl() override { std::filesystem::remove_all(folder_); }

    [[nodiscard]] std::string path(const std::string& name) const {
        return folder_ + "/" + name;
    }

    void start_daemon() {
        kestan_.reset();
        const std::string output = "127.0.0.1/" + std::to_string(capture_.port());
        kestan_.emplace(std::vector<std::string>{kDaemon, "-c", "-l", "6", "-O", output,
                                                 "-b", "5000"});
    }

    static void wait_for_control_port() {
        for (int tries = 0; control({"clear-cat"}).status != 0; ++tries) {
            ASSERT_LT(tries, 100);
            std::this_thread::sleep_for(20ms);
        }
    }

    // What import says about a capture with this content.
    Ended import(const std::string& content) {
        write_file(path("capture.ts"), content);
        return control({"import", path("capture.ts")});
    }

    // What the daemon plays, captured for long enough to have every table whole.
    std::string play() {
        capture_.drain();
        std::string content;
        for (const auto& datagram : capture_.receive_for(1200ms))
            content += datagram.bytes;
        return content;
    }

    // Pushes the file to the daemon and imports what it plays then.
    json push_and_import(const std::string& file) {
        EXPECT_EQ(control({"clear"}).status, 0);
        const Ended pushed = control({"push", file});
        EXPECT_EQ(pushed.status, 0) << pushed.error;
        const Ended imported = import(play());
        EXPECT_EQ(imported.status, 0) << imported.error;
        return json::parse(imported.output, nullptr, false);
    }

    UdpCapture capture_{5433};
    std::optional<Program> kestan_;

private:
    std::string folder_ =
        testing::TempDir() + "kestan_control_" + std::to_string(getpid());
};

TEST_F(KestanControl, PushesAFileAndSaysWhatBecameOfEachTable) {
    start_daemon();
    wait_for_control_port();
    const Ended pushed = control({"push", kSmall});
    EXPECT_EQ(pushed.status, 0);
    EXPECT_EQ(pushed.output,
              "PAT of transport stream 1 (0x0001): version 1, accepted\n"
              "CAT: version 1, accepted\n"
              "SDT of transport stream 1 (0x0001): version 1, accepted\n"
              "PMT of service 101 (0x0065) on PID 0x0100: version 1, accepted\n"
              "PMT of service 102 (0x0066) on PID 0x0110: version 1, accepted\n"
              "PMT of service 103 (0x0067) on PID 0x0120: version 1, accepted\n");

    json too_large = json::parse(R"({"cat": {"version_number": 40},
        "pmts": [{"pid": 256, "program_number": 9, "version_number": 1, "pcr_pid": 257}]})");
    for (int i = 0; i < 300; ++i) {
        too_large["pmts"][0]["streams"].push_back(
            {{"stream_type", 2}, {"elementary_pid", i}});
    }
    write_file(path("large.json"), too_large.dump());
    const Ended rejected = control({"push", path("large.json")});
    EXPECT_EQ(rejected.status, 1);
    EXPECT_EQ(rejected.output,
              "CAT: version 40, accepted as version 0\n"
              "PMT of service 9 (0x0009) on PID 0x0100: version 1, rejected\n");
    EXPECT_THAT(rejected.error, HasSubstr("rejected the PMT of service 9 (0x0009)"));
}

TEST_F(KestanControl, ImportsWhatItPushed) {
    start_daemon();
    wait_for_control_port();
    // The examples are written as import writes, but for numbers.
    const json small = push_and_import(kSmall);
    EXPECT_EQ(small["sdt"]["services"],
              json::parse(read_file(kSmall))["sdt"]["services"]);
    EXPECT_EQ(small["pmts"], json::parse(read_file(kSmall))["pmts"]);
    const json large = push_and_import(kLarge);
    EXPECT_EQ(large["cat"], json::parse(read_file(kLarge))["cat"]);
    EXPECT_EQ(large["pmts"], json::parse(read_file(kLarge))["pmts"]);
    write_file(path("imported.json"), large.dump());
    EXPECT_EQ(push_and_import(path("imported.json")), large);

    EXPECT_EQ(control({"stop-pmt", "0x03E9", "512"}).status, 0);
    EXPECT_EQ(control({"clear-cat"}).status, 0);
    const Ended less = import(play());
    EXPECT_EQ(less.status, 1);
    EXPECT_THAT(less.error,
                HasSubstr("the PAT has service 1001, but its PMT on PID 0x0200"));
    EXPECT_FALSE(json::parse(less.output).contains("cat"));
    EXPECT_EQ(json::parse(less.output)["pmts"].size(), large["pmts"].size() - 1);

    EXPECT_EQ(control({"clear"}).status, 0);
    const Ended nothing = import(play());
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.output, "");
    EXPECT_THAT(nothing.error, HasSubstr("no table is whole"));
}

TEST_F(KestanControl, CarriesTheTablesOfAForeignCapture) {
    const std::string foreign = path("foreign.ts");
    const Ended made =
        run({"sh", "-c",
             "command -v ffmpeg >/dev/null || exit 77; "
             "ffmpeg -v error -f lavfi -i testsrc=size=128x96:rate=10 -f lavfi -i sine "
             "-f lavfi -i sine=220 -map 0:v -map 1:a -map 0:v -map 2:a "
             "-program title=Harbour:program_num=7:st=0:st=1 "
             "-program title=Möwe:program_num=9:st=2:st=3 "
             "-metadata:s:a:0 language=eng -metadata:s:a:1 language=deu "
             "-t 2 -f mpegts -y " +
                 foreign + " </dev/null"});
    if (made.status == 77) GTEST_SKIP() << "ffmpeg is not installed: no foreign capture";
    ASSERT_EQ(made.status, 0) << made.error;
    const Ended imported = control({"import", foreign});
    ASSERT_EQ(imported.status, 0) << imported.error;
    for (const char* text : {"\"Harbour\"", "\"Möwe\"", "\"eng\"", "\"deu\""}) {
        EXPECT_THAT(imported.output, HasSubstr(text));
    }
    EXPECT_EQ(json::parse(imported.output)["pmts"].size(), 2U);

    start_daemon();
    wait_for_control_port();
    write_file(path("foreign.json"), imported.output);
    EXPECT_EQ(push_and_import(path("foreign.json")), json::parse(imported.output));
}

TEST_F(KestanControl, ImportsDamagedCapturesAsFarAsTheyGo) {
    EXPECT_THAT(control({"import", path("none.ts")}).error,
                HasSubstr("No such file or directory"));
    EXPECT_THAT(import("").error, HasSubstr("no transport-stream packets"));
    start_daemon();
    wait_for_control_port();
    ASSERT_EQ(control({"push", kSmall}).status, 0);
    const std::string whole = play();
    const json tables = json::parse(import(whole).output);

    const Ended cut = import(whole.substr(0, whole.size() - 100));
    EXPECT_EQ(cut.status, 0);
    EXPECT_THAT(cut.error, HasSubstr("ends in the middle of a packet"));
    EXPECT_EQ(json::parse(cut.output), tables);

    std::mt19937 random(1);
    for (int round = 0; round < 60; ++round) {
        std::string damaged = whole.substr(0, random() % whole.size());
        for (auto flips = random() % 50; flips != 0 && !damaged.empty(); --flips) {
            char& byte = damaged[random() % damaged.size()];
            byte = static_cast<char>(byte ^ 1 << random() % 8);
        }
        const Ended ended = import(damaged);
        EXPECT_THAT(ended.status, testing::AnyOf(0, 1)) << ended.error;
        EXPECT_NE(ended.error, "");
    }
}

// A TCP port of the loopback address.
class Listener {
public:
    explicit Listener(int port) {
        const int on = 1;
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 1), 0);
        const timeval limit{10, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~Listener() { close(fd_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Accepts one connection, waits for a request, sends the answer and closes; false
    // when none comes in time.
    [[nodiscard]] bool answer_once(const std::string& answer) const {
        const int client = accept(fd_, nullptr, nullptr);
        if (client < 0) return false;
        char request[4096];
        EXPECT_GT(recv(client, request, sizeof request, 0), 0);
        EXPECT_EQ(send(client, answer.data(), answer.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(answer.size()));
        close(client);
        return true;
    }

private:
    int fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(KestanControl, SaysWhatWentWrongAndWhatToDo) {
    EXPECT_EQ(control({"--set", "2", "clear"}).status, 2);
    EXPECT_EQ(control({"stop-pmt", "1", "0x2000"}).status, 2);
    EXPECT_EQ(control({"clear", "--set", "1"}).error,
              "kestan-control: nothing listens on 127.0.0.1:9511: is kestan running with "
              "-s 1?\n");
    {
        const Listener silent(9501);
        const Ended late = control({"push", kSmall, "--timeout", "0.2"});
        EXPECT_EQ(late.status, 1);
        EXPECT_THAT(late.error,
                    HasSubstr("127.0.0.1:9501 did not answer NewPAT within 0.2 s: "
                              "kestan serves one client at a time"));
    }
    const std::pair<std::string, const char*> answers[] = {
        {"", "127.0.0.1:9501 broke off before it answered NewPAT"},
        {std::string("\0\0\0\4junk", 8), "is it kestan, and of this release?"},
        {"HTTP/1.1 400 Bad Request\r\n\r\n", "before it answered NewPAT"},
    };
    for (const auto& [answer, message] : answers) {
        const Listener listener(9501);
        Program push({kControl, "push", kSmall});
        EXPECT_TRUE(listener.answer_once(answer));
        EXPECT_EQ(push.wait(10s), 1);
        EXPECT_THAT(push.error(), HasSubstr(message));
    }
}

TEST_F(KestanControl, SendsNothingOfFilesWithAMistake) {
    start_daemon();
    wait_for_control_port();
    write_file(path("bad.json"), R"({"pmts": [{"pid": "0x2000"}]})");
    const Ended ended = control({"push", kSmall, path("bad.json")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error,
                HasSubstr(path("bad.json") + ": pmts[0].pid: found \"0x2000\""));
    EXPECT_EQ(control({"clear"}).status, 0);
    ASSERT_TRUE(kestan_->wait_for_error("Clearing all tables", 10s));
    EXPECT_THAT(kestan_->error(), Not(HasSubstr("New ")));
}

TEST_F(KestanControl, ServesTheTablesAcrossRestartsOfTheDaemon) {
    write_file(path("serve.json"), read_file(kSmall));
    Program serve({kControl, "serve", path("serve.json")});
    start_daemon();  // which may well be ready first
    const std::string last = "New PMT sid=0067 pid=0120 version=1";
    ASSERT_TRUE(kestan_->wait_for_error(last, 10s));
    for (int restarts = 0; restarts < 2; ++restarts) {
        start_daemon();
        ASSERT_TRUE(kestan_->wait_for_error(last, 10s));
    }
    EXPECT_EQ(control({"push", kSmall}).status, 0);  // the connection is free
    EXPECT_THAT(control({"serve", kSmall}).error,
                HasSubstr("does another control process of this instance run?"));

    json changed = json::parse(read_file(kSmall));
    changed.erase("cat");
    changed["pmts"][0]["pid"] = "0x0130";
    changed["pmts"].erase(2);
    write_file(path("serve.json"), changed.dump());
    serve.signal(SIGHUP);
    for (const char* line : {"Clear CAT", "Clear PMT 0065 on PID 0100",
                             "Clear PMT 0067 on PID 0120", "New PMT sid=0065 pid=0130"}) {
        EXPECT_TRUE(kestan_->wait_for_error(line, 10s)) << line;
    }
    write_file(path("serve.json"), "{");
    serve.signal(SIGHUP);
    ASSERT_TRUE(serve.wait_for_error("the tables read before stay", 10s));
    start_daemon();
    EXPECT_TRUE(kestan_->wait_for_error("New PMT sid=0066 pid=0110 version=1", 10s));
    serve.signal(SIGTERM);
    EXPECT_EQ(serve.wait(10s), 0);
}

TEST_F(KestanControl, ServesADaemonThatIsThereAndOneWhosePortOpensLate) {
    start_daemon();
    wait_for_control_port();
    Program serve({kControl, "serve", kSmall, "--timeout", "1"});
    ASSERT_TRUE(kestan_->wait_for_error("New PMT sid=0067", 10s));
    kestan_.reset();

    using orvel::thrift::ci_module::cm_MuxNotifySrvClient;
    orvel::thrift::utils::SimpleClient<cm_MuxNotifySrvClient>("127.0.0.1", 9521)
        .NotifyKestanStarted();
    std::this_thread::sleep_for(200ms);
    // It goes away in the middle, and is tried again.
    const Listener late(9501);
    EXPECT_TRUE(late.answer_once(""));
    EXPECT_TRUE(late.answer_once(""));
    serve.signal(SIGINT);
    EXPECT_EQ(serve.wait(10s), 0);
}

}  // namespace
