# Builds the daemon with a device's own framework in the place of the host's.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# Two archives: the first has what start-up calls, the second what only the other layers
# call, with converters that refuse every table.
make_framework() {
    cat >first.cpp <<'END'
#include <cstdarg>
#include <cstdio>
#include "framework/log.h"
#include "framework/service_state.h"
#include "framework/watchdog.h"
void log_setup(int, int) {}
void log_function(int level, int, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "foreign %d ", level);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}
int watchdog_register_task() { return 1; }
void watchdog_kick(int) {}
int SignalServiceIsStarted(int) { return 0; }
END
    cat >second.cpp <<'END'
#include "framework/clock.h"
#include "framework/network.h"
#include "framework/table_converters.h"
#include "thrift/general_constants.h"
using namespace orvel::thrift;
int IsSystemTimeSet() { return 0; }
std::int64_t GetUTCTime() { return 0xC079124500; }
int orvel::network::NICIP_VLAN_Int_getFPGA_IPAddress(std::string& address) {
    address = "127.0.0.1";
    return 0;
}
namespace orvel::thrift::general { const generalConstants g_general_constants; }
general::generalConstants::generalConstants() : PSI_SI_OUTPUT_BASE_PORT(6000) {}
dvbpsi_pat_t* dvb_tables::t2dPAT(const PAT&) { return nullptr; }
dvbpsi_cat_t* dvb_tables::t2dCAT(const CAT&) { return nullptr; }
dvbpsi_sdt_t* dvb_tables::t2dSDT(const SDT&) { return nullptr; }
dvbpsi_pmt_t* dvb_tables::t2dPMT(const PMT&) { return nullptr; }
END
    for part in first second; do
        c++ -std=c++17 -I"$1" -I"$KESTAN_BIN/../generated" -c "$part.cpp"
        ar rc "$part.a" "$part.o"
    done
}

# The build folder stays, so a second run builds only what has changed.
@test "links a framework of closed archives with its converters and constants" {
    local source=$BATS_TEST_DIRNAME/../.. build=$KESTAN_BIN/../foreign_framework
    make_framework "$source"
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKESTAN_TOOLS=OFF \
        -DKESTAN_FRAMEWORK="$PWD/first.a;$PWD/second.a"
    cmake --build "$build" --target kestan
    run -1 grep -i libsystemd "$build/CMakeCache.txt"

    daemon=("$build/bin/kestan")
    [[ $("${daemon[@]}" -v) == *"Version: "*.*.* ]]
    start kestan "${daemon[@]}" -I lo
    says kestan "foreign 6 Out Address:127.0.0.1/6000 TTL 1 lo$"
    timeout 20 socat -u UDP-RECVFROM:6000 - | grep -q G
    run -1 kestan-control push "$small"
    [[ $output == *rejected* ]]
    run -1 grep -E " New | 4 PAT" kestan.err
}
