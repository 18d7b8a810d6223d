/// Something that an application of a test waits for: a FIFO of which it reads a line, as in `read line < FIFO`.
#ifndef TESTS_INTEGRATION_GATE_H
#define TESTS_INTEGRATION_GATE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

class Gate {
public:
    /// Makes the FIFO, closed: whoever reads it waits.
    explicit Gate(std::string path) : path_(std::move(path)) {
        EXPECT_EQ(mkfifo(path_.c_str(), S_IRUSR | S_IWUSR), 0);
        // Open for both, so that neither side's opening waits for the other.
        descriptor_ = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_GE(descriptor_, 0);
    }
    ~Gate() { close(descriptor_); }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    /// Lets one reader pass, also one that comes later.
    void Open() const { EXPECT_EQ(write(descriptor_, "\n", 1), 1); }

    const std::string& Path() const { return path_; }

private:
    std::string path_;
    int descriptor_ = -1;
};

#endif
