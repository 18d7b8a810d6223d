// ssctl with a service of the test's own on the resource bus: one that answers what it likes, and one that tells
// events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "include/ss_to_owner_server.h"
#include "platform/include/vek.h"
#include "tests/tools/ssctl_runs.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// What a request is and what its answer shall be.
struct Exchange {
    std::mutex mutex;
    unsigned int command = 0;  ///< guarded by mutex
    std::string request;       ///< guarded by mutex
    std::string answer;        ///< guarded by mutex; the first bytes of the buffer
    int result = 0;            ///< guarded by mutex
};

Exchange& TheExchange() {
    // Never destroyed: the bus's threads go on while the process ends.
    static Exchange& exchange = *new Exchange();
    return exchange;
}

int Open(VEKMgrFile* /*file*/) {
    return 0;
}

long Read(VEKMgrFile* /*file*/, char* /*buffer*/, size_t /*size*/, long* /*offset*/) {
    return 0;
}

int Ioctl(VEKMgrFile* /*file*/, unsigned int command, VEKIoctlArg* arg) {
    Exchange& exchange = TheExchange();
    const std::lock_guard<std::mutex> lock(exchange.mutex);
    exchange.command = command;
    exchange.request.assign(static_cast<const char*>(arg->addr), arg->size);
    std::memcpy(arg->addr, exchange.answer.data(), exchange.answer.size());
    return exchange.result;
}

std::string U32(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

}  // namespace

class SsctlService : public SsctlRuns {
protected:
    void SetUp() override {
        SsctlRuns::SetUp();
        std::filesystem::create_directory(Folder() + "/run");
        ASSERT_EQ(setenv("PROCMGR_RUN_DIR", (Folder() + "/run").c_str(), 1), 0);
    }

    static void Serve() {
        const VEKServiceOps ops = {Open, Read, Open, Ioctl};
        ASSERT_EQ(VEKRegisterService("grp_owner", &ops, 5000), 0);
    }

    static void AnswerWith(const std::string& payload) {
        AnswerWith(U32(static_cast<uint32_t>(payload.size())) + U32(0) + U32(0) + payload,
                   static_cast<int>(payload.size()) + 8);
    }

    static void AnswerWith(const std::string& buffer, int result) {
        const std::lock_guard<std::mutex> lock(TheExchange().mutex);
        TheExchange().answer = buffer;
        TheExchange().result = result;
    }
};

TEST_F(SsctlService, GetsTheRecordByteForByte) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    AnswerWith("2#1#b#0#");
    EXPECT_EQ(
        Ssctl({"change", "--stop", "a", "--start", "b", "--args", "b=x,y", "--para", "b:-1=p", "--timeout", "7000"})
            .exitCode,
        0);
    const std::string payload = "2#a#1#0#0#b#0#2#x#y#1#-1#1#p#";
    std::string expected(3904, '\0');
    expected.replace(0, 4, U32(static_cast<uint32_t>(payload.size())));
    expected.replace(8, 4, U32(7000));
    expected.replace(12, payload.size(), payload);
    const std::lock_guard<std::mutex> lock(TheExchange().mutex);
    EXPECT_EQ(TheExchange().command, 0U);
    EXPECT_EQ(TheExchange().request, expected);
}

TEST_F(SsctlService, MayAnswerRubbish) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    const std::pair<std::string, int> answers[] = {
        {"", 0},
        {"", 8},
        {"", -0xf10003},
        {"", static_cast<int>(0xff0f0000U)},
        {std::string(3904, '\xFF'), 3896},
        {U32(3889), 3897},
        {U32(4) + U32(0) + U32(0) + "abcd", 12},
        {U32(4) + U32(0) + U32(0) + "1#1#", 13},
        {U32(20) + U32(0) + U32(0) + "4294967295#1#a#0#b#0#", 28},
    };
    for (const auto& [buffer, result] : answers) {
        AnswerWith(buffer, result);
        const SsctlResult run = Ssctl({"start", "a"});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.output, "");
        EXPECT_THAT(run.complaint, StartsWith("ssctl: the ")) << result;
    }
}

TEST_F(SsctlService, MayNotSteerTheTerminal) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    AnswerWith("1#a\x1b[2Jb#\xFF\n#");
    EXPECT_EQ(Ssctl({"list"}).output, "APPLICATION\na\\x1b[2Jb\n\\xff\\x0a\n");
    EXPECT_EQ(Document({"list"}).at("applications").at(0).at("name"), "a\x1b[2Jb");
}

