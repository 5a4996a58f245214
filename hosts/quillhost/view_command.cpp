// SPDX-License-Identifier: ISC
// quillhost view: the editor of an effect as a picture or a list of texts, with hands played to it.
#include <memory>

#include "command.h"
#include "error.h"
#include "view.h"

namespace quillhost {
namespace {

std::function<int(Session&)> declare(CLI::App& app)
{
    const auto o = std::make_shared<ViewOptions>();
    addOption(app, "SPEC", o->spec, "effect with its settings, as for render");
    addOption(app, "--form", o->form, "Editor, Compact, Micro, ... (Editor)", "F");
    addOption(app, "--page", o->page, "page of the form (Main)", "NAME");
    addNumber(app, "--scale", o->scale, 0.5, 4.0, "device pixels per pixel (1)");
    addChoice(app, "--variant", o->variant, kViewVariants, "colours (dark)");
    addOption(app, "--in", o->in, "sound that has been played before the picture", "FILE");
    addNumber(app, "--at", o->at, 0.0, 86400.0, "seconds of it (all)");
    addOption(app, "--events", o->events,
              "hands, one JSON object a line; what they set goes to standard output", "FILE");
    addFlag(app, "--popups", o->withPopups, "menus and tips too");
    addFlag(app, "--small", o->isSmall, "a picture of 256 colours, none off by more than 3 of 255");
    addFlag(app, "--text", o->asText, "the form as a list of texts, in the order of Tab");
    addFlag(app, "--check", o->checks, "fail where a text is cut or controls overlap");
    addDisplayOptions(app, o->run);
    addOption(app, "-o", o->out, "picture", "FILE.png");
    return [o]([[maybe_unused]] Session& session) -> int {
        requireArgument(o->spec, "SPEC", "view");
        if (o->out.empty() && !o->asText && o->events.empty() && !o->checks)
            throw UsageError("view needs -o FILE.png, --text, --events FILE or --check");
#ifdef QUILLHOST_WITHOUT_EDITORS
        throw WorkError(
            "this build, for a first look, draws no editors; ./install makes one that does");
#else
        return drawEditor(session, *o);
#endif
    };
}

}  // namespace

extern const Command kView;
const Command kView = {
    "view",
    "draw the editor of an effect",
    "  quillhost view compressor --scale 2 -o compressor.png\n"
    "  quillhost view limiter:ceiling=-1 --form Compact --in voice.wav --at 4 -o limiter.png\n"
    "  quillhost view gate --text\n",
    declare,
};

}  // namespace quillhost
