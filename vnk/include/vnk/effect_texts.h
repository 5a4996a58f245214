// SPDX-License-Identifier: ISC
// Interface of an effect: settings that are texts, such as the name of a file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnk/object.h"

namespace VNK {

/// What a text stands for. A file or folder is named by its absolute path, or, where it is one that
/// comes with the effect, by kFactoryPrefix and its name.
enum class TextKind : std::int32_t { Plain = 0, File = 1, Folder = 2 };

inline constexpr const char* kFactoryPrefix = "factory:";

/// Longest text in bytes, as the longest path of the system; the zero at the end is not counted.
inline constexpr std::size_t kLongestText = 4095;

/// Strings are UTF-8 and live as long as the effect does.
struct TextInfo {
    const char* key = "";  // "irfile": stored in songs and presets
    const char* title = "";
    const char* help = "";  // one sentence
    const char* defaultText = "";
    /// Of files, the class attribute "fileTypes" says what a browser lists ("wav;flac").
    TextKind kind = TextKind::Plain;
};

/// Texts are kept in states and presets beside the parameters, so that whatever undoes a state
/// undoes them. What a text sets off on another thread (a file is read) is under way while the
/// attribute "busy" is 1. Where the effect itself changes one the listener gets "textChanged".
class IEffectTexts : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D13}");

    virtual std::int32_t countTexts() const noexcept = 0;
    virtual bool getTextInfo(std::int32_t index, TextInfo& info) const noexcept = 0;
    /// Index of a key, or -1.
    virtual std::int32_t findText(const char* key) const noexcept = 0;
    /// The present text, which lives until it changes; null beyond the end.
    virtual const char* getText(std::int32_t index) const noexcept = 0;
    /// False, and nothing changed, for what the effect does not take; textRefusal() says why. A
    /// text that it has already is set anew: a file is read again.
    virtual bool setText(std::int32_t index, const char* text) noexcept = 0;
    /// Why setText() said no last, in one line that lives until the next call.
    virtual const char* textRefusal() const noexcept = 0;
    /// Counts every change, by whomever. [any thread]
    virtual std::uint32_t textChangeCount(std::int32_t index) const noexcept = 0;
    /// What is wrong with what the text names (there is no such file, ...), in one line that lives
    /// until the next call; empty where all is well. Settled while the effect is not busy.
    virtual const char* textProblem(std::int32_t index) const noexcept = 0;
    /// The folder that the next preset or state is read from or goes into, absolute: files within
    /// are found again when it moves as a whole. Null or empty where there is none.
    virtual void setBaseFolder(const char* folder) noexcept = 0;

protected:
    ~IEffectTexts() = default;
};

}  // namespace VNK
