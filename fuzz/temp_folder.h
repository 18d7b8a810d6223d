/// A folder for targets whose reader stands behind a socket or a file.
#ifndef PROCMGR_FUZZ_TEMP_FOLDER_H
#define PROCMGR_FUZZ_TEMP_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "fuzz/fuzz_input.h"

namespace Fuzz {

/// Made once for each process and removed when it ends.
class TempFolder {
public:
    TempFolder() : path_((std::filesystem::temp_directory_path() / "procmgr-fuzz-XXXXXX").string()) {
        Require(::mkdtemp(path_.data()) != nullptr);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

}  // namespace Fuzz

#endif
