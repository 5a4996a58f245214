// SPDX-License-Identifier: ISC
// Arrays through effects in series: a whole one, or block by block.
#pragma once

#include <atomic>
#include <memory>
#include <pybind11/pybind11.h>
#include <string>
#include <vector>

#include "arrays.h"
#include "bound_effect.h"
#include "chain.h"

namespace quillworks::python {

/// What a player is prepared for, as Python gives it.
struct PlayerSetup {
    double rate = 48000;  // Hz
    int channels = 2;
    bool isDouble = false;
    std::string layout,
        outputLayout;  // by name, empty: by the number of channels, what comes of it
    int sideChainChannels = 0;
    int block = 512;
    double tempo = 120, position = 0;  // quarter notes per minute, quarter notes
    bool isPlaying = true;             // the song
    bool allowMissing = false;         // files that effects name
};

/// Holds its effects, prepared, for as long as it lives or until close().
class Player {
public:
    /// UsageError for what cannot be, WorkError where an effect cannot run so or misses a file.
    Player(std::vector<std::shared_ptr<BoundEffect>> effects, const PlayerSetup& setup);
    ~Player() { letGo(); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Samples.
    std::int64_t latency();
    /// Samples that the output goes on beyond the input once the latency is taken out.
    std::int64_t tail();
    int outputs();

    /// The array and `tail` frames of silence (below 0: as many as the effects make of it), with
    /// the latency taken out unless `keepLatency`.
    py::array render(const py::array& input, const py::object& sideChain, std::int64_t tail,
                     bool keepLatency);
    /// The next block, as long as it is, with the latency left in.
    py::array play(const py::array& block, const py::object& sideChain);
    /// As newly prepared.
    void restart();
    /// Lets the effects go; not while another thread plays.
    void close();

private:
    class Playing;
    struct Input;

    quillhost::Chain& chain();
    void requireShape(const SoundArray& array) const;
    template <typename T> py::array run(const Input& input, std::int64_t tail, std::int64_t skip);
    void settle();
    void letGo() noexcept;

    std::vector<std::shared_ptr<BoundEffect>> effects_;
    PlayerSetup setup_;
    std::unique_ptr<quillhost::Chain> chain_;
    pid_t process_ = getpid();
    std::atomic<bool> isPlaying_ = false;
    std::uint64_t changes_ = 0;  // of all effects, as far as they are known
};

}  // namespace quillworks::python
