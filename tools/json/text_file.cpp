#include "tools/json/text_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Standard input stays open.
class OpenFile {
public:
    // O_NONBLOCK: opening a pipe would wait for its writer, and a device for anything.
    explicit OpenFile(const std::string& path)
        : is_own_(path != kStandardInput),
          fd_(is_own_ ? open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)
                      : STDIN_FILENO) {
        if (fd_ < 0) fail();
    }
    ~OpenFile() {
        if (is_own_) close(fd_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    [[nodiscard]] mode_t mode() const {
        struct stat status {};
        if (fstat(fd_, &status) != 0) fail();
        return status.st_mode;
    }

    // Waits until a pipe has a writer, and makes the next reads wait for it.
    void wait_for_writer() const {
        if (!is_own_) return;
        pollfd event{fd_, POLLIN, 0};
        while (poll(&event, 1, -1) < 0) {
            if (errno != EINTR) fail();
        }
        if (fcntl(fd_, F_SETFL, 0) != 0) fail();
    }

    // Returns the number of bytes read, 0 at the end.
    std::size_t read_some(char* to, std::size_t size) const {
        for (;;) {
            const ssize_t got = ::read(fd_, to, size);
            if (got >= 0) return static_cast<std::size_t>(got);
            if (errno != EINTR) fail();
        }
    }

private:
    bool is_own_;
    int fd_;
};

void expect(FileKind kind, const std::string& path, mode_t mode) {
    if (S_ISREG(mode)) return;
    if (S_ISDIR(mode)) throw std::system_error(EISDIR, std::generic_category());
    if (kind == FileKind::kRegular) throw std::runtime_error("not a regular file");
    if (S_ISFIFO(mode) || path == kStandardInput) return;
    throw std::runtime_error("neither a regular file nor a pipe");
}

// A new file next to the one that it replaces. It is removed if it does not get there.
class Replacement {
public:
    // mkostemp(3) opens only a file that is new, and follows no link.
    explicit Replacement(const std::string& path)
        : path_(path), next_(path + ".XXXXXX"), fd_(mkostemp(next_.data(), O_CLOEXEC)) {
        if (fd_ < 0) fail();
    }
    ~Replacement() {
        if (fd_ >= 0) close(fd_);
        if (!is_done_) unlink(next_.c_str());
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void write_all(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t written = ::write(fd_, text.data(), text.size());
            if (written < 0 && errno != EINTR) fail();
            if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void let_all_read() const {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(fd_, 0666 & ~mask) != 0) fail();
    }

    void reach_the_disk() const {
        if (fsync(fd_) != 0) fail();
    }

    // Some file systems report a full disk only when the file is closed.
    void commit() {
        if (close(std::exchange(fd_, -1)) != 0) fail();
        if (std::rename(next_.c_str(), path_.c_str()) != 0) fail();
        is_done_ = true;
    }

private:
    std::string path_;
    std::string next_;
    int fd_;
    bool is_done_ = false;
};

}  // namespace

void replace_text_file(const std::string& path, std::string_view text, FileUse use) {
    Replacement file(path);
    file.write_all(text);
    if (use == FileUse::kReport) file.let_all_read();
    if (use == FileUse::kState) file.reach_the_disk();
    file.commit();
}

std::string read_text_file(const std::string& path, FileKind kind) {
    const OpenFile file(path);
    const mode_t mode = file.mode();
    expect(kind, path, mode);
    if (S_ISFIFO(mode)) file.wait_for_writer();
    std::string text;
    for (;;) {
        const std::size_t size = text.size();
        text.resize(size + kBlock);
        const std::size_t got = file.read_some(&text[size], kBlock);
        text.resize(size + got);
        if (got == 0) return text;
        if (text.size() > kLargestFile) throw std::runtime_error("larger than 64 MB");
    }
}
