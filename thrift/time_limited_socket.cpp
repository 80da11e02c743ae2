#include "thrift/time_limited_socket.h"

#include "dvb/nanoseconds.h"

using apache::thrift::transport::TTransportException;

TimeLimitedSocket::TimeLimitedSocket(const std::string& host, int port, int limit_ms)
    : TSocket(host, port), limit_ns_(limit_ms * kNsPerMs) {}

void TimeLimitedSocket::limit_next_operation() {
    if (left_ns_ <= 0) throw TTransportException(TTransportException::TIMED_OUT);
    // Rounded up: 0 would mean no limit.
    const auto left_ms = static_cast<int>((left_ns_ + kNsPerMs - 1) / kNsPerMs);
    setConnTimeout(left_ms);
    setRecvTimeout(left_ms);
    setSendTimeout(left_ms);
}

template <typename Operation>
auto TimeLimitedSocket::limited(Operation operation) {
    limit_next_operation();
    const std::int64_t start_ns = steady_now_ns();
    const auto result = operation();
    left_ns_ -= steady_now_ns() - start_ns;
    return result;
}

void TimeLimitedSocket::open() {
    limited([this] {
        TSocket::open();
        return true;
    });
}

std::uint32_t TimeLimitedSocket::read(std::uint8_t* buffer, std::uint32_t length) {
    has_read_ = true;
    return limited([&] { return TSocket::read(buffer, length); });
}

std::uint32_t TimeLimitedSocket::write_partial(const std::uint8_t* buffer,
                                               std::uint32_t length) {
    if (has_read_) left_ns_ = limit_ns_;
    has_read_ = false;
    return limited([&] { return TSocket::write_partial(buffer, length); });
}
