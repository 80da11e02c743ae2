#include "framework/service_state.h"

#include <systemd/sd-daemon.h>

int SignalServiceIsStarted(int /*status*/) {
    return sd_notify(0, "READY=1");
}