TEST_F(SsctlService, IsOfNoUseWhenTheResultCannotBeWritten) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    AnswerWith("1#a#");
    ChildProcess child({"/bin/sh", "-c", "exec \"$0\" list >/dev/full", Program()}, environment_);
    EXPECT_EQ(child.WaitForExit(), 1);
    EXPECT_EQ(child.Output(), "ssctl: the result could not be written to the standard output.\n");
}

TEST_F(SsctlService, ThatIsAQueueIsNoServiceForRequests) {
    ASSERT_EQ(SsToOwnerServer::GetInstance().InitSysEventServer("grp_owner"), 0);
    const SsctlResult run = Ssctl({"list"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.complaint, HasSubstr("it is a service of the other kind"));
}

TEST_F(SsctlService, TellsEventsToEachFollower) {
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    ASSERT_EQ(server.InitSysEventServer("grp_owner_events"), 0);
    ChildProcess people({Program(), "events", "--count", "3", "--timeout", "60000"}, environment_);
    ChildProcess script(
        {Program(), "--json", "events", "--queue", "grp_owner_events", "--count", "1", "--timeout", "60000"},
        environment_);
    // Nobody says when a follower is there; so events come until both have theirs.
    while (!HasEnded(people) || !HasEnded(script)) {
        static_cast<void>(server.ReportSysEvent(SysEvent{2}));
        std::this_thread::yield();
    }
    EXPECT_EQ(people.WaitForExit(), 0);
    EXPECT_EQ(script.WaitForExit(), 0);
    EXPECT_EQ(people.Output(), "SUSPEND\nSUSPEND\nSUSPEND\n");
    EXPECT_EQ(script.Output(),
              R"({"schema":1,"command":"events","resource":"grp_owner_events","ok":true,"exit_code":0,)"
              R"("event":{"state":2,"name":"SUSPEND"}})"
              "\n");
}

TEST_F(SsctlService, WithoutEventsMakesFollowersEndAtTheirTimeOut) {
    ASSERT_EQ(SsToOwnerServer::GetInstance().InitSysEventServer("quiet"), 0);
    const SsctlResult one = Ssctl({"events", "--queue", "quiet", "--count", "1", "--timeout", "200"});
    EXPECT_EQ(one.exitCode, 4);
    EXPECT_EQ(one.output, "");
    EXPECT_EQ(one.complaint, "ssctl: 0 of 1 events came within 200 ms.\n       Wait longer with --timeout.\n");
    const SsctlResult any = Ssctl({"events", "--queue", "quiet", "--timeout", "200"});
    EXPECT_EQ(any.exitCode, 0);
    EXPECT_EQ(any.output + any.complaint, "");
}

TEST_F(SsctlService, ThatTellsNoEventsIsNotThere) {
    const SsctlResult run = Ssctl({"events"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(
        run.complaint,
        "ssctl: nobody tells events on 'grp_owner_events' in " + Folder() +
            "/run: there is no such service.\n"
            "       Start the group owner with 'grpownerd --resource grp_owner --events grp_owner_events', or choose"
            " another with --queue and --run-dir.\n");
}

class SsctlOtherUser : public SsctlService {
protected:
    void SetUp() override {
        SsctlService::SetUp();
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can run ssctl as another user";
        }
        std::filesystem::permissions(Folder(), std::filesystem::perms(0755));
    }

    /// What it comes to for a user that is nobody's.
    SsctlResult AsNobody(const std::string& command) const {
        ChildProcess child({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", Program(), command},
                           environment_);
        SsctlResult run;
        run.exitCode = child.WaitForExit();
        run.output = child.Output();
        return run;
    }
};

TEST_F(SsctlOtherUser, MayDoNothingWithoutARule) {
    ASSERT_NO_FATAL_FAILURE(Serve());
    AnswerWith("1");
    const SsctlResult run = AsNobody("stop-all");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output,
              "ssctl: you may not do that with 'grp_owner': uid 65534 is not granted it.\n"
              "       Run it as the user of the group owner or as root, or have the owner's rule file (its"
              " PROCMGR_SS_RULES) grant it.\n");
}

TEST_F(SsctlOtherUser, MayDoWhatARuleGrants) {
    std::ofstream(Folder() + "/rules") << "allow uid 65534 look\n";
    ASSERT_EQ(setenv("PROCMGR_SS_RULES", (Folder() + "/rules").c_str(), 1), 0);
    ASSERT_NO_FATAL_FAILURE(Serve());
    AnswerWith("1#a#");
    EXPECT_EQ(AsNobody("list").output, "APPLICATION\na\n");
    EXPECT_EQ(AsNobody("stop-all").exitCode, 1);
    EXPECT_EQ(AsNobody("reload").exitCode, 1);
}
