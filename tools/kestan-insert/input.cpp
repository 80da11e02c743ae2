#include "tools/kestan-insert/input.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "dvb/nanoseconds.h"
#include "tools/kestan-insert/options.h"

Input::Input(const std::string& address, const std::string& interface) {
    if (address == kPipe) return;
    receiver_.emplace(parse_endpoint(address), interface, ArrivalTime::kReading);
}

int Input::fd() const {
    return receiver_ ? receiver_->fd() : STDIN_FILENO;
}

void Input::read(const UdpReceiver::Callback& on_datagram) {
    if (receiver_) {
        receiver_->read(on_datagram);
    } else {
        read_pipe(on_datagram);
    }
}

void Input::read_pipe(const UdpReceiver::Callback& on_datagram) {
    const ssize_t size =
        ::read(STDIN_FILENO, &datagram_[filled_], datagram_.size() - filled_);
    if (size < 0 && errno != EAGAIN && errno != EINTR)
        throw std::system_error(errno, std::generic_category(),
                                "cannot read standard input");
    if (size < 0) return;
    filled_ += static_cast<std::size_t>(size);
    is_over_ = size == 0;
    if (!is_over_ && filled_ < datagram_.size()) return;
    // What the end has cut is no packet.
    const std::size_t whole = filled_ - filled_ % kTsPacketSize;
    if (whole != 0) on_datagram(steady_now_ns(), datagram_.data(), whole);
    filled_ = 0;
}
