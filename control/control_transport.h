#ifndef KESTAN_CONTROL_CONTROL_TRANSPORT_H
#define KESTAN_CONTROL_CONTROL_TRANSPORT_H

#include <cstdint>
#include <memory>

#include <thrift/transport/TBufferTransports.h>

// The largest frame that the control server takes, in bytes. The largest table that can
// be carried, a CAT of descriptors without data, takes 1.94 MB.
constexpr std::uint32_t kMaxControlFrame = 5000000;

// Thrift's framed transport, for connections that last for years on a device with little
// memory:
//
// - Thrift counts the bytes of strings over the whole life of a connection and closes it
//   at 100 MiB, without an answer or a message. Here the count begins again with each
//   frame.
// - A frame above kMaxControlFrame closes the connection. So does a message that goes on
//   after its frame: through several frames it could claim any amount of memory.
// - The memory of a frame above 1 MB and of what was made of it goes back to the system
//   before the next frame is read and when the connection closes.
//
// One thread.
class ControlTransport final : public apache::thrift::transport::TFramedTransport {
public:
    explicit ControlTransport(
        const std::shared_ptr<apache::thrift::transport::TTransport>& connection);

    std::uint32_t readEnd() override;
    void close() override;

private:
    bool readFrame() override;

    bool is_in_frame_ = false;           // whose last message has not been read whole
    bool has_read_large_frame_ = false;  // since memory was given back
};

// Makes the control server's transports, and has the process return memory that is freed.
class ControlTransportFactory final
    : public apache::thrift::transport::TFramedTransportFactory {
public:
    ControlTransportFactory();

    std::shared_ptr<apache::thrift::transport::TTransport> getTransport(
        std::shared_ptr<apache::thrift::transport::TTransport> connection) override;
};

#endif
