#include "runtime/ControlClient.h"

#include "runtime/UnixSocket.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace sayvo {

namespace {

constexpr size_t kMaxReplyBytes = 64;

} // namespace

std::string instanceDirectory()
{
    // The session manager makes the runtime directory; one that is named but missing is not
    // made here. Read at start-up, before the process has other threads.
    const char *runtime = std::getenv("XDG_RUNTIME_DIR"); // NOLINT(concurrency-mt-unsafe)
    struct stat info
    {
    };
    if (runtime && runtime[0] == '/' && ::stat(runtime, &info) == 0 && S_ISDIR(info.st_mode)) {
        return std::string(runtime) + "/sayvo";
    }
    return "/tmp/sayvo-" + std::to_string(::geteuid());
}

std::string instanceSocketPath(const std::string &directory)
{
    return directory + "/control";
}

ControlDelivery sendControlRequest(
    ControlRequest request, const std::string &directory, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    const std::string path = instanceSocketPath(directory);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return ControlDelivery::notRunning;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = openLocalStreamSocket();
    if (fd < 0) {
        return ControlDelivery::notRunning;
    }
    struct Closer
    {
        int fd;
        ~Closer() { ::close(fd); }
    } closer {fd};
    // No socket, one nobody listens on (left by a crash), or a directory we may not enter.
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        return errno == EAGAIN ? ControlDelivery::notAnswering : ControlDelivery::notRunning;
    }
    const std::string line = encode(request);
    if (sendWithoutSignal(fd, line.data(), line.size()) != ssize_t(line.size())) {
        return ControlDelivery::notRunning;
    }
    std::string answer;
    while (answer.find('\n') == std::string::npos && answer.size() <= kMaxReplyBytes) {
        const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now())
                                   .count();
        if (remaining <= 0) {
            return ControlDelivery::notAnswering;
        }
        pollfd descriptor {fd, POLLIN, 0};
        if (::poll(&descriptor, 1, int(remaining)) <= 0) {
            continue;
        }
        char buffer[64];
        const ssize_t count = ::recv(fd, buffer, sizeof buffer, 0);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            answer.append(buffer, size_t(count));
        } else if (errno != EAGAIN && errno != EINTR) {
            break;
        }
    }
    if (answer.empty()) {
        return ControlDelivery::notAnswering;
    }
    return decodeControlReply(answer) == ControlReply::done ? ControlDelivery::delivered
                                                            : ControlDelivery::refused;
}

} // namespace sayvo
