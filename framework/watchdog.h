#ifndef KESTAN_FRAMEWORK_WATCHDOG_H
#define KESTAN_FRAMEWORK_WATCHDOG_H

// The device framework's watchdog: it restarts a registered task that stops kicking.

// Registers this task and returns its handle, 0 on failure.
[[nodiscard]] int watchdog_register_task();

// Tells the watchdog that the task of `handle` is alive. Returns promptly; called by the
// pacing loop every few seconds, with handle 0 too.
void watchdog_kick(int handle);

#endif
