#include "tests/integration/served_group.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace {

std::string ProcessText(pid_t pid, const std::string& what) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/" + what, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
}

}  // namespace

std::string ServedGroup::StateOf(const std::string& name) const {
    return Document({"state", name}).at("applications").at(0).at("state");
}

pid_t ServedGroup::PidNow(const std::string& name) const {
    const nlohmann::json pid = Document({"state", name}).at("applications").at(0).at("pid");
    return pid.is_number() ? pid.get<pid_t>() : 0;
}

std::string ServedGroup::CommandLineOf(pid_t pid) {
    return ProcessText(pid, "cmdline");
}

std::string ServedGroup::EnvironmentOf(pid_t pid) {
    return ProcessText(pid, "environ");
}

std::string ServedGroup::Deaf(const Gate& never) {
    return "bin_path: /bin/sh, arguments: [-c, \"trap '' TERM; echo deaf; read line < " + never.Path() + "\"]";
}

std::string ServedGroup::ReadyBehind(const Gate& gate) {
    return "bin_path: /bin/sh, is_reporting: true, arguments: [-c, \"read line < " + gate.Path() +
           "; exec $APP --ready-after 0\"]";
}

std::unique_ptr<ChildProcess> ServedGroup::Begin(std::vector<std::string> words) const {
    words.insert(words.begin(), Program());
    return std::make_unique<ChildProcess>(words, environment_);
}

int ServedGroup::CountOf(const std::string& event, const std::string& application) const {
    std::string line = event;
    line.resize(std::max<size_t>(line.size(), 20), ' ');
    line += ' ' + application + ' ';
    int count = 0;
    for (size_t at = owner_->Output().find(line); at != std::string::npos; at = owner_->Output().find(line, at + 1)) {
        ++count;
    }
    return count;
}

void ServedGroup::ExpectRun(const SsctlResult& run, int exitCode, const std::string& output) const {
    EXPECT_EQ(run.exitCode, exitCode) << run.complaint;
    EXPECT_EQ(run.output, output);
}
