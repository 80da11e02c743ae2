#ifndef KESTAN_TOOLS_MODEL_FILE_DESCRIPTOR_H
#define KESTAN_TOOLS_MODEL_FILE_DESCRIPTOR_H

#include <unistd.h>

// Owns a file descriptor, and closes it in the end. -1 is none.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_;
};

#endif
