# Builds the daemon as a part of another project, with a device's own framework in the place of
# the host's.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

source=$BATS_TEST_DIRNAME/../..
build=$KESTAN_BIN/../foreign_framework/build

# compile <name>: makes an archive of the code on standard input.
compile() {
    c++ -std=c++17 -fPIC -I"$source" -I"$KESTAN_BIN/../generated" -o "$1.o" -c -x c++ -
    ar rc "$1.a" "$1.o"
}

# Two archives: the first has what start-up calls, the second what only the other layers
# call, with converters that refuse every table.
make_framework() {
    compile first <<'END'
#include <cstdarg>
#include <cstdio>
#include <string>
#include "framework/log.h"
#include "framework/service_state.h"
#include "framework/watchdog.h"
void log_setup(int, int) {}
void log_function(int level, int, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const auto line = "foreign " + std::to_string(level) + ' ' + format + '\n';
    std::vfprintf(stderr, line.c_str(), arguments);
    va_end(arguments);
}
int watchdog_register_task() { return 1; }
void watchdog_kick(int) {}
int SignalServiceIsStarted(int) { return 0; }
END
    compile second <<'END'
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
}

# configure <folder> [option]...: Kestan within a project of three lines.
configure() {
    mkdir -p "$build/../project"
    cat >"$build/../project/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(device LANGUAGES CXX)
add_subdirectory("$source" kestan)
END
    cmake -S "$build/../project" -B "$1" -G Ninja -DKESTAN_TOOLS=OFF "${@:2}"
}

# build_kestan <framework>: with a later standard and a packager's flags. The folder stays, so a
# second run builds only what has changed.
build_kestan() {
    configure "$build" -DKESTAN_FRAMEWORK="$1" -DKESTAN_WERROR=ON -DCMAKE_CXX_STANDARD=20 \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -D_FORTIFY_SOURCE=3"
    run -0 cmake --build "$build" --target kestan
}

# has_framework <program>: it plays to the framework's address, and takes its refusals.
has_framework() {
    daemon=("$1")
    [[ $("${daemon[@]}" -v) == *"Version: "*.*.* ]]
    start kestan "${daemon[@]}" -I lo
    says kestan "foreign 6 Out Address:127.0.0.1/6000 TTL 1 lo$"
    timeout 20 socat -u UDP-RECVFROM:6000 - | grep -q G
    exits 1 rejected kestan-control push "$small"
    run -1 grep -E " New | 4 PAT" kestan.err
    stop kestan
}

@test "leaves the type of build and the packages to the project around it" {
    configure "$PWD/build"
    grep -qx CMAKE_BUILD_TYPE:STRING= build/CMakeCache.txt
    [ ! -e build/CPackConfig.cmake ]
}

@test "links a framework of closed archives, or a shared library that is found when installed" {
    make_framework
    build_kestan "$PWD/first.a;$PWD/second.a"
    run -1 grep redefined <<<"$output"
    run -1 grep -e -std=c++17 -e =2 "$build/compile_commands.json"
    run -1 grep -i libsystemd "$build/CMakeCache.txt"
    has_framework "$build/kestan/bin/kestan"

    mkdir device
    c++ -shared -Wl,-soname,libdevice.so.1 -o device/libdevice.so.1 first.o second.o
    build_kestan "$PWD/device/libdevice.so.1"
    cmake --install "$build" --prefix "$PWD/installed" >install.out
    has_framework "$PWD/installed/bin/kestan"
}
