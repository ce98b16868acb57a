#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace test {

inline constexpr std::chrono::seconds deadline{20};

// A pipe that both ends of a test hold: a child writes into it, the test waits for what it wrote.
class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    ~Pipe() {
        closeReader();
        closeWriter();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reader() const { return ends_[0]; }
    int writer() const { return ends_[1]; }
    void closeReader() { closeEnd(ends_[0]); }
    void closeWriter() { closeEnd(ends_[1]); }

    void put(const std::string& text) const {
        if (write(writer(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw std::system_error(errno, std::generic_category(), "write");
    }

    // Whether there is something to read now.
    bool hasBytes() const { return isReadable(std::chrono::milliseconds(0)); }

    // The next byte; empty at the end of the stream or the deadline.
    std::string readByte() const {
        char byte = '\0';
        return isReadable(deadline) && read(reader(), &byte, 1) == 1 ? std::string(1, byte) : std::string();
    }

    // What was written up to and with `last`, or up to the end of the stream or the deadline.
    std::string readThrough(char last) const {
        std::string text;
        for (std::string byte = readByte(); !byte.empty(); byte = readByte()) {
            text += byte;
            if (byte[0] == last)
                break;
        }
        return text;
    }

    // What was written until all writers closed it.
    std::string readAll() {
        closeWriter();
        std::string text;
        for (std::string byte = readByte(); !byte.empty(); byte = readByte())
            text += byte;
        return text;
    }

private:
    static void closeEnd(int& end) {
        if (end >= 0)
            close(end);
        end = -1;
    }

    bool isReadable(std::chrono::milliseconds within) const {
        pollfd wanted = {reader(), POLLIN, 0};
        return poll(&wanted, 1, static_cast<int>(within.count())) == 1;
    }

    std::array<int, 2> ends_ = {-1, -1};
};

// Standard error goes into a pipe as long as it lives.
class CapturedStandardError {
public:
    CapturedStandardError() : kept_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        dup2(pipe_.writer(), STDERR_FILENO);
    }
    ~CapturedStandardError() { restore(); }
    CapturedStandardError(const CapturedStandardError&) = delete;
    CapturedStandardError& operator=(const CapturedStandardError&) = delete;

    // What the pipe holds now. More may follow.
    std::string textSoFar() const {
        std::string text;
        while (pipe_.hasBytes())
            text += pipe_.readByte();
        return text;
    }

    // Ends the capture. The text must fit in a pipe.
    std::string text() {
        restore();
        return pipe_.readAll();
    }

private:
    void restore() {
        if (kept_ >= 0) {
            dup2(kept_, STDERR_FILENO);
            close(kept_);
        }
        kept_ = -1;
    }

    Pipe pipe_;
    int kept_;
};

} // namespace test
