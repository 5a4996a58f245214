// SPDX-License-Identifier: ISC
#include "editors/display_data.h"

#include <limits>

namespace quillworks::editors {
namespace {

const DisplayNode kNothing;

}  // namespace

double DisplayNode::number() const noexcept
{
    return kind_ == Kind::Number ? number_ : std::numeric_limits<double>::quiet_NaN();
}

const DisplayNode& DisplayNode::operator[](std::size_t index) const noexcept
{
    return index < size_ ? children_[index] : kNothing;
}

const DisplayNode& DisplayNode::operator[](std::string_view key) const noexcept
{
    for (std::size_t i = 0; i < size_; ++i)
        if (children_[i].key_ == key) return children_[i];
    return kNothing;
}

void DisplayNode::become(Kind kind, const char* key)
{
    kind_ = kind;
    key_ = key ? key : "";
    text_.clear();
    numbers_.clear();
    size_ = 0;
}

DisplayNode& DisplayNode::add()
{
    if (size_ == children_.size()) children_.emplace_back();
    return children_[size_++];
}

DisplayReader::DisplayReader(DisplayNode& root)
{
    root.become(DisplayNode::Kind::Object, "");
    open_.push_back(&root);
}

DisplayNode& DisplayReader::next(DisplayNode::Kind kind, const char* key)
{
    auto& node = open_.back()->add();
    node.become(kind, key);
    return node;
}

// A node's children may move when it gets another, but only after the open ones below it have
// ended.
void DisplayReader::beginObject(const char* key)
{
    open_.push_back(&next(DisplayNode::Kind::Object, key));
}

void DisplayReader::beginList(const char* key)
{
    open_.push_back(&next(DisplayNode::Kind::List, key));
}

void DisplayReader::end()
{
    if (open_.size() > 1) open_.pop_back();
}

void DisplayReader::number(const char* key, double value)
{
    // Numbers one by one in a list are a list of numbers.
    if (auto& list = *open_.back(); list.kind_ == DisplayNode::Kind::List)
        return list.numbers_.push_back(value);
    next(DisplayNode::Kind::Number, key).number_ = value;
}

void DisplayReader::numbers(const char* key, const float* values, std::int64_t count)
{
    next(DisplayNode::Kind::Numbers, key).numbers_.assign(values, values + count);
}

void DisplayReader::numbers(const char* key, const double* values, std::int64_t count)
{
    next(DisplayNode::Kind::Numbers, key).numbers_.assign(values, values + count);
}

void DisplayReader::text(const char* key, const char* text)
{
    next(DisplayNode::Kind::Text, key).text_ = text ? text : "";
}

void DisplayReader::flag(const char* key, bool value)
{
    next(DisplayNode::Kind::Flag, key).number_ = value;
}

}  // namespace quillworks::editors
