#include "tests/fake_platform/fake_log.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/include/platform_log.h"

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr int32_t kEventLevel = 16;

std::atomic<bool> g_isSyslogOn{false};

std::string LevelName(int32_t level) {
    static constexpr const char* kNames[] = {"DEBUG", "INFO", "WARN", "ERROR"};
    if (level == kEventLevel) {
        return "EVENT";
    }
    return level >= 0 && level < 4 ? kNames[level] : "LEVEL" + std::to_string(level);
}

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    static_cast<void>(vsnprintf(text.data(), text.size(), format, again));
    va_end(again);
    text.pop_back();
    return text;
}

// "[file.cpp:12]text" into its three parts; a text of another form stays whole.
FakeLog::Record SplitPrefix(const std::string& whole) {
    FakeLog::Record record;
    record.text = whole;
    const size_t colon = whole.find(':');
    const size_t end = whole.find(']');
    if (whole.empty() || whole[0] != '[' || end == std::string::npos || colon >= end) {
        return record;
    }
    record.file = whole.substr(1, colon - 1);
    record.line = std::atoi(whole.substr(colon + 1, end - colon - 1).c_str());
    record.text = whole.substr(end + 1);
    return record;
}

__attribute__((format(printf, 2, 0))) void AddSyslogLine(int priority, const char* format, va_list arguments) {
    FakeLog::Record record;
    record.sink = FakeLog::Sink::SYSLOG;
    record.level = priority;
    record.text = Format(format, arguments);
    FakeLog::Get().Add(std::move(record));
}

}  // namespace

std::string FakeLog::Record::ToString() const {
    const std::string name = sink == Sink::SYSLOG ? "SYSLOG" + std::to_string(level) : LevelName(level);
    return name + " " + text;
}

FakeLog& FakeLog::Get() {
    static FakeLog& log = *new FakeLog;
    return log;
}

std::vector<FakeLog::Record> FakeLog::Records() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

std::vector<std::string> FakeLog::Lines() const {
    return LinesWith("");
}

std::vector<std::string> FakeLog::LinesWith(const std::string& part) const {
    std::vector<std::string> lines;
    for (const Record& record : Records()) {
        const std::string line = record.ToString();
        if (line.find(part) != std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<FakeLog::Check> FakeLog::Checks() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return checks_;
}

void FakeLog::Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
    checks_.clear();
}

bool FakeLog::WaitForLine(const std::string& line) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_until(lock, std::chrono::system_clock::now() + kPatience, [this, &line] {
        return std::any_of(records_.begin(), records_.end(),
                           [&line](const Record& record) { return record.ToString() == line; });
    });
}

void FakeLog::SetThreshold(int32_t level) {
    const std::lock_guard<std::mutex> lock(mutex_);
    threshold_ = level;
}

void FakeLog::SetCheckResult(int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    isCheckResultFixed_ = true;
    checkResult_ = result;
}

void FakeLog::OnLine(std::function<void(const Record&)> hook) {
    const std::lock_guard<std::mutex> lock(mutex_);
    hook_ = std::move(hook);
}

int FakeLog::Answer(uint32_t moduleId, int32_t level) {
    const std::lock_guard<std::mutex> lock(mutex_);
    checks_.push_back({moduleId, level});
    if (isCheckResultFixed_) {
        return checkResult_;
    }
    return level >= threshold_ ? 1 : 0;
}

void FakeLog::Add(Record record) {
    std::function<void(const Record&)> hook;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        records_.push_back(record);
        hook = hook_;
    }
    changed_.notify_all();
    if (hook) {
        hook(record);
    }
}

extern "C" {

bool IsSyslogEnable(void) {
    return g_isSyslogOn.load();
}

void EnableSyslogState(void) {
    g_isSyslogOn.store(true);
}

int CheckLogLevel(uint32_t moduleId, int32_t level) {
    return FakeLog::Get().Answer(moduleId, level);
}

void KmonRecord(uint32_t moduleId, int32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FakeLog::Record record = SplitPrefix(Format(format, arguments));
    va_end(arguments);
    record.moduleId = moduleId;
    record.level = level;
    FakeLog::Get().Add(std::move(record));
}

// The C library's own functions, replaced at link time. The checked forms are what a fortified build calls.
void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AddSyslogLine(priority, format, arguments);
    va_end(arguments);
}

void vsyslog(int priority, const char* format, va_list arguments) {
    AddSyslogLine(priority, format, arguments);
}

__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char* format, ...);
__attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);

void __syslog_chk(int priority, int flag, const char* format, ...) {
    static_cast<void>(flag);
    va_list arguments;
    va_start(arguments, format);
    AddSyslogLine(priority, format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments) {
    static_cast<void>(flag);
    AddSyslogLine(priority, format, arguments);
}

}  // extern "C"
