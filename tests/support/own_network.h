#ifndef KESTAN_TESTS_SUPPORT_OWN_NETWORK_H
#define KESTAN_TESTS_SUPPORT_OWN_NETWORK_H

// Puts the process, and the programs that it starts from now on, into a network namespace
// of its own with nothing but a loopback interface, so that the fixed ports of the
// services collide with nothing. Returns false, with everything as it was, where that is
// not permitted. Called before the process has a second thread.
[[nodiscard]] bool enter_own_network();

// True after that, in which case nothing that is sent leaves this machine.
[[nodiscard]] bool has_own_network();

#endif
