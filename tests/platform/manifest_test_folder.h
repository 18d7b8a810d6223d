/// A folder for the files of one test; it goes with all of them.
#ifndef PROCMGR_TESTS_PLATFORM_MANIFEST_TEST_FOLDER_H
#define PROCMGR_TESTS_PLATFORM_MANIFEST_TEST_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class ManifestTestFolder {
public:
    ManifestTestFolder() {
        std::string path = (std::filesystem::temp_directory_path() / "manifests-XXXXXX").string();
        path_ = mkdtemp(path.data());
    }
    ~ManifestTestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ManifestTestFolder(const ManifestTestFolder&) = delete;
    ManifestTestFolder& operator=(const ManifestTestFolder&) = delete;

    const std::string& Path() const { return path_; }

    /// Returns the path of the file. Creates the folders that its name holds.
    std::string Write(const std::string& name, const std::string& text) const {
        const std::string file = path_ + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

private:
    std::string path_;
};

#endif
