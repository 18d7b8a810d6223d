// What an application writes to its standard output: step by step into the pipe, whose lines go to the log. The log,
// its rotated files included, must end with exactly those lines, long ones cut, and no file may pass its limit by more
// than one line.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "daemons/procmgrd/launch/output_log.h"
#include "fuzz/packets.h"
#include "fuzz/steps.h"
#include "fuzz/temp_folder.h"

using namespace ProcMgr;
using Fuzz::Require;

namespace {

constexpr size_t kLineMax = 16;
constexpr size_t kFileMax = 100;
constexpr unsigned kRotated = 2;

/// What the log says of this output.
std::string LinesOf(const std::string& output) {
    std::string lines;
    size_t length = 0;
    for (const char byte : output) {
        if (byte != '\n' && length == kLineMax) {
            lines += '\n';
            length = 0;
        }
        lines += byte;
        length = byte == '\n' ? 0 : length + 1;
    }
    return length == 0 ? lines : lines + '\n';
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The kept files, oldest first; they are removed.
std::string TakeFiles(const std::string& path) {
    std::string all;
    for (unsigned number = kRotated + 1; number > 0; --number) {
        const std::string name = path + (number == 1 ? "" : "." + std::to_string(number - 1));
        const std::string text = ReadFile(name);
        Require(text.size() <= kFileMax);
        all += text;
        (void)std::remove(name.c_str());
    }
    return all;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fuzz::TempFolder folder;
    OutputLogOptions options;
    options.directory = folder.Path();
    options.maxFileBytes = kFileMax;
    options.rotatedFiles = kRotated;
    options.maxLineBytes = kLineMax;
    options.now = [] { return std::chrono::steady_clock::time_point(); };
    const auto log = std::make_shared<OutputLog>("app", options);
    int error = 0;
    std::unique_ptr<OutputPipe> pipe = OutputPipe::Create(log, error);
    Require(pipe != nullptr);
    std::string output;
    for (const Fuzz::Step& step : Fuzz::StepsOf(data, size, 12)) {
        const std::string piece = step.bytes.substr(0, 4096);
        Require(::write(pipe->WriteFd(), piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()));
        Require(pipe->Drain() == OutputPipe::State::OPEN);
        output += piece;
    }
    pipe->CloseWriteEnd();
    Require(pipe->Drain() == OutputPipe::State::CLOSED && log->DroppedLines() == 0);
    const std::string lines = LinesOf(output);
    const std::string kept = TakeFiles(log->Path());
    Require(EndsWith(lines, kept) && (kept == lines || kept.size() > kFileMax));
    return 0;
}
