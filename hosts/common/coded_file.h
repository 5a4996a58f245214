// SPDX-License-Identifier: ISC
// MP3 and Ogg files, which say of their length little that can be relied on: what of one is audio,
// whether it is whole, and a way to read it to its real end.
#pragma once

#include <cstdint>
#include <sndfile.h>
#include <string>
#include <vector>

namespace quillhost {

/// Part of an open file, for libsndfile to read without learning the length: with it, libsndfile
/// stops at a guess from the first frame's bit rate (MP3), or at what the last page says (Ogg).
class CodedFile {
public:
    /// `isOgg` tells Ogg from MP3. `fd` is the caller's and must outlive this.
    CodedFile(int fd, std::int64_t bytes, bool isOgg);

    /// Why the file cannot be taken for whole; empty if nothing speaks against it.
    const std::string& fault() const noexcept { return fault_; }
    /// What a person should know of the file.
    const std::vector<std::string>& remarks() const noexcept { return remarks_; }
    /// Null when libsndfile does not take it. At most once.
    SNDFILE* open(SF_INFO& info);

private:
    void readPages();
    void readTags();
    static sf_count_t length(void* self);
    static sf_count_t seek(sf_count_t offset, int whence, void* self);
    static sf_count_t read(void* data, sf_count_t bytes, void* self);
    static sf_count_t tell(void* self);

    int fd_;
    bool isOgg_;
    std::int64_t begin_ = 0, end_, at_ = 0;  // of the part, in the file; relative to begin_
    std::string fault_;
    std::vector<std::string> remarks_;
};

}  // namespace quillhost
