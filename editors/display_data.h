// SPDX-License-Identifier: ISC
// What an effect's display shows, taken off the effect as a tree.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vnk/effect_displays.h"

namespace quillworks::editors {

/// An object, list or value. Missing members are null nodes, so that paths need no questions:
/// `data["bands"][0]["gain"].number()`.
class DisplayNode {
public:
    /// Not-a-number where it is no number.
    double number() const noexcept;
    bool flag() const noexcept { return kind_ == Kind::Flag && number_ != 0; }
    const std::string& text() const noexcept { return text_; }
    /// A list of nothing but numbers.
    const std::vector<double>& numbers() const noexcept { return numbers_; }
    /// Members of an object, or what a list holds beside `numbers()`.
    std::size_t size() const noexcept { return size_; }
    const DisplayNode& operator[](std::size_t index) const noexcept;
    const DisplayNode& operator[](std::string_view key) const noexcept;
    const std::string& key() const noexcept { return key_; }

private:
    friend class DisplayReader;
    enum class Kind { Null, Object, List, Number, Numbers, Text, Flag };
    void become(Kind kind, const char* key);
    DisplayNode& add();

    Kind kind_ = Kind::Null;
    std::string key_, text_;
    double number_ = 0;
    std::vector<double> numbers_;
    std::vector<DisplayNode> children_;  // those beyond size_ keep their memory for the next time
    std::size_t size_ = 0;
};

/// Fills a tree. What it was given before is written over in place.
class DisplayReader final : public VNK::IDisplaySink {
public:
    explicit DisplayReader(DisplayNode& root);

    void beginObject(const char* key) override;
    void beginList(const char* key) override;
    void end() override;
    void number(const char* key, double value) override;
    void numbers(const char* key, const float* values, std::int64_t count) override;
    void numbers(const char* key, const double* values, std::int64_t count) override;
    void text(const char* key, const char* text) override;
    void flag(const char* key, bool value) override;

private:
    DisplayNode& next(DisplayNode::Kind kind, const char* key);

    std::vector<DisplayNode*> open_;
};

}  // namespace quillworks::editors
