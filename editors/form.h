// SPDX-License-Identifier: ISC
// Makes the controls of a form: from the skin's boxes, or from the parameters alone.
#pragma once

#include "editors/controls/header.h"
#include "vnk/skin.h"

namespace quillworks::editors {

struct FormPart {
    std::unique_ptr<Control> control;
    std::string panel;  // title of the panel that it stands in
    int page = -1;      // -1: on every page
};

/// Names of a form's pages; the first is the one of boxes that name none.
std::vector<std::string> pagesOf(const VNK::SkinView& view);

/// All controls, each page in the order in which Tab goes. The view must outlive them.
std::vector<FormPart> makeForm(ControlHost& host, const VNK::SkinView& view,
                               const HeaderActions& actions, Fonts& fonts, const Theme& theme);

/// A form for an effect that the skin has none of: a panel per group, in rows.
VNK::SkinView automaticForm(const EffectModel& model, const std::string& viewName,
                            const std::string& title);

}  // namespace quillworks::editors
