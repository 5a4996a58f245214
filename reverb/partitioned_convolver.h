// SPDX-License-Identifier: ISC
// Convolution with long responses, without latency and at nearly the same cost in every call.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "dsp/planar_spectrum.h"

namespace quillworks {

/// A way through the convolver: an input, filtered with a response, adds to an output.
struct ConvolverPath {
    int input, output, response;
};

/// Partitioned convolution (Gardner 1995; Wefers 2015) of several inputs to several outputs. The
/// first taps are summed directly, all others by overlap-save in layers of growing blocks. What a
/// layer owes for a block is a list of small pieces of work, spread evenly over the time until the
/// next block is there: nothing waits for another thread, and no call is much dearer than another.
template <typename T> class PartitionedConvolver {
public:
    static constexpr int kTick = 64;  // frames; of the smallest block, and taps summed directly
    /// Responses longer than this have a fourth layer.
    static constexpr int kLongResponse = 147456;

    /// All responses have `length` taps, at least 1. May throw std::bad_alloc; null if
    /// `isCancelled` has become true. [any thread but audio]
    static std::unique_ptr<PartitionedConvolver> make(int inputs, int outputs,
                                                      std::vector<ConvolverPath> paths,
                                                      std::span<const float* const> responses,
                                                      int length,
                                                      const std::function<bool()>& isCancelled);

    int inputs() const noexcept { return inputs_; }
    int outputs() const noexcept { return outputs_; }
    int length() const noexcept { return length_; }
    /// As if silence had come for ever. [audio thread]
    void reset() noexcept;
    /// Any number of frames, which must be finite; the outputs may be the inputs. The same bits
    /// however the signal is divided into calls. [audio thread]
    void process(const T* const* in, T* const* out, int frames) noexcept;

private:
    /// Partitions of one response in a layer that are not silent, and their spectra.
    struct Spectra {
        int first = 0, last = 0;
        AlignedBuffer<T> values;  // group by group of bins, in these all partitions
    };
    /// A piece of work of about the same cost as any other.
    struct Unit {
        enum Kind { Forward, Gather, Product, Inverse } kind;
        int index;          // input, path or output
        int step;           // of a transform; else the first group
        int groups = 0;     // of a product, or of what is gathered
        bool adds = false;  // likewise
        double cost = 0;    // of it and all units before
    };
    /// Overlap-save with blocks of P frames and partitions of P taps.
    struct Layer {
        Layer(int points, int firstTap, int lastTap);

        PlanarTransform<T> transform;
        int firstTap, partitions;
        int ticks;                     // of a block
        int slots;                     // blocks that are remembered
        std::vector<Spectra> spectra;  // of each response
        AlignedBuffer<T> past;         // spectra of each input, as Spectra::values
        AlignedBuffer<T> blocks;       // of each input: three, one of which is being filled
        AlignedBuffer<T> results;      // of each output: one that plays, one that is being made
        AlignedBuffer<T> scratch;
        std::vector<Unit> units;
        std::vector<bool> feeds;  // each output
        int newest = 0, valid = 0;
        int filling = 0;  // of the three blocks
        int filled = 0;   // ticks of it
        int playing = 0;  // of the two results
        bool isPlaying = false, isMade = false;
        std::size_t unit = 0;
    };

    PartitionedConvolver() = default;
    bool build(std::span<const float* const> responses, const std::function<bool()>& isCancelled);
    bool transformResponse(Layer& layer, const float* response, Spectra& spectra,
                           const std::function<bool()>& isCancelled);
    void listUnits(Layer& layer);
    void endTick() noexcept;
    void fill(Layer& layer) noexcept;
    void work(Layer& layer) noexcept;
    void run(Layer& layer, const Unit& unit) noexcept;
    void runProduct(Layer& layer, const Unit& unit) noexcept;
    void play(const Layer& layer) noexcept;

    T* history(int input) noexcept { return history_.data() + input * kHistory; }
    T* tail(int output) noexcept { return tail_.data() + output * kTick; }

    /// The tick before and the open one, and what a vector reads too far.
    static constexpr int kHistory = 2 * kTick + 16;

    struct Head {
        int first = 0, last = 0;
        T taps[kTick] = {};
    };

    int inputs_ = 0, outputs_ = 0, length_ = 0;
    int position_ = 0;  // in the open tick
    std::vector<ConvolverPath> paths_;
    std::vector<Head> heads_;  // of each response
    std::vector<std::unique_ptr<Layer>> layers_;
    AlignedBuffer<T> history_, tail_;
};

extern template class PartitionedConvolver<float>;
extern template class PartitionedConvolver<double>;

}  // namespace quillworks
