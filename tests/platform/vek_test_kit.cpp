#include "tests/platform/vek_test_kit.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/posix/common_posix/unique_fd.h"

namespace VekTest {

namespace {

int OnOpen(VEKMgrFile* file) {
    const std::shared_lock<std::shared_mutex> lock(Service::Get().Running());
    Service::Get().Tell(std::string("open ") + file->fileName);
    return Service::Get().onOpen ? Service::Get().onOpen(file) : 0;
}

long OnRead(VEKMgrFile* /*file*/, char* buffer, size_t size, long* offset) {
    const std::shared_lock<std::shared_mutex> lock(Service::Get().Running());
    Service::Get().Tell("read " + std::to_string(size) + " at " + std::to_string(*offset));
    return Service::Get().onRead ? Service::Get().onRead(buffer, size, offset) : 0;
}

int OnClose(VEKMgrFile* file) {
    Service::Get().Tell(std::string("close ") + file->fileName);
    return 0;
}

int OnIoctl(VEKMgrFile* /*file*/, unsigned int cmd, VEKIoctlArg* arg) {
    const std::shared_lock<std::shared_mutex> lock(Service::Get().Running());
    Service::Get().Tell("ioctl " + std::to_string(cmd));
    if (Service::Get().onIoctl) {
        return Service::Get().onIoctl(cmd, arg);
    }
    char* bytes = static_cast<char*>(arg->addr);
    std::reverse(bytes, bytes + arg->size);
    return static_cast<int>(cmd);
}

int OnQueueOpen(VekQfsMgrFile* file) {
    const std::shared_lock<std::shared_mutex> lock(Service::Get().Running());
    const int result = Service::Get().onQueueOpen ? Service::Get().onQueueOpen(file) : 0;
    Service::Get().Tell(std::string("open ") + file->fileName);
    return result;
}

int OnQueueClose(VekQfsMgrFile* file) {
    const std::shared_lock<std::shared_mutex> lock(Service::Get().Running());
    const int result = Service::Get().onQueueClose ? Service::Get().onQueueClose(file) : 0;
    Service::Get().Tell(std::string("close ") + file->fileName);
    return result;
}

std::string ErrorName(int error) {
    return strerrorname_np(-error);
}

}  // namespace

Service& Service::Get() {
    static Service& service = *new Service;
    return service;
}

void Service::Silence() {
    const std::unique_lock<std::shared_mutex> lock(running_);
    onOpen = nullptr;
    onRead = nullptr;
    onIoctl = nullptr;
    onQueueOpen = nullptr;
    onQueueClose = nullptr;
}

VEKServiceOps Service::Ops() const {
    return {OnOpen, OnRead, OnClose, OnIoctl};
}

VEKQueueOps Service::QueueOps() const {
    return {OnQueueOpen, OnQueueClose};
}

void Service::Tell(const std::string& line) {
    watched_.Change([&] { told_.push_back(line); });
}

void Service::ForgetTold() {
    watched_.Change([&] { told_.clear(); });
}

std::vector<std::string> Service::Told() const {
    return WaitForTold(0);
}

std::vector<std::string> Service::WaitForTold(size_t count) const {
    std::vector<std::string> copy;
    static_cast<void>(watched_.WaitFor([&] {
        copy = told_;
        return told_.size() >= count;
    }));
    return copy;
}

bool Service::IsTold(const std::string& line, size_t count) const {
    return watched_.WaitFor([&] { return static_cast<size_t>(std::count(told_.begin(), told_.end(), line)) >= count; });
}

File OpenFile(const std::string& name) {
    ProcmgrSsFile* file = nullptr;
    const int error = ProcmgrSsOpen(nullptr, name.c_str(), kPatience, &file);
    EXPECT_EQ(error, 0) << ErrorName(error);
    return File(file);
}

Queue OpenQueue(const std::string& name) {
    ProcmgrSsQueue* queue = nullptr;
    const int error = ProcmgrSsOpenQueue(nullptr, name.c_str(), kPatience, &queue);
    EXPECT_EQ(error, 0) << ErrorName(error);
    return Queue(queue);
}

std::string Ask(const File& file, uint32_t cmd, const std::string& request, uint32_t timeoutMs) {
    std::string buffer = request;
    int32_t result = 0;
    const int error = ProcmgrSsIoctl(file.get(), cmd, buffer.data(), buffer.size(), timeoutMs, &result);
    if (error != 0) {
        return buffer == request ? ErrorName(error) : "the buffer was touched";
    }
    return std::to_string(result) + " " + buffer;
}

std::string NextEvent(const Queue& queue, int32_t timeoutMs) {
    std::array<char, 64> buffer = {};
    size_t size = 0;
    const int error = ProcmgrSsWaitEvent(queue.get(), timeoutMs, buffer.data(), buffer.size(), &size);
    return error == 0 ? std::string(buffer.data(), size) : ErrorName(error);
}

std::string BusFrame(uint32_t op, uint32_t cmd, int32_t rc, const std::string& payload) {
    const uint32_t head[4] = {op, cmd, static_cast<uint32_t>(payload.size()), static_cast<uint32_t>(rc)};
    return std::string(reinterpret_cast<const char*>(head), sizeof(head)) + payload;
}

std::string ErrorFrame(uint32_t op, uint32_t cmd, int error) {
    return BusFrame(op | 0x200U, cmd, -error, "");
}

namespace {

bool IsAsleep(const std::filesystem::path& task) {
    std::ifstream file(task / "stat");
    std::string line;
    std::getline(file, line);
    const size_t name = line.rfind(") ");
    return name == std::string::npos || line[name + 2] == 'S';
}

/// A thread that is about to allocate when the process forks leaves the child an allocator that nobody unlocks; the one
/// of the sanitizer is not made free in the child. So the threads of the bus come to rest first, if they ever do.
void LetOthersComeToRest() {
    constexpr int kLooks = 2000;
    const std::string self = std::to_string(::gettid());
    for (int look = 0; look < kLooks; ++look) {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        const bool isQuiet = std::all_of(begin(tasks), end(tasks), [&self](const auto& task) {
            return task.path().filename() == self || IsAsleep(task.path());
        });
        if (isQuiet) {
            return;
        }
        std::this_thread::yield();
    }
}

}  // namespace

std::string InChild(uid_t uid, const std::function<std::string()>& work) {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) {
        return "no pipe";
    }
    LetOthersComeToRest();
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isUser = uid == 0 || (::setresgid(uid, uid, uid) == 0 && ::setresuid(uid, uid, uid) == 0);
        const std::string answer = isUser ? work() : "no right to be another user";
        const ssize_t written = ::write(ends[1], answer.data(), answer.size());
        ::_exit(written == static_cast<ssize_t>(answer.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    const ProcMgr::UniqueFd reading(ends[0]);
    std::string answer;
    std::array<char, 512> part = {};
    ssize_t got = 0;
    while ((got = ::read(reading.Get(), part.data(), part.size())) > 0) {
        answer.append(part.data(), static_cast<size_t>(got));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? answer : "the child failed: " + answer;
}

BusFixture::BusFixture() {
    ::chmod(folder.Path().c_str(), 0755);
    ::setenv("PROCMGR_RUN_DIR", folder.Path().c_str(), 1);
}

int BusFixture::Register(const std::string& name) {
    const VEKServiceOps ops = service.Ops();
    return VEKRegisterService(name.c_str(), &ops, kServiceTimeoutMs);
}

int BusFixture::RegisterQueue(const std::string& name) {
    const VEKQueueOps ops = service.QueueOps();
    return VEKRegisterQueueService(name.c_str(), kServiceTimeoutMs, &ops);
}

RawSocket BusFixture::OpenRaw(const std::string& name) const {
    RawSocket socket = Connect(name);
    EXPECT_TRUE(socket.Send(BusFrame(1, 1, 0, "")));
    EXPECT_EQ(socket.Receive(), BusFrame(0x101, kServiceTimeoutMs, 0, ""));
    return socket;
}

}  // namespace VekTest
