/// A server on the test's own thread, and raw clients of it.
#ifndef PROCMGR_TESTS_TUNOR_SERVER_FIXTURE_H
#define PROCMGR_TESTS_TUNOR_SERVER_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/posix/tunor/tunor_server.h"
#include "tests/platform/tunor_test_kit.h"

namespace TunorTest {

inline std::string HelloAnswer(int error) {
    return Frame(2, 0, std::string(reinterpret_cast<const char*>(&error), sizeof(error)));
}

class PipeServer : public testing::Test {
protected:
    PipeServer() { Restart({}); }

    void Restart(ProcMgr::TunorServerLimits limits) {
        hand = std::make_unique<ServerOnHand>(limits);
        std::string error;
        EXPECT_TRUE(hand->Server().Listen(folder.Path(), "PROCMGR", error)) << error;
    }

    RawSocket Connect() const { return RawSocket::Connect(folder.Path()); }

    RawSocket Hello(const std::string& name) {
        RawSocket socket = Connect();
        EXPECT_TRUE(socket.Send(Frame(1, 0, name)));
        return socket;
    }

    /// An open connection, its hello answered.
    RawSocket Open(const std::string& name) {
        const size_t count = hand->ids.size();
        RawSocket socket = Hello(name);
        while (hand->ids.size() == count && hand->Turn()) {
        }
        EXPECT_EQ(socket.Receive(), HelloAnswer(0));
        return socket;
    }

    void TurnUntilLogged(const std::string& part) {
        while (!WasLogged(part)) {
            ASSERT_TRUE(hand->Turn()) << part;
        }
    }

    /// Nothing is left to do for the server.
    void TurnUntilQuiet() {
        while (hand->Turn(0)) {
        }
    }

    TempFolder folder;
    std::unique_ptr<ServerOnHand> hand;
};

}  // namespace TunorTest

#endif
