#pragma once

#include <unistd.h>

#include <utility>

namespace velto::files {

/// Owns one file descriptor; -1 is none.
class Descriptor {
  public:
    Descriptor() = default;

    explicit Descriptor(int descriptor)
        : descriptor_(descriptor) {}

    Descriptor(Descriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }

    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return descriptor_; }

    [[nodiscard]] explicit operator bool() const { return descriptor_ >= 0; }

    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

    void reset() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }

  private:
    int descriptor_ = -1;
};

} // namespace velto::files
