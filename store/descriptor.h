#pragma once

#include <utility>

#include <unistd.h>

namespace store {

// Closes the descriptor that it holds.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    int get() const { return descriptor_; }
    // It is the caller's from now on.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

} // namespace store
