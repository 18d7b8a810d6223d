/// A client of the library, whose process manager says what the test says, byte by byte.
#ifndef PROCMGR_TESTS_TUNOR_CLIENT_FIXTURE_H
#define PROCMGR_TESTS_TUNOR_CLIENT_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"
#include "tests/platform/tunor_test_kit.h"

namespace TunorTest {

inline constexpr uint32_t kLong = 30000;

inline Watched& Seen() {
    static Watched& watched = *new Watched;
    return watched;
}

inline std::vector<std::string>& SeenLines() {
    static std::vector<std::string>& lines = *new std::vector<std::string>;
    return lines;
}

inline std::function<void(int)>& Work() {
    static std::function<void(int)>& work = *new std::function<void(int)>;
    return work;
}

inline void OnRequest(int fd, TunorRequest* request) {
    const std::string bytes(static_cast<const char*>(request->data), request->size);
    Seen().Change([&] { SeenLines().push_back("request " + bytes); });
    if (Work()) {
        Work()(fd);
    }
}

inline void OnLost(int) {
    Seen().Change([] { SeenLines().push_back("lost"); });
}

inline std::vector<std::string> WaitForSeen(size_t count) {
    EXPECT_TRUE(Seen().WaitFor([&] { return SeenLines().size() >= count; }));
    std::vector<std::string> lines;
    Seen().Change([&] { lines = SeenLines(); });
    return lines;
}

inline int Open(uint32_t timeoutMs) {
    const TunorOpenParam param = {"PROCMGR", static_cast<uint32_t>(::getgid()), timeoutMs, OnRequest};
    return TunorOpen(&param);
}

inline std::string HelloAnswer(int error) {
    return Frame(2, 0, std::string(reinterpret_cast<const char*>(&error), sizeof(error)));
}

inline void ExpectFailure(int result, int error) {
    const int seen = errno;
    EXPECT_EQ(result, -error);
    EXPECT_EQ(seen, error);
}

/// A process manager that says what the test says, byte by byte.
class PipeClient : public testing::Test {
protected:
    PipeClient() {
        ::setenv("PROCMGR_RUN_DIR", folder.Path().c_str(), 1);
        ::setenv("PROC_NAME", "GrpOwner", 1);
        ::unsetenv("PROCMGR_SERVER_UID");
        OwnerSetPipeLostHandler(OnLost);
    }

    ~PipeClient() override {
        if (fd > 0) {
            TunorClosePipe(fd);
        }
    }

    /// Opens the pipe while the other side answers the hello with these packets and, when told so, hangs up.
    int OpenAnsweredBy(const std::vector<std::string>& packets, bool hangUp = false, uint32_t timeoutMs = kLong) {
        if (!listener.IsOpen()) {
            listener = RawSocket::Listen(folder.Path());
        }
        std::thread server([&] {
            peer = listener.Accept();
            hello = peer.Receive().value_or("nothing");
            for (const std::string& packet : packets) {
                EXPECT_TRUE(peer.Send(packet));
            }
            if (hangUp) {
                peer.Close();
                listener.Close();
            }
        });
        const int result = Open(timeoutMs);
        const int error = errno;
        server.join();
        errno = error;
        return result;
    }

    void OpenPipe() {
        fd = OpenAnsweredBy({HelloAnswer(0)});
        ASSERT_GT(fd, 0);
    }

    TempFolder folder;
    RawSocket listener;
    RawSocket peer;
    std::string hello;
    int fd = 0;
};

}  // namespace TunorTest

#endif
