#include "tools/ssctl/graph_files.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace Ssctl {

namespace {

struct Closer {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, Closer>;

/// Returns 0 or an errno.
int WriteText(std::FILE* file, const std::string& text) {
    errno = 0;
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
    return isWritten ? 0 : errno;
}

/// Empty when the file was written.
std::string WriteFile(const std::string& name, const std::string& text) {
    const File file(std::fopen(name.c_str(), "we"));
    const int error = file ? WriteText(file.get(), text) : errno;
    return error == 0 ? "" : "'" + name + "' cannot be written: " + std::generic_category().message(error);
}

/// Starts 'dot' with the file as its standard input. Returns 0 or an errno.
int StartGraphviz(int input, const std::string& svgFile, pid_t& pid) {
    const std::string output = "-o" + svgFile;
    std::string program = "dot";
    std::string format = "-Tsvg";
    std::string target = output;
    const std::array<char*, 4> words = {program.data(), format.data(), target.data(), nullptr};
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return ENOMEM;
    }
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    const int error = posix_spawnp(&pid, program.c_str(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

int WaitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

struct Trouble {
    std::string problem;  ///< empty when there is none
    std::string advice;
};

/// The text goes through a file without a name, so that nobody has to write and wait at once.
Trouble WriteSvg(const std::string& svgFile, const std::string& text) {
    const File input(std::tmpfile());
    const int error = input ? WriteText(input.get(), text) : errno;
    if (error != 0) {
        return {"the graph cannot be handed to Graphviz: " + std::generic_category().message(error),
                "Is there room for temporary files?"};
    }
    std::rewind(input.get());
    pid_t pid = -1;
    const int started = StartGraphviz(fileno(input.get()), svgFile, pid);
    if (started != 0) {
        return {"Graphviz cannot be run: 'dot': " + std::generic_category().message(started),
                "Install the package 'graphviz', or write the text with -o and make the picture elsewhere with"
                " 'dot -Tsvg'."};
    }
    return WaitFor(pid) == 0 ? Trouble()
                             : Trouble{"Graphviz could not write '" + svgFile + "'", "It says why in the lines above."};
}

void Refuse(const Trouble& trouble, Outcome& outcome) {
    outcome.fault = Fault::FAILED;
    outcome.problem = trouble.problem;
    outcome.advice = trouble.advice;
}

}  // namespace

void WriteGraphFiles(const std::string& dotFile, const std::string& svgFile, Outcome& outcome) {
    const std::string text = outcome.text;
    if (!dotFile.empty() || !svgFile.empty()) {
        outcome.text.clear();
    }
    if (!dotFile.empty()) {
        const std::string problem = WriteFile(dotFile, text);
        if (!problem.empty()) {
            Refuse({problem, "Choose another file with -o."}, outcome);
            return;
        }
    }
    const Trouble trouble = svgFile.empty() ? Trouble() : WriteSvg(svgFile, text);
    if (!trouble.problem.empty()) {
        Refuse(trouble, outcome);
    }
}

}  // namespace Ssctl
