#ifndef KESTAN_FRAMEWORK_SERVICE_STATE_H
#define KESTAN_FRAMEWORK_SERVICE_STATE_H

// Tells the device framework that this task is up. `status` is 0. Called once, by the
// start-up sequence; nobody examines the result.
int SignalServiceIsStarted(int status);

#endif
