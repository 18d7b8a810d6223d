#include "platform/posix/manifest/yaml_node.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <sstream>
#include <utility>

#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

/// Leaves the YAML library from inside an event.
class Refused : public std::exception {
public:
    explicit Refused(YamlProblem problem) : problem_(std::move(problem)) {}
    const YamlProblem& Problem() const { return problem_; }

private:
    YamlProblem problem_;
};

YamlProblem ProblemAt(const YAML::Mark& mark, const std::string& text) {
    return mark.is_null() ? YamlProblem{0, 0, text} : YamlProblem{mark.line + 1, mark.column + 1, text};
}

/// Builds the tree. The YAML library recurses once for each level and tells us before it does, so that the depth check
/// bounds its stack too.
class TreeBuilder : public YAML::EventHandler {
public:
    explicit TreeBuilder(YamlNode& root) : root_(root) {}

    void OnDocumentStart(const YAML::Mark& mark) override {
        // The library delivers documents for ever when a text starts with a token that no document can start with.
        if (++documents_ > 1) {
            throw Refused(
                ProblemAt(mark, "more follows after the end of the document; write one map or one list of maps"));
        }
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t) override { Add(NodeAt(mark, YamlNode::Kind::NOTHING)); }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override { Add(NodeAt(mark, YamlNode::Kind::ALIAS)); }
    void OnScalar(const YAML::Mark& mark, const std::string&, YAML::anchor_t, const std::string& value) override {
        YamlNode node = NodeAt(mark, YamlNode::Kind::TEXT);
        node.text = value;
        Add(std::move(node));
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t,
                         YAML::EmitterStyle::value) override {
        Open(mark, YamlNode::Kind::LIST);
    }
    void OnSequenceEnd() override { Close(); }
    void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {
        Open(mark, YamlNode::Kind::MAP);
    }
    void OnMapEnd() override { Close(); }

private:
    static YamlNode NodeAt(const YAML::Mark& mark, YamlNode::Kind kind) {
        YamlNode node;
        node.kind = kind;
        node.line = mark.line + 1;
        node.column = mark.column + 1;
        return node;
    }

    void Open(const YAML::Mark& mark, YamlNode::Kind kind) {
        if (open_.size() >= kMaxYamlDepth) {
            throw Refused(ProblemAt(mark, "lists and maps stand more than 16 levels deep; flatten them"));
        }
        open_.push_back(NodeAt(mark, kind));
    }

    void Close() {
        YamlNode node = std::move(open_.back());
        open_.pop_back();
        Add(std::move(node));
    }

    void Add(YamlNode node) {
        if (open_.empty()) {
            root_ = std::move(node);
            return;
        }
        YamlNode& parent = open_.back();
        const bool isKey = parent.kind == YamlNode::Kind::MAP && parent.keys.size() == parent.items.size();
        if (!isKey && node.kind == YamlNode::Kind::NOTHING && parent.kind == YamlNode::Kind::MAP) {
            // The library sees that a value is missing only some lines further down.
            node.line = parent.keys.back().line;
            node.column = parent.keys.back().column;
        }
        (isKey ? parent.keys : parent.items).push_back(std::move(node));
    }

    YamlNode& root_;
    std::vector<YamlNode> open_;
    int documents_ = 0;
};

/// The YAML library stops silently at some control characters and guesses other encodings from them.
bool HasForeignByte(const std::string& text, YamlProblem& problem) {
    int line = 1;
    int column = 1;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x20 && character != '\t' && character != '\n' && character != '\r') || byte == 0x7f) {
            problem = {line, column, "a control character stands here; write UTF-8 text without it"};
            return true;
        }
        column = character == '\n' ? 1 : column + 1;
        line += character == '\n' ? 1 : 0;
    }
    return false;
}

/// A file descriptor that is closed with its scope.
class File {
public:
    explicit File(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~File() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int Fd() const { return fd_; }

private:
    int fd_;
};

/// Returns 0 or an errno; reads one byte more than the limit, so that the caller sees a file that is too long.
int ReadUpTo(int fd, size_t limit, std::string& text) {
    char piece[16 * 1024];
    while (text.size() < limit) {
        const ssize_t got = read(fd, piece, std::min(sizeof(piece), limit - text.size()));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return errno;
        }
        if (got == 0) {
            break;
        }
        text.append(piece, static_cast<size_t>(got));
    }
    return 0;
}

bool ReadTextFile(const std::string& path, std::string& text, YamlProblem& problem) {
    const File file(path);
    struct stat status {};
    if (file.Fd() < 0 || fstat(file.Fd(), &status) != 0) {
        problem = {0, 0, CannotRead(errno)};
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = {0, 0, "is not a regular file; remove or rename it"};
        return false;
    }
    const int error = ReadUpTo(file.Fd(), kMaxYamlBytes + 1, text);
    if (error != 0) {
        problem = {0, 0, CannotRead(error)};
        return false;
    }
    if (text.size() > kMaxYamlBytes) {
        problem = {0, 0, "is longer than 1 MiB; split it into several files"};
        return false;
    }
    return true;
}

}  // namespace

bool ReadYaml(const std::string& text, YamlNode& root, YamlProblem& problem) {
    if (HasForeignByte(text, problem)) {
        return false;
    }
    YamlNode read;
    try {
        TreeBuilder builder(read);
        std::istringstream stream(text);
        YAML::Parser parser(stream);
        while (parser.HandleNextDocument(builder)) {
        }
    } catch (const Refused& refused) {
        problem = refused.Problem();
        return false;
    } catch (const YAML::Exception& exception) {
        problem = ProblemAt(exception.mark, "is not YAML: " + exception.msg + "; correct the syntax here");
        return false;
    } catch (const std::exception& exception) {
        problem = {0, 0, "cannot be read as YAML: " + Quote(exception.what()) + "; correct or shorten it"};
        return false;
    }
    root = std::move(read);
    return true;
}

bool ReadYamlFile(const std::string& path, YamlNode& root, YamlProblem& problem) {
    std::string text;
    return ReadTextFile(path, text, problem) && ReadYaml(text, root, problem);
}

std::string Describe(const YamlNode& node) {
    switch (node.kind) {
        case YamlNode::Kind::TEXT:
            return "the text " + Quote(node.text);
        case YamlNode::Kind::LIST:
            return "a list";
        case YamlNode::Kind::MAP:
            return "a map";
        case YamlNode::Kind::ALIAS:
            return "an alias";
        case YamlNode::Kind::NOTHING:
            break;
    }
    return "nothing";
}

}  // namespace ProcMgr
