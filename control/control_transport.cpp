#include "control/control_transport.h"

#include <malloc.h>

#include <utility>

namespace {

using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;

// Thrift frees a buffer above this size as soon as its message has been read or written.
constexpr std::uint32_t kLargeFrame = 1000000;

}  // namespace

ControlTransport::ControlTransport(const std::shared_ptr<TTransport>& connection)
    : TFramedTransport(connection, DEFAULT_BUFFER_SIZE, kLargeFrame) {
    setMaxFrameSize(kMaxControlFrame);
}

bool ControlTransport::readFrame() {
    if (is_in_frame_) {
        throw TTransportException(TTransportException::CORRUPTED_DATA,
                                  "a message is longer than its frame");
    }
    if (std::exchange(has_read_large_frame_, false)) malloc_trim(0);
    resetConsumedMessageSize();
    is_in_frame_ = TFramedTransport::readFrame();
    has_read_large_frame_ = rBufSize_ > kLargeFrame;
    return is_in_frame_;
}

// Thrift frees a large buffer here. But a frame may have a further message.
std::uint32_t ControlTransport::readEnd() {
    is_in_frame_ = rBase_ < rBound_;
    return is_in_frame_ ? 0 : TFramedTransport::readEnd();
}

void ControlTransport::close() {
    // The buffer is still there if its frame has broken off.
    const bool is_large = has_read_large_frame_ || rBufSize_ > kLargeFrame;
    setReadBuffer(nullptr, 0);
    rBuf_.reset();
    rBufSize_ = 0;
    if (is_large) malloc_trim(0);
    TFramedTransport::close();
}

// By default glibc keeps more and more freed memory, because it raises the first
// threshold whenever a larger block is freed, and keeps small blocks apart. At the end of
// the control thread's heap, malloc_trim cannot return such memory.
ControlTransportFactory::ControlTransportFactory() {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_MXFAST, 0);
}

std::shared_ptr<TTransport> ControlTransportFactory::getTransport(
    std::shared_ptr<TTransport> connection) {
    return std::make_shared<ControlTransport>(connection);
}
