// SPDX-License-Identifier: ISC
// XML documents: a thin layer over pugixml, so that one library reads them all.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "vnk/export.h"

namespace VNK {

/// A handle to an element; false where there is none. Valid while its document lives. A null name
/// is that of no attribute, and nothing can be added under it; a null value is an empty text.
class VNK_API XmlElement {
public:
    XmlElement() = default;
    explicit operator bool() const noexcept { return node_ != nullptr; }

    const char* name() const noexcept;
    /// Value of an attribute, "" where it is missing.
    const char* attribute(const char* name) const noexcept;
    bool hasAttribute(const char* name) const noexcept;
    /// Names of the attributes in document order; null at the end.
    const char* firstAttribute() const noexcept;
    const char* nextAttribute(const char* name) const noexcept;
    /// The first child element, of a name or of any; the next one of the same parent.
    XmlElement child(const char* name = nullptr) const noexcept;
    XmlElement next(const char* name = nullptr) const noexcept;

    XmlElement addChild(const char* name) const;
    void setAttribute(const char* name, const char* value) const;

private:
    friend class XmlDocument;
    explicit XmlElement(void* node) : node_(node) {}
    void* node_ = nullptr;
};

class VNK_API XmlDocument {
public:
    XmlDocument();
    /// An empty document with a root element; without a root for a null name.
    explicit XmlDocument(const char* rootName);
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    /// UTF-8. False for what is not well-formed or has no root; document types and entities other
    /// than the five of XML are not expanded.
    bool parse(const void* data, std::size_t bytes);
    /// Why parse() said no, with the byte offset.
    const std::string& error() const noexcept;
    XmlElement root() const noexcept;
    /// The document as UTF-8 with declaration, two spaces per level.
    std::string text() const;

private:
    struct Implementation;
    std::unique_ptr<Implementation> impl_;
};

}  // namespace VNK
