#include "io/descriptor_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vidorra {

void writeAll(int descriptor, const std::uint8_t* data, std::size_t size, const std::string& name) {
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (written < 0 && errno == EAGAIN) {
            pollfd ready{descriptor, POLLOUT, 0};
            static_cast<void>(poll(&ready, 1, -1));
        } else if (written < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot write to " + name);
        }
    }
}

}  // namespace vidorra
