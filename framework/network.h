#ifndef KESTAN_FRAMEWORK_NETWORK_H
#define KESTAN_FRAMEWORK_NETWORK_H

#include <string>

namespace orvel::network {

// Fills `address` with the dotted-decimal IPv4 address of the FPGA's PSI/SI input. The
// result is ignored.
int NICIP_VLAN_Int_getFPGA_IPAddress(std::string& address);

}  // namespace orvel::network

#endif
