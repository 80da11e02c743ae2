#ifndef KESTAN_APP_START_NOTIFICATION_H
#define KESTAN_APP_START_NOTIFICATION_H

// Tells the control process on this host, at TCP `port`, that Kestan has started and
// holds no tables. Best effort, one try: a failure is logged. Takes one second at most,
// whatever listens there does. Main thread.
void send_start_notification(int port);

#endif
