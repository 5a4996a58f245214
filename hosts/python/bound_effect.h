// SPDX-License-Identifier: ISC
// An effect that belongs to Python. All of it is called under the interpreter's lock.
#pragma once

#include <atomic>
#include <memory>
#include <pybind11/pybind11.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "effect_spec.h"

namespace quillworks::python {

namespace py = pybind11;

class BoundEffect {
public:
    /// `name` creates such an effect.
    BoundEffect(const quillhost::Effect& effect, std::string name);
    /// "NAME:key=value,...", or a preset file by its ending.
    static std::shared_ptr<BoundEffect> fromSpec(const std::string& spec);
    static std::vector<std::shared_ptr<BoundEffect>> fromChainSpec(const std::string& spec);
    static std::shared_ptr<BoundEffect> fromState(const std::string& name,
                                                  const std::string& state);

    /// In a process that has been forked off, a new one with the same settings: threads that the
    /// first one counts on have stayed behind.
    const quillhost::Effect& effect();

    const std::string& name() const noexcept { return name_; }

    /// Parameters that are stored or measured, then texts.
    std::vector<std::string> keys();
    /// In the parameter's unit: a truth value, a number, or the text of a list. KeyError where
    /// there is no such key.
    py::object get(const std::string& key);
    std::string getText(const std::string& key);
    void set(const std::string& key, const py::object& value);
    bool isMeasured(const std::string& key);

    py::dict meters();
    std::vector<std::string> presets();
    std::string presetName();
    void loadFactoryPreset(int index);
    void loadPreset(const std::string& path);
    void savePreset(const std::string& path, const std::string& title);
    py::bytes state();
    void loadState(const std::string& state);

    /// Who plays it, one at a time; the error says that it is in use.
    void claim(const void* player);
    void release(const void* player) noexcept;
    /// While a block is played on some thread no more than its parameters may be set.
    void setPlaying(bool playing) noexcept { isPlaying_ = playing; }
    /// Counts what has been set.
    std::uint64_t changes() const noexcept { return changes_; }

private:
    struct Place {
        int parameter = -1, text = -1;
    };
    Place find(const std::string& key);
    void requireQuiet();

    quillhost::Effect effect_;
    std::string name_;
    pid_t process_ = getpid();
    const void* player_ = nullptr;
    std::atomic<bool> isPlaying_ = false;
    std::uint64_t changes_ = 0;
};

}  // namespace quillworks::python
