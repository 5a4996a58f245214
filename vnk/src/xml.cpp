// SPDX-License-Identifier: ISC
#include "vnk/xml.h"

#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <string_view>

namespace VNK {
namespace {

pugi::xml_node nodeOf(void* node)
{
    return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node));
}

/// Steps over comments and text to an element of the name, or of any.
pugi::xml_node elementFrom(pugi::xml_node node, const char* name)
{
    while (node &&
           (node.type() != pugi::node_element || (name && std::string_view(node.name()) != name)))
        node = node.next_sibling();
    return node;
}

/// Finds an element that has an attribute twice. No XML, but the parser lets it pass; who walks
/// attributes by name would never arrive at the end.
class RepeatedAttribute : public pugi::xml_tree_walker {
public:
    std::string name;

private:
    bool for_each(pugi::xml_node& node) override
    {
        std::set<std::string_view> seen;
        for (const auto attribute : node.attributes())
            if (!seen.insert(attribute.name()).second) return name = attribute.name(), false;
        return true;
    }
};

}  // namespace

const char* XmlElement::name() const noexcept
{
    return nodeOf(node_).name();
}
const char* XmlElement::attribute(const char* name) const noexcept
{
    return name ? nodeOf(node_).attribute(name).value() : "";
}
bool XmlElement::hasAttribute(const char* name) const noexcept
{
    return name && !nodeOf(node_).attribute(name).empty();
}
const char* XmlElement::firstAttribute() const noexcept
{
    const auto first = nodeOf(node_).first_attribute();
    return first ? first.name() : nullptr;
}
const char* XmlElement::nextAttribute(const char* name) const noexcept
{
    if (!name) return nullptr;
    const auto next = nodeOf(node_).attribute(name).next_attribute();
    return next ? next.name() : nullptr;
}
XmlElement XmlElement::child(const char* name) const noexcept
{
    return XmlElement(elementFrom(nodeOf(node_).first_child(), name).internal_object());
}
XmlElement XmlElement::next(const char* name) const noexcept
{
    return XmlElement(elementFrom(nodeOf(node_).next_sibling(), name).internal_object());
}
XmlElement XmlElement::addChild(const char* name) const
{
    return name ? XmlElement(nodeOf(node_).append_child(name).internal_object()) : XmlElement();
}
void XmlElement::setAttribute(const char* name, const char* value) const
{
    if (!name) return;
    auto node = nodeOf(node_);
    auto attribute = node.attribute(name);
    if (!attribute) attribute = node.append_attribute(name);
    attribute.set_value(value ? value : "");
}

struct XmlDocument::Implementation {
    pugi::xml_document document;
    std::string error;
};

XmlDocument::XmlDocument() : impl_(std::make_unique<Implementation>()) {}
XmlDocument::XmlDocument(const char* rootName) : XmlDocument()
{
    if (rootName) impl_->document.append_child(rootName);
}
XmlDocument::~XmlDocument() = default;

bool XmlDocument::parse(const void* data, std::size_t bytes)
{
    const auto result =
        impl_->document.load_buffer(data, bytes, pugi::parse_default, pugi::encoding_utf8);
    impl_->error.clear();
    if (!result)
        impl_->error =
            std::string(result.description()) + " at byte " + std::to_string(result.offset);
    else if (!root())
        impl_->error = "no root element";
    else if (RepeatedAttribute repeated; !impl_->document.traverse(repeated))
        impl_->error = "the attribute \"" + repeated.name + "\" stands twice in an element";
    return impl_->error.empty();
}

const std::string& XmlDocument::error() const noexcept
{
    return impl_->error;
}

XmlElement XmlDocument::root() const noexcept
{
    return XmlElement(elementFrom(impl_->document.first_child(), nullptr).internal_object());
}

std::string XmlDocument::text() const
{
    std::ostringstream out;
    impl_->document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

}  // namespace VNK
