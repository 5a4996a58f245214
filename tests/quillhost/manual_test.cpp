// SPDX-License-Identifier: ISC
// The manual's pages are what the effects say of themselves.
#include "program.h"
#include "tests/support/build_paths.h"

namespace quillhost_test {
namespace {

namespace fs = std::filesystem;

class Manual : public InFolder {
protected:
    const std::string manual_ = quillworks::paths::source + "/docs/manual";
};

TEST_F(Manual, IsCurrent)
{
    const auto result = run({"manual", "pages", "-o", manual_, "--check"});
    EXPECT_EQ(result.code, 0) << result.err << "Mended by: scripts/manual --pictures";
}

TEST_F(Manual, ACheckTellsWhatDiffersAndWritingMendsThePages)
{
    if (kIsSanitised) {  // a check of all pages is above
        fs::create_directories("m/notes");
        fs::copy(manual_ + "/notes", "m/notes");
        EXPECT_EQ(run({"manual", "pages", "-o", "m"}).code, 0);
        return;
    }
    fs::copy(manual_, "m", fs::copy_options::recursive);
    const auto gate = readBytes("m/gate.md");
    auto changed = gate;
    changed.replace(changed.find("-40 dB"), 6, "-41 dB");
    writeBytes("m/gate.md", changed);
    writeBytes("m/stray.md", "# Stray\n");
    fs::remove("m/pictures/limiter.png");
    fs::copy_file("m/pictures/gate.png", "m/pictures/scope.png",
                  fs::copy_options::overwrite_existing);
    const Words check = {"manual", "pages", "-o", "m", "--check"};
    const std::string pictures =
        "pictures/limiter.png cannot be read, pictures/scope.png has 840 x "
        "448 pixels, the form 960 x 528, stray.md is of no effect";
    expectFailure(run(check), 1, "m: gate.md is not current, " + pictures);
    expectSilence(run({"manual", "pages", "-o", "m"}));
    EXPECT_EQ(readBytes("m/gate.md"), gate);
    expectFailure(run(check), 1, "m: " + pictures);
    fs::remove("m/notes/gate.md");
    expectFailure(run(check), 1, "m/notes/gate.md");
}

}  // namespace
}  // namespace quillhost_test
