#include "app/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

void open_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // The lowest free number, which is `fd`.
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);
    }
}
