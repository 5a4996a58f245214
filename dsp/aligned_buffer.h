// SPDX-License-Identifier: ISC
// Owned sample memory on a 128-byte boundary, allocated anew only when its size changes.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace quillworks {

/// Where the buffers' memory comes from; a host that keeps account of memory puts its own pair
/// here. `allocate` returns null on failure. A block goes back to the pair that it came from, so
/// that pairs may change at any time; each must live as long as a thread may be allocating.
struct BufferMemory {
    void* (*allocate)(std::size_t bytes) noexcept;
    void (*release)(void* memory) noexcept;
    /// The same filled with zeros: what is large and new from the system has them without being
    /// touched. Without it the zeros are written.
    void* (*allocateZeroed)(std::size_t bytes) noexcept = nullptr;

    /// The pair in force. [any thread]
    static const BufferMemory& service() noexcept { return *inForce(); }
    /// Puts another pair in force and returns the one before. [any thread]
    static const BufferMemory& exchangeService(const BufferMemory& memory) noexcept
    {
        return *inForce().exchange(&memory);
    }

private:
    static std::atomic<const BufferMemory*>& inForce() noexcept
    {
        static constexpr BufferMemory own{
            [](std::size_t bytes) noexcept { return std::malloc(bytes); },
            [](void* p) noexcept { std::free(p); },
            [](std::size_t bytes) noexcept { return std::calloc(1, bytes); }};
        static std::atomic<const BufferMemory*> memory{&own};
        return memory;
    }
};

/// Raw bytes. The boundary suits every vector width and keeps two buffers out of one pair of cache
/// lines. [main thread]
class AlignedBytes {
public:
    static constexpr std::size_t kAlignment = 128;

    AlignedBytes() = default;
    AlignedBytes(AlignedBytes&& other) noexcept { swap(other); }
    AlignedBytes& operator=(AlignedBytes&& other) noexcept
    {
        AlignedBytes(std::move(other)).swap(*this);
        return *this;
    }
    ~AlignedBytes() { clear(); }

    /// Does nothing if `bytes` is the present size; else frees the memory and, unless `bytes` is 0,
    /// allocates it anew, filled with zeros. Large memory costs nothing until it is written. False
    /// if that failed: the buffer is empty then.
    bool resize(std::size_t bytes) noexcept { return resize(bytes, true); }
    /// The same with whatever was in the memory before.
    bool resizeUncleared(std::size_t bytes) noexcept { return resize(bytes, false); }
    void clear() noexcept
    {
        if (block_) release_(block_);
        block_ = nullptr;
        data_ = nullptr;
        size_ = 0;
    }
    void swap(AlignedBytes& other) noexcept
    {
        std::swap(block_, other.block_);
        std::swap(release_, other.release_);
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
    }

    std::byte* data() noexcept { return data_; }
    const std::byte* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }

private:
    bool resize(std::size_t bytes, bool zeroed) noexcept
    {
        if (bytes == size_) return true;
        clear();
        if (bytes == 0) return true;
        if (bytes > std::numeric_limits<std::size_t>::max() - kAlignment) return false;
        const auto& memory = BufferMemory::service();
        const bool comesZeroed = zeroed && memory.allocateZeroed;
        void* const block =
            (comesZeroed ? memory.allocateZeroed : memory.allocate)(bytes + kAlignment);
        if (!block) return false;
        block_ = block;
        release_ = memory.release;
        const auto misfit = reinterpret_cast<std::uintptr_t>(block) % kAlignment;
        data_ = static_cast<std::byte*>(block) + (misfit ? kAlignment - misfit : 0);
        size_ = bytes;
        if (zeroed && !comesZeroed) std::memset(data_, 0, bytes);
        return true;
    }

    void* block_ = nullptr;
    void (*release_)(void*) noexcept = nullptr;  // of the service that gave the block
    std::byte* data_ = nullptr;
    std::size_t size_ = 0;
};

/// The same for elements of a plain type: a fixed-size array whose size is set outside `process`.
template <typename T> class AlignedBuffer {
    static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= AlignedBytes::kAlignment);

public:
    AlignedBuffer() = default;
    explicit AlignedBuffer(std::size_t count) noexcept { resize(count); }

    /// As `AlignedBytes::resize`, in elements.
    bool resize(std::size_t count) noexcept
    {
        if (fits(count)) return bytes_.resize(count * sizeof(T));
        bytes_.clear();
        return false;
    }
    /// The same, but throws std::bad_alloc.
    void require(std::size_t count)
    {
        if (!resize(count)) throw std::bad_alloc();
    }
    /// As `AlignedBytes::resizeUncleared`; throws std::bad_alloc.
    void requireUncleared(std::size_t count)
    {
        if (fits(count) && bytes_.resizeUncleared(count * sizeof(T))) return;
        bytes_.clear();
        throw std::bad_alloc();
    }
    void clear() noexcept { bytes_.clear(); }
    void fill(T value) noexcept
    {
        for (auto& x : *this) x = value;
    }

    std::size_t size() const noexcept { return bytes_.size() / sizeof(T); }
    bool empty() const noexcept { return bytes_.size() == 0; }
    T* data() noexcept { return reinterpret_cast<T*>(bytes_.data()); }
    const T* data() const noexcept { return reinterpret_cast<const T*>(bytes_.data()); }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + size(); }
    const T* begin() const noexcept { return data(); }
    const T* end() const noexcept { return data() + size(); }
    T& operator[](std::size_t i) noexcept { return data()[i]; }
    const T& operator[](std::size_t i) const noexcept { return data()[i]; }

private:
    static bool fits(std::size_t count)
    {
        return count <= std::numeric_limits<std::size_t>::max() / sizeof(T);
    }

    AlignedBytes bytes_;
};

}  // namespace quillworks
