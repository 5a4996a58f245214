// SPDX-License-Identifier: ISC
// Fails the test when code that runs on the audio thread allocates, locks or calls the system.
#pragma once

namespace quillworks::test {

/// While an instance lives, the calls of this thread that have no place on an audio thread are
/// counted by the interposed functions of audio_thread_guard.cpp; its end reports the first one.
class AudioThreadGuard {
public:
    AudioThreadGuard() noexcept;
    ~AudioThreadGuard();
    AudioThreadGuard(const AudioThreadGuard&) = delete;
    AudioThreadGuard& operator=(const AudioThreadGuard&) = delete;

    /// Name of the first such call since the guard began, or null. Clears it.
    static const char* takeViolation() noexcept;
};

}  // namespace quillworks::test
