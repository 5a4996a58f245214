// SPDX-License-Identifier: ISC
// quillhost list: the classes of the module.
#include <iostream>
#include <nlohmann/json.hpp>

#include "command.h"
#include "session.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

void printTable(const Session& session)
{
    const auto classes = session.classes();
    std::size_t width = 0;
    for (const auto* c : classes) width = std::max(width, std::string(c->name->text()).size());
    int index = 0, passing = 0;
    for (const auto* c : classes) {
        const bool passes = session.create(*c).isPassThrough();
        passing += passes;
        std::string name = c->name->text();
        name.resize(width, ' ');
        const std::string number = std::to_string(++index);
        std::cout << std::string(3 - std::min<std::size_t>(3, number.size()), ' ') << number
                  << (passes ? " * " : "   ") << name << "  " << c->category->text() << "/"
                  << c->subCategory->text() << "\n";
    }
    if (passing) std::cout << "* passes audio through for now\n";
}

void printJson(const Session& session)
{
    Json all = Json::array();
    int index = 0;
    for (const auto* c : session.classes())
        all.push_back({{"index", ++index},
                       {"name", c->name->text()},
                       {"classId", c->classId.text()},
                       {"category", c->category->text()},
                       {"subCategory", c->subCategory->text()},
                       {"flags", c->flags},
                       {"passThrough", session.create(*c).isPassThrough()}});
    std::cout << all.dump(1) << "\n";
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto json = std::make_shared<bool>(false);
    addFlag(app, "--json", *json, "as a JSON array");
    return [json](Session& session) {
        *json ? printJson(session) : printTable(session);
        return kDone;
    };
}

}  // namespace

extern const Command kList;
const Command kList = {"list", "the effects of the module, in its order",
                       "  quillhost list\n"
                       "  quillhost list --json\n"
                       "  quillhost --module build/release/module/quillworks.so list",
                       declare};

}  // namespace quillhost
