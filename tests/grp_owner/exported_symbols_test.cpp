#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

/// The names that the shared library offers, without their addresses.
std::set<std::string> ExportedNames() {
    const auto close = [](FILE* pipe) { pclose(pipe); };
    const std::unique_ptr<FILE, decltype(close)> pipe(popen("nm -D --defined-only -C " SHARED_LIBRARY, "r"), close);
    std::set<std::string> names;
    char line[1024];
    while (fgets(line, sizeof(line), pipe.get()) != nullptr) {
        const std::string text(line);
        const size_t name = text.find(' ', text.find(' ') + 1) + 1;
        names.insert(text.substr(name, text.size() - name - 1));
    }
    return names;
}

}  // namespace

TEST(SharedLibrary, ExportsTheTwoPublicClassesAndNothingElse) {
    EXPECT_THAT(ExportedNames(),
                testing::UnorderedElementsAre(
                    "ProcMgr::ProcMgrGrpOwner::GetInstance()", "ProcMgr::ProcMgrGrpOwner::~ProcMgrGrpOwner()",
                    "vtable for ProcMgr::ProcMgrGrpOwner", "typeinfo for ProcMgr::ProcMgrGrpOwner",
                    "typeinfo name for ProcMgr::ProcMgrGrpOwner", "SsToOwnerServer::GetInstance()",
                    "SsToOwnerServer::~SsToOwnerServer()", "vtable for SsToOwnerServer", "typeinfo for SsToOwnerServer",
                    "typeinfo name for SsToOwnerServer"));
}
