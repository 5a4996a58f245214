// SPDX-License-Identifier: ISC
// The loaded module and the effects it creates.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vnk/hosted_effect.h"
#include "vnk/plugin_manager.h"

namespace quillhost {

/// The folder that a file lies in, absolute.
std::string folderOf(const std::string& path);

/// An instance of an effect. Lives no longer than the session that created it.
class Effect {
public:
    Effect(VNK::HostedEffect component, const VNK::ClassDescription& description)
        : component_(std::move(component)), description_(&description)
    {}

    const VNK::HostedEffect& component() const noexcept { return *component_; }
    VNK::IEffectAlgorithm& algorithm() const noexcept { return *component_->algorithm(); }
    std::string name() const { return description_->name->text(); }
    std::string subCategory() const { return description_->subCategory->text(); }
    std::string classId() const { return description_->classId.text(); }

    VNK::ParameterInfo parameter(int index) const;
    /// Index of a key, upper and lower case alike; UsageError with the nearest ones.
    int find(const std::string& key) const;
    /// A value in the parameter's own unit, or a text of its list; UsageError where it is neither
    /// or out of range.
    float value(int index, const std::string& text) const;
    /// A number in the parameter's own unit; UsageError likewise.
    float value(int index, double number) const;
    void set(const std::string& key, const std::string& text) const;
    /// Index of a text of the effect, upper and lower case of its key alike; -1 where there is
    /// none.
    int findText(const std::string& key) const;
    VNK::TextInfo text(int index) const;
    /// Files and folders are named relative to the working directory. WorkError where the effect
    /// does not take it.
    void setText(int index, const std::string& value) const;
    /// What is wrong with what its texts name, a line each; known once it has been prepared and is
    /// ready.
    std::vector<std::string> problems() const;
    /// Loads a preset file into the effect. Returns what had to be put right in it, or nothing;
    /// WorkError when it is refused.
    std::string loadPreset(const std::string& path) const;

    /// Stereo where the effect takes it, else what it takes; the sides differ only where they must.
    struct Layouts {
        VNK::SpeakerArrangement input, output;
    };
    Layouts usualLayouts() const;
    /// Whether the class passes its audio through for now.
    bool isPassThrough() const;
    /// Text of a value with its unit.
    std::string text(int index, float value) const;
    /// "1 to 20 ratio", the ends as the effect shows them where those are no numbers ("1/64 to
    /// 4/1"); `to` stands between them.
    std::string range(int index, const char* to) const;

private:
    void requireSettable(const VNK::ParameterInfo& p) const;
    [[noreturn]] void refuse(int index, const std::string& text) const;

    VNK::HostedEffect component_;
    const VNK::ClassDescription* description_;
};

class Session {
public:
    /// Loads the module: the file given, else that of QUILLWORKS_MODULE, else the one that belongs
    /// to the binary in the folder `own`, which is that of the program where none is given.
    /// WorkError when it does not load.
    Session(const std::string& module, bool quiet, const std::string& own = "");

    bool quiet() const noexcept { return quiet_; }
    std::vector<const VNK::ClassDescription*> classes() const;
    /// Where the module's data lies: the folder of QUILLWORKS_RESOURCES, else beside the module or
    /// where the install put it. WorkError where it is not.
    std::string resourcesFolder() const;
    VNK::IClassFactory& factory() const noexcept { return module_->factory(); }
    /// By display name or class ID; UsageError with the nearest names.
    const VNK::ClassDescription& find(const std::string& name) const;
    bool has(const std::string& name) const { return search(name) != nullptr; }
    /// WorkError when the effect cannot be had.
    Effect create(const VNK::ClassDescription& description) const;
    Effect create(const std::string& name) const { return create(find(name)); }
    /// A line for standard error that is no failure; not when quiet. It is kept until sayNotes(),
    /// so that a command that fails says nothing but why.
    void note(const std::string& line) const;
    void sayNotes() const;
    /// While it lives, the notes of its thread are kept apart. [any thread]
    class NotesApart {
    public:
        explicit NotesApart(std::vector<std::string>& notes) noexcept;
        ~NotesApart();
        NotesApart(const NotesApart&) = delete;
        NotesApart& operator=(const NotesApart&) = delete;

    private:
        std::vector<std::string>* before_;
    };
    /// Such a line for each remark on a file.
    void note(const std::string& file, const std::vector<std::string>& remarks) const;
    /// The entries of a text attribute of the effect's class, "a;b"; none where it has none.
    std::vector<std::string> classAttribute(const Effect& effect, const std::string& key) const;
    /// Such a line if any of the effects passes its audio through for now, which the result of the
    /// work does not show.
    void noteThoseThatPassThrough(const std::vector<Effect>& effects) const;

private:
    const VNK::ClassDescription* search(const std::string& name) const;

    std::unique_ptr<VNK::LoadedModule> module_;
    std::string path_;  // of the module
    bool quiet_;
    mutable std::vector<std::string> notes_;
};

}  // namespace quillhost
