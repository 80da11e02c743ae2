#ifndef KESTAN_FRAMEWORK_WATCHDOG_H
#define KESTAN_FRAMEWORK_WATCHDOG_H

// The device framework's watchdog. It restarts a registered task that stops kicking.

// Registers this task and returns its handle, or 0 on failure.
[[nodiscard]] int watchdog_register_task();

// Tells the watchdog that the task with this handle is alive. Must return promptly: the
// pacing loop calls it every few seconds, also with handle 0.
void watchdog_kick(int handle);

#endif
