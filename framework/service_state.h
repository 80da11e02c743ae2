#ifndef KESTAN_FRAMEWORK_SERVICE_STATE_H
#define KESTAN_FRAMEWORK_SERVICE_STATE_H

// Tells the device framework that this task is up. `status` is 0. Start-up calls it
// once and ignores the result.
int SignalServiceIsStarted(int status);

#endif
