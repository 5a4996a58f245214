// SPDX-License-Identifier: ISC
// Skin documents, held against the effects as the module does when it loads.
#include "tests/fuzz/fuzz_target.h"
#include "vnk/skin.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    VNK::Skin skin;
    std::string reason;
    const bool isGood =
        VNK::readSkin(data, size, skin, reason) && VNK::checkSkin(skin, factory(), reason);
    if (!isGood) {
        require(!reason.empty(), "a refusal has a reason");
        require(reason.find('\n') == std::string::npos, "the reason is one line");
        return 0;
    }
    for (const auto& effect : skin.effects)
        for (const auto& view : effect.views) {
            require(skin.findView(view.name) == &view, "views are found by their names");
            for (const auto& box : view.boxes)
                require(box.x >= 0 && box.y >= 0 && box.x + box.w <= view.width &&
                            box.y + box.h <= view.height,
                        "boxes stand within their form");
        }
    return 0;
}
