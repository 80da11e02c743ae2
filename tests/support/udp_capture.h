#ifndef KESTAN_TESTS_SUPPORT_UDP_CAPTURE_H
#define KESTAN_TESTS_SUPPORT_UDP_CAPTURE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A UDP socket on a port of every address, bound for the life of the object.
class UdpCapture {
public:
    // Port 0 takes a free one. Joins `group` when it is given.
    explicit UdpCapture(int port = 0, const std::string& group = "");

    // In the network namespace of this name.
    static std::unique_ptr<UdpCapture> in_namespace(const std::string& name, int port);

    ~UdpCapture();
    UdpCapture(const UdpCapture&) = delete;
    UdpCapture& operator=(const UdpCapture&) = delete;

    [[nodiscard]] int port() const { return port_; }

    struct Datagram {
        std::int64_t time_ns;  // when the kernel received it, on the civil clock
        int ttl;
        std::string bytes;
    };

    // What comes within `duration`.
    [[nodiscard]] std::vector<Datagram> receive_for(std::chrono::milliseconds duration);

    // Forgets what has come and was not asked for.
    void drain();

private:
    bool receive(Datagram& datagram, std::chrono::milliseconds timeout) const;

    int fd_;
    int port_;
};

#endif
