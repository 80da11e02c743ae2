#include "tools/json/text_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kLargestFile = 64U << 20U;
constexpr std::size_t kBlock = 64U << 10U;

[[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category());
}

// An open file.
class File {
public:
    explicit File(int fd) : fd_(fd) {
        if (fd_ < 0) fail();
    }
    ~File() {
        if (fd_ >= 0) ::close(fd_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] int fd() const { return fd_; }

    // Some file systems report a full disk only when the file is closed.
    void close() {
        if (::close(std::exchange(fd_, -1)) != 0) fail();
    }

private:
    int fd_;
};

// O_NONBLOCK: opening a pipe would wait for its writer, and a device for anything.
int open_for_reading(const std::string& path) {
    if (path == kStandardInput) return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

mode_t mode_of(const File& file) {
    struct stat status {};
    if (fstat(file.fd(), &status) != 0) fail();
    return status.st_mode;
}

void expect(FileKind kind, const std::string& path, mode_t mode) {
    if (S_ISREG(mode)) return;
    if (S_ISDIR(mode)) throw std::system_error(EISDIR, std::generic_category());
    if (kind == FileKind::kRegular) throw std::runtime_error("not a regular file");
    if (S_ISFIFO(mode) || path == kStandardInput) return;
    throw std::runtime_error("neither a regular file nor a pipe");
}

// Waits until a pipe has a writer, and makes the next reads wait for it.
void wait_for_writer(const File& pipe) {
    pollfd event{pipe.fd(), POLLIN, 0};
    while (poll(&event, 1, -1) < 0) {
        if (errno != EINTR) fail();
    }
    if (fcntl(pipe.fd(), F_SETFL, 0) != 0) fail();
}

void write_all(const File& file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(file.fd(), text.data(), text.size());
        if (written < 0 && errno != EINTR) fail();
        if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void let_all_read(const File& file) {
    const mode_t mask = umask(0);
    umask(mask);
    if (fchmod(file.fd(), 0666 & ~mask) != 0) fail();
}

}  // namespace

void replace_text_file(const std::string& path, std::string_view text, FileUse use) {
    std::string next = path + ".XXXXXX";
    // mkostemp(3) opens only a file that is new, and follows no link.
    File file(mkostemp(next.data(), O_CLOEXEC));
    try {
        write_all(file, text);
        if (use == FileUse::kReport) let_all_read(file);
        if (use == FileUse::kState && fsync(file.fd()) != 0) fail();
        file.close();
        if (std::rename(next.c_str(), path.c_str()) != 0) fail();
    } catch (...) {
        unlink(next.c_str());
        throw;
    }
}

std::string read_text_file(const std::string& path, FileKind kind) {
    const File file(open_for_reading(path));
    const mode_t mode = mode_of(file);
    expect(kind, path, mode);
    if (S_ISFIFO(mode) && path != kStandardInput) wait_for_writer(file);
    std::string text;
    for (;;) {
        const std::size_t size = text.size();
        text.resize(size + kBlock);
        const ssize_t got = ::read(file.fd(), &text[size], kBlock);
        if (got < 0 && errno != EINTR) fail();
        text.resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0) return text;
        if (text.size() > kLargestFile) throw std::runtime_error("larger than 64 MB");
    }
}
