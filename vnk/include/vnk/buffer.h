// SPDX-License-Identifier: ISC
// Receives bytes across the module boundary.
#pragma once

#include <cstddef>
#include <string>

namespace VNK {

/// Where an interface writes data of a length that only it knows.
class IByteSink {
public:
    /// Null is refused unless `bytes` is 0. Returns false when no more can be taken; the writer
    /// then gives up and reports failure.
    virtual bool write(const void* data, std::size_t bytes) noexcept = 0;

protected:
    ~IByteSink() = default;
};

/// Collects what is written.
class StringSink final : public IByteSink {
public:
    bool write(const void* data, std::size_t bytes) noexcept override
    {
        if (!data) return bytes == 0;
        try {
            text_.append(static_cast<const char*>(data), bytes);
            return true;
        } catch (...) {
            return false;
        }
    }
    const std::string& text() const noexcept { return text_; }

private:
    std::string text_;
};

}  // namespace VNK
