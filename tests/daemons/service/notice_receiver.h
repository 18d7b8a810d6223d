/// The end of whoever starts a daemon as a service: a datagram socket, and what comes there.
#ifndef TESTS_DAEMONS_SERVICE_NOTICE_RECEIVER_H
#define TESTS_DAEMONS_SERVICE_NOTICE_RECEIVER_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

#include "platform/posix/common_posix/unique_fd.h"

class NoticeReceiver {
public:
    /// `address`: a path, or '@' and an abstract name.
    explicit NoticeReceiver(const std::string& address) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un bound{};
        bound.sun_family = AF_UNIX;
        address.copy(bound.sun_path, sizeof(bound.sun_path) - 1);
        if (address[0] == '@') {
            bound.sun_path[0] = '\0';
        }
        const size_t size = offsetof(sockaddr_un, sun_path) + address.size();
        EXPECT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&bound), static_cast<socklen_t>(size)), 0);
    }

    /// The next datagram, which must be there already.
    std::string Take() const {
        char text[4096];
        const ssize_t size = recv(fd_.Get(), text, sizeof(text), MSG_DONTWAIT);
        return size < 0 ? "nothing" : std::string(text, static_cast<size_t>(size));
    }

    /// The next one, if it comes within a minute.
    std::string Await() const {
        pollfd waiting{fd_.Get(), POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 60000), 1) << "no datagram came";
        return Take();
    }

    /// The next one that holds `text`; "nothing" when none comes.
    std::string AwaitWith(const std::string& text) const {
        std::string datagram = Await();
        while (datagram != "nothing" && datagram.find(text) == std::string::npos) {
            datagram = Await();
        }
        return datagram;
    }

private:
    ProcMgr::UniqueFd fd_;
};

#endif
