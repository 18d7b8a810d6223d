/// A folder of its own for the log of one test, and what was written to it.
#ifndef PROCMGR_TESTS_PLATFORM_LOG_TEST_KIT_H
#define PROCMGR_TESTS_PLATFORM_LOG_TEST_KIT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ProcMgr::Posix {

inline std::vector<std::string> ReadLines(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The line without its time: "level name[pid] text", with the pid of this process as "[pid]".
inline std::string WithoutTime(const std::string& line) {
    const std::string pid = "[" + std::to_string(getpid()) + "]";
    std::string rest = line.substr(std::string("2000-01-01 00:00:00.000 ").size());
    const size_t at = rest.find(pid);
    return at == std::string::npos ? rest : rest.replace(at, pid.size(), "[pid]");
}

class LogFolder {
public:
    /// Sends the log of this process to a file in a new folder, under the process name "tester".
    LogFolder() {
        char name[] = "/tmp/procmgr-log-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        path_ = name;
        setenv("PROC_NAME", "tester", 1);
        setenv("PROCMGR_LOG_FILE", File().c_str(), 1);
        for (const char* variable : {"PROCMGR_LOG_LEVEL", "PROCMGR_LOG_FILE_SIZE", "PROCMGR_LOG_FILES"}) {
            unsetenv(variable);
        }
    }
    ~LogFolder() { std::filesystem::remove_all(path_); }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    std::filesystem::path File() const { return path_ / "test.log"; }
    const std::filesystem::path& Path() const { return path_; }

    /// What the log holds, in the form of WithoutTime.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (const std::string& line : ReadLines(File())) {
            lines.push_back(WithoutTime(line));
        }
        return lines;
    }

private:
    std::filesystem::path path_;
};

}  // namespace ProcMgr::Posix

#endif
