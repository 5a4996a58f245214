// SPDX-License-Identifier: ISC
// Writing Turtle: texts, numbers, and statements about one subject.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillworks::lv2::turtle {

/// In quotation marks, with what Turtle reserves escaped.
std::string text(std::string_view s);
/// A decimal number that reading gives back bit by bit; whole ones with ".0".
std::string number(float value);
std::string integer(int value);
/// In angle brackets.
std::string iri(std::string_view uri);

/// Statements that share a subject; `brackets` for one without a name.
class Node {
public:
    Node& add(std::string_view predicate, std::string_view object)
    {
        statements_.push_back(std::string(predicate) + " " + std::string(object));
        return *this;
    }
    std::string of(std::string_view subject) const;
    std::string inBrackets(int indent) const;

private:
    std::string joined(const std::string& indent) const;
    std::vector<std::string> statements_;
};

/// "a , b , c".
std::string list(const std::vector<std::string>& items, std::string_view separator = " , ");

}  // namespace quillworks::lv2::turtle
