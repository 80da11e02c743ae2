#include "app/start_notification.h"

#include "framework/log.h"
#include "thrift/cm_MuxNotifySrv.h"
#include "thrift/simple_client.h"

void send_start_notification(int port) {
    using orvel::thrift::ci_module::cm_MuxNotifySrvClient;
    using orvel::thrift::utils::SimpleClient;
    try {
        SimpleClient<cm_MuxNotifySrvClient> client("127.0.0.1", port);
        client.NotifyKestanStarted();
    } catch (const apache::thrift::TException& error) {
        log_function(kLogError, 0, "MuxNotify client EXCEPTION: %s", error.what());
    }
}
