#include "framework/network.h"

namespace orvel::network {

int NICIP_VLAN_Int_getFPGA_IPAddress(std::string& address) {
    address = KESTAN_FPGA_ADDRESS;
    return 0;
}

}  // namespace orvel::network
