#ifndef KESTAN_CONTROL_CONTROL_PROTOCOL_H
#define KESTAN_CONTROL_CONTROL_PROTOCOL_H

#include <cstdint>
#include <memory>
#include <string>

#include <thrift/protocol/TBinaryProtocol.h>

// Thrift's binary protocol for the control server, with limits.
//
// Thrift allocates the lengths that a message claims: without limits, a message of 30
// bytes takes gigabytes or ends the process. So a string is no longer than a frame, a
// list has no more elements than one of the largest table, and all lists of structures in
// a message have no more together than a frame has room for. A message that claims more
// raises TProtocolException(SIZE_LIMIT), and the server closes the connection.
//
// It accepts messages without the version word, and writes it. One thread.
class ControlProtocol final : public apache::thrift::protocol::TBinaryProtocolT<
                                  apache::thrift::transport::TTransport> {
public:
    explicit ControlProtocol(
        const std::shared_ptr<apache::thrift::transport::TTransport>& transport);

    std::uint32_t readMessageBegin_virt(std::string& name,
                                        apache::thrift::protocol::TMessageType& type,
                                        std::int32_t& sequence_number) override;
    std::uint32_t readListBegin_virt(apache::thrift::protocol::TType& type,
                                     std::uint32_t& size) override;

private:
    std::uint32_t structures_left_ = 0;  // that the message's lists may still have
};

// Makes the control server's protocols.
class ControlProtocolFactory final : public apache::thrift::protocol::TProtocolFactory {
public:
    std::shared_ptr<apache::thrift::protocol::TProtocol> getProtocol(
        std::shared_ptr<apache::thrift::transport::TTransport> transport) override;
};

#endif
