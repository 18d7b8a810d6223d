#include "tests/contract/written_lines.h"
#include "tests/fake_platform/fake_log.h"

void WatchLog() {
}

std::vector<std::string> WrittenLines() {
    return FakeLog::Get().Lines();
}
