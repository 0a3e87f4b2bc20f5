#include "StandardOutput.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <streambuf>

namespace TeliGrab {

namespace {

class DescriptorBuffer final : public std::streambuf {
public:
    DescriptorBuffer() { setp(buffer_, buffer_ + sizeof buffer_); }
    int error() const { return error_; }

protected:
    int overflow(int c) override {
        if (!drain()) return traits_type::eof();
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
        return c;
    }
    int sync() override { return drain() ? 0 : -1; }

private:
    // Writes out what is buffered. After a failure nothing more is written: later text
    // would arrive with a hole before it.
    bool drain() {
        for (const char* next = pbase(); error_ == 0 && next < pptr();) {
            const ssize_t written = ::write(STDOUT_FILENO, next, static_cast<std::size_t>(pptr() - next));
            if (written >= 0)
                next += written;
            else if (errno != EINTR)
                error_ = errno;
        }
        setp(buffer_, buffer_ + sizeof buffer_);
        return error_ == 0;
    }

    char buffer_[8192];
    int error_ = 0;
};

// Never destroyed: std::cout is flushed at exit, after static objects may be gone.
DescriptorBuffer& descriptorBuffer() {
    static auto* buffer = new DescriptorBuffer;
    return *buffer;
}

}  // namespace

void checkStandardOutput() {
    std::cout.flush();
    std::cout.rdbuf(&descriptorBuffer());
    // A terminal shows each line as it is written, as stdio would.
    if (isatty(STDOUT_FILENO)) std::cout.setf(std::ios::unitbuf);
}

std::string standardOutputFailure() {
    std::cout.flush();
    const int error = descriptorBuffer().error();
    return error == 0 ? std::string() : std::strerror(error);
}

}  // namespace TeliGrab
