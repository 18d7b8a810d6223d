#include "tests/contract/written_lines.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

// A folder that is there as long as the test.
class LogFolder {
public:
    LogFolder() {
        std::string path = (fs::temp_directory_path() / "procmgr-log-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no folder for the log");
        }
        path_ = path;
    }
    ~LogFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    std::string File() const { return (path_ / "log").string(); }

private:
    fs::path path_;
};

LogFolder& TheFolder() {
    static LogFolder folder;
    return folder;
}

}  // namespace

void WatchLog() {
    static_cast<void>(setenv("PROCMGR_LOG_FILE", TheFolder().File().c_str(), 1));
    static_cast<void>(setenv("PROCMGR_LOG_LEVEL", "debug", 1));
}

std::vector<std::string> WrittenLines() {
    std::vector<std::string> lines;
    std::ifstream file(TheFolder().File());
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}
