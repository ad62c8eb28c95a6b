#include "desktop/linux/PipeReader.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace sayvo {

std::map<QString, QByteArray> readPipes(
    const std::vector<std::pair<QString, int>> &pipes, QDeadlineTimer deadline, qsizetype maxBytes)
{
    struct Pending
    {
        QString type;
        int fd = -1;
        QByteArray data;
    };
    std::vector<Pending> pending;
    pending.reserve(pipes.size());
    for (const auto &[type, fd] : pipes) {
        pending.push_back({type, fd, {}});
    }

    std::map<QString, QByteArray> result;
    while (!pending.empty()) {
        const qint64 remaining = deadline.remainingTime();
        if (remaining <= 0) {
            break;
        }
        std::vector<pollfd> descriptors;
        descriptors.reserve(pending.size());
        for (const Pending &read : pending) {
            descriptors.push_back({read.fd, POLLIN, 0});
        }
        if (::poll(descriptors.data(), nfds_t(descriptors.size()), int(remaining)) < 0
            && errno != EINTR) {
            break;
        }
        for (size_t i = descriptors.size(); i-- > 0;) {
            if (descriptors[i].revents == 0) {
                continue;
            }
            Pending &read = pending[i];
            char buffer[65536];
            ssize_t count = 0;
            while ((count = ::read(read.fd, buffer, sizeof buffer)) > 0
                && read.data.size() <= maxBytes) {
                read.data.append(buffer, count);
            }
            const bool ended = count == 0;
            const bool failed
                = (count < 0 && errno != EAGAIN && errno != EINTR) || read.data.size() > maxBytes;
            if (ended || failed) {
                if (ended && !failed) {
                    result[read.type] = std::move(read.data);
                }
                ::close(read.fd);
                pending.erase(pending.begin() + qsizetype(i));
            }
        }
    }
    // An owner that did not finish in time gives nothing more in this read.
    for (const Pending &read : pending) {
        ::close(read.fd);
    }
    return result;
}

} // namespace sayvo
