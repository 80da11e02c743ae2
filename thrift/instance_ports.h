#ifndef KESTAN_THRIFT_INSTANCE_PORTS_H
#define KESTAN_THRIFT_INSTANCE_PORTS_H

// The TCP ports of one instance of Kestan.
struct instance_ports {
    int control;       // Kestan serves cm_MuxControlSrv
    int notification;  // its control process serves cm_MuxNotifySrv, on the same host
};

constexpr instance_ports ports_of(int set) {
    return set == 1 ? instance_ports{9511, 9531} : instance_ports{9501, 9521};
}

#endif
