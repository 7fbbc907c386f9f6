#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "io/descriptor.h"
#include "vidorra/io/byte_source.h"

namespace vidorra {
namespace {

// How long read() waits before it says that nothing is there yet, so that its reader can look at its timeout.
constexpr int kWaitMilliseconds = 50;

int newEvent() {
    const int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make an event");
    }
    return event;
}

class DescriptorSource : public ByteSource {
public:
    // The event comes first: where there is none, the descriptor stays the caller's.
    explicit DescriptorSource(int descriptor) : mEvent(newEvent()), mFile(descriptor) {}

    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        std::array<pollfd, 2> waits = {{{mFile.get(), POLLIN, 0}, {mEvent.get(), POLLIN, 0}}};
        const int ready = poll(waits.data(), waits.size(), kWaitMilliseconds);
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot wait for " + name());
        }
        if (ready <= 0 || waits[1].revents != 0) {
            return 0;
        }
        const ssize_t count = ::read(mFile.get(), target, size);
        if (count > 0) {
            return static_cast<std::size_t>(count);
        }
        if (count == 0) {
            return std::nullopt;
        }
        if (errno == EAGAIN || errno == EINTR) {
            return 0;
        }
        throw std::system_error(errno, std::generic_category(), "cannot read " + name());
    }

    bool seek(std::uint64_t position) override {
        return position <= static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) &&
               lseek(mFile.get(), static_cast<off_t>(position), SEEK_SET) >= 0;
    }

    [[nodiscard]] std::optional<std::uint64_t> size() const override {
        struct stat status {};
        if (fstat(mFile.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(status.st_size);
    }

    void interrupt() noexcept override {
        // It can fail only when the event is set already.
        static_cast<void>(eventfd_write(mEvent.get(), 1));
    }

    [[nodiscard]] std::string name() const override { return "descriptor " + std::to_string(mFile.get()); }

private:
    Descriptor mEvent;
    Descriptor mFile;
};

}  // namespace

std::shared_ptr<ByteSource> descriptorSource(int descriptor) {
    if (descriptor < 0) {
        throw std::invalid_argument("descriptorSource(): a descriptor is not negative");
    }
    return std::make_shared<DescriptorSource>(descriptor);
}

}  // namespace vidorra
