#ifndef KESTAN_APP_STANDARD_DESCRIPTORS_H
#define KESTAN_APP_STANDARD_DESCRIPTORS_H

// Opens /dev/null on each of the descriptors 0 to 2 that is closed. A device's init may
// start a program without them. Then the next socket would take such a number, and log
// lines for standard error would go into it. Main thread, before anything else.
void open_standard_descriptors();

#endif
