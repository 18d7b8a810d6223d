#include <algorithm>

#include "tests/contract/pipe_harness.h"
#include "tests/platform/tunor_test_kit.h"

using TunorTest::ServerOnHand;

class PipeHarness::Impl {
public:
    std::vector<std::string> Wait(const std::string& kind, size_t count) {
        std::vector<std::string> found;
        const bool came = answered_.WaitFor([&] {
            found.clear();
            for (const std::string& line : server.Told()) {
                if (line.rfind(kind + " ", 0) == 0) {
                    found.push_back(line.substr(kind.size() + 1));
                }
            }
            return found.size() >= count;
        });
        return came ? found : std::vector<std::string>();
    }

    TunorTest::ServerThread server;

private:
    TunorTest::Watched answered_;
};
