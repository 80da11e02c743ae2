#include "control/control_protocol.h"

#include "control/control_transport.h"

namespace {

using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TProtocol;
using apache::thrift::protocol::TProtocolException;
using apache::thrift::protocol::TType;
using apache::thrift::transport::TTransport;

// A CAT of 256 sections with descriptors of two bytes has 129,536.
constexpr std::uint32_t kMaxElementsOfList = 131072;

// A descriptor takes 15 bytes of its frame or more: 333,333 fit.
constexpr std::uint32_t kMaxStructuresOfMessage = 350000;

}  // namespace

ControlProtocol::ControlProtocol(const std::shared_ptr<TTransport>& transport)
    : TBinaryProtocolT<TTransport>(transport, /*string_limit=*/kMaxControlFrame,
                                   /*container_limit=*/kMaxElementsOfList,
                                   /*strict_read=*/false, /*strict_write=*/true) {}

std::uint32_t ControlProtocol::readMessageBegin_virt(std::string& name,
                                                     TMessageType& type,
                                                     std::int32_t& sequence_number) {
    structures_left_ = kMaxStructuresOfMessage;
    return TBinaryProtocolT::readMessageBegin(name, type, sequence_number);
}

std::uint32_t ControlProtocol::readListBegin_virt(TType& type, std::uint32_t& size) {
    const std::uint32_t bytes_read = TBinaryProtocolT::readListBegin(type, size);
    if (type != TType::T_STRUCT) return bytes_read;
    if (size > structures_left_) throw TProtocolException(TProtocolException::SIZE_LIMIT);
    structures_left_ -= size;
    return bytes_read;
}

std::shared_ptr<TProtocol> ControlProtocolFactory::getProtocol(
    std::shared_ptr<TTransport> transport) {
    return std::make_shared<ControlProtocol>(transport);
}
