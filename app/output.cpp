#include "app/output.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "framework/log.h"
#include "framework/network.h"
#include "thrift/general_constants.h"

output_socket mux_output{};

namespace {

constexpr const char* kFpgaInterface = "ethInt.100";

struct destination {
    std::string address;
    int port = 0;
    std::string interface;
};

// Parses "a.b.c.d/port". The rest of the text is ignored.
std::optional<destination> parse_destination(const std::string& outip) {
    unsigned a = 0, b = 0, c = 0, d = 0, port = 0;
    if (std::sscanf(outip.c_str(), "%3u.%3u.%3u.%3u/%4u", &a, &b, &c, &d, &port) != 5) {
        log_function(kLogError, 0, "Unable to parse output address.");
        return std::nullopt;
    }
    log_function(kLogInformation, 0, "Forced output address.");
    // inet_addr reads an octet with leading zeros as octal: this text has none.
    char address[64];
    std::snprintf(address, sizeof address, "%u.%u.%u.%u", a, b, c, d);
    return destination{address, static_cast<int>(port), ""};
}

destination fpga_destination(int set) {
    using orvel::thrift::general::g_general_constants;
    destination fpga;
    orvel::network::NICIP_VLAN_Int_getFPGA_IPAddress(fpga.address);
    fpga.port = g_general_constants.PSI_SI_OUTPUT_BASE_PORT + set;
    fpga.interface = kFpgaInterface;
    return fpga;
}

bool is_multicast(const sockaddr_in& dest) {
    return IN_MULTICAST(ntohl(dest.sin_addr.s_addr));
}

bool set_ttl(int ttl) {
    const int name = is_multicast(mux_output.dest) ? IP_MULTICAST_TTL : IP_TTL;
    const auto value = static_cast<unsigned char>(ttl);
    if (setsockopt(mux_output.fd, IPPROTO_IP, name, &value, sizeof value) >= 0)
        return true;
    log_function(kLogError, 0, "Unable to configure output TTL.");
    return false;
}

// Looks up the interface's address, also for a unicast destination: an interface without
// an address is a mistake that must show at start-up. Multicast is sent through it.
bool set_interface(const std::string& name) {
    ifreq request{};
    std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    if (ioctl(mux_output.fd, SIOCGIFADDR, &request) < 0) {
        log_function(kLogError, 0, "ioctl(SIOCGIFADDR) failed");
        return false;
    }
    sockaddr_in interface {};
    std::memcpy(&interface, &request.ifr_addr, sizeof interface);
    log_function(kLogInformation, 0, "Interface Address: %s",
                 inet_ntoa(interface.sin_addr));
    if (!is_multicast(mux_output.dest)) return true;
    if (setsockopt(mux_output.fd, IPPROTO_IP, IP_MULTICAST_IF, &interface.sin_addr,
                   sizeof interface.sin_addr) == 0) {
        return true;
    }
    log_function(kLogError, 0, "setsockopt(IP_MULTICAST_IF) failed");
    return false;
}

output_result open_socket(const destination& to, int ttl) {
    mux_output.dest.sin_family = AF_INET;
    mux_output.dest.sin_port = htons(static_cast<std::uint16_t>(to.port));
    mux_output.dest.sin_addr.s_addr = inet_addr(to.address.c_str());
    mux_output.fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (mux_output.fd < 0) {
        log_function(kLogError, 0, "Unable to open socket.");
        return output_result::kFailed;
    }
    if (!set_ttl(ttl) || (!to.interface.empty() && !set_interface(to.interface))) {
        close(mux_output.fd);
        return output_result::kFailed;
    }
    return output_result::kReady;
}

}  // namespace

output_result open_output(const cmd_options& options) {
    destination to;
    if (options.outip.empty()) {
        to = fpga_destination(options.set);
    } else {
        const std::optional<destination> forced = parse_destination(options.outip);
        if (!forced) return output_result::kBadAddress;
        to = *forced;
    }
    if (!options.outif.empty()) to.interface = options.outif;
    log_function(kLogInformation, 0, "Out Address:%s/%d TTL %u %s", to.address.c_str(),
                 to.port, static_cast<unsigned>(options.ttl), to.interface.c_str());
    return open_socket(to, options.ttl);
}

int send_output(const std::uint8_t* data, std::uint32_t length) {
    return static_cast<int>(sendto(mux_output.fd, data, length, 0,
                                   reinterpret_cast<const sockaddr*>(&mux_output.dest),
                                   sizeof mux_output.dest));
}
