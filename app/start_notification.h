#ifndef KESTAN_APP_START_NOTIFICATION_H
#define KESTAN_APP_START_NOTIFICATION_H

// Tells the control process on this host, at TCP `port`, that Kestan has started and
// holds no tables. Best effort: it tries once and logs a failure. It takes about one
// second at most, even if the peer is slow or hostile. Main thread.
void send_start_notification(int port);

#endif
