// SPDX-License-Identifier: ISC
// Controller pages, walked as a host does, and with them every XML document: what is read and
// written again is the same.
#include "tests/fuzz/fuzz_target.h"
#include "vnk/xml.h"

namespace {

using namespace quillworks::fuzz;
using VNK::XmlElement;

bool isSame(XmlElement a, XmlElement b)
{
    if (std::string_view(a.name()) != b.name()) return false;
    const char *x = a.firstAttribute(), *y = b.firstAttribute();
    for (; x && y; x = a.nextAttribute(x), y = b.nextAttribute(y))
        if (std::string_view(x) != y || std::string_view(a.attribute(x)) != b.attribute(y))
            return false;
    if (x || y) return false;
    auto c = a.child(), d = b.child();
    for (; c && d; c = c.next(), d = d.next())
        if (!isSame(c, d)) return false;
    return !c && !d;
}

void walkPages(XmlElement root, const VNK::HostedEffect& effect)
{
    for (auto group = root.child("Group"); group; group = group.next("Group"))
        for (auto page = group.child("Page"); page; page = page.next("Page"))
            for (auto section = page.child("GenericSection"); section;
                 section = section.next("GenericSection"))
                for (auto slot = section.child("Slot"); slot; slot = slot.next("Slot"))
                    require(effect.findParameter(slot.attribute("param")) <
                                effect.countParameters(),
                            "an index is one of the list");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    VNK::XmlDocument document, again;
    if (!document.parse(data, size)) {
        require(!document.error().empty(), "a refusal has a reason");
        return 0;
    }
    walkPages(document.root(), effectOf({}));
    const auto text = document.text();
    require(again.parse(text.data(), text.size()), "what is written can be read");
    require(isSame(document.root(), again.root()), "what is written reads the same");
    return 0;
}
