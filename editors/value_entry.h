// SPDX-License-Identifier: ISC
// A parameter's value as text: typed into a field, copied, pasted, set to its default by a menu.
#pragma once

#include "editors/control.h"

namespace quillworks::editors {

/// Sets a value as one gesture.
void setOnce(EffectModel& model, int parameter, float value);

/// A field that takes the parameter's texts. `isWhole`: `text` is what stands there and is replaced
/// by what is typed; else it has been typed already.
TextRequest valueRequest(EffectModel& model, int parameter, const Rect& field,
                         const std::string& text, bool isWhole);
/// Whether a key begins a value.
bool beginsValue(const KeyEvent& event);

/// Lines of a menu: the title, enter, default, copy, paste. Without `enter` it cannot be typed.
void addValueEntries(std::vector<ListEntry>& entries, ControlHost& host, int parameter,
                     std::function<void()> enter);

}  // namespace quillworks::editors
