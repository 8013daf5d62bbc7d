#pragma once

#include <unistd.h>

namespace DbusHelper
{

/// A file descriptor that is closed when it goes.
class Descriptor
{
  public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0)
        {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    /// Negative when there is none.
    [[nodiscard]] int Get() const { return descriptor_; }

  private:
    int descriptor_;
};

} // namespace DbusHelper
