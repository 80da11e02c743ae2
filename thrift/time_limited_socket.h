#ifndef KESTAN_THRIFT_TIME_LIMITED_SOCKET_H
#define KESTAN_THRIFT_TIME_LIMITED_SOCKET_H

#include <cstdint>
#include <string>

#include <thrift/transport/TSocket.h>

// A Thrift client's TCP socket with one time limit for a whole call, where Thrift has one
// for each receive: a peer that sends slowly cannot hold a call for longer.
//
// Connecting and the first call have `limit_ms` together, and each further call has it
// again. A call begins with the first write after a read. Only the time spent in the
// socket's operations counts. A host name with several addresses can take `limit_ms` for
// each of them.
//
// When the time is over, an operation throws TTransportException(TIMED_OUT), and the
// connection is useless. One thread.
class TimeLimitedSocket final : public apache::thrift::transport::TSocket {
public:
    TimeLimitedSocket(const std::string& host, int port, int limit_ms);

    void open() override;
    std::uint32_t read(std::uint8_t* buffer, std::uint32_t length) override;
    std::uint32_t write_partial(const std::uint8_t* buffer,
                                std::uint32_t length) override;

private:
    // Gives the next operation what is left of the time.
    void limit_next_operation();

    // Runs an operation of TSocket and subtracts its duration from the time that is left.
    template <typename Operation>
    auto limited(Operation operation);

    const std::int64_t limit_ns_;
    std::int64_t left_ns_ = limit_ns_;
    bool has_read_ = false;  // since the last write
};

#endif
