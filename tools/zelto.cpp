// zelto: command-line companion of the library (type listing, demo).
#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <utility>
#include <vector>

#include "core/ZeltoCore.h"
#include "tools/Demo.h"

namespace {

int listTypes() {
    auto& factory = ZeltoCore::MetadataFactory::instance();
    std::vector<std::pair<unsigned, std::string>> types;
    for (const std::string& name : factory.getRegisteredMetadata()) {
        std::shared_ptr<ZeltoCore::Metadata> value = factory.createMetadata(name);
        if (value) types.emplace_back(value->typeId(), name);
    }
    std::sort(types.begin(), types.end());
    for (const auto& [id, name] : types)
        std::cout << id << ' ' << name << '\n';
    return 0;
}

int runDemo() {
    bool ok = ZeltoTool::demoArchive(std::cout);
    std::cout << (ok ? "demo: all checks passed\n" : "demo: a check FAILED\n");
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    ZeltoCore::initZeltoCore();
    CLI::App app{"zelto: inspect and exercise the character data library"};
    app.require_subcommand(1);
    auto* types =
        app.add_subcommand("types", "List the registered metadata types as '<id> <name>'");
    auto* demo = app.add_subcommand(
        "demo", "Build values, write them into an archive, read them back and check them");
    CLI11_PARSE(app, argc, argv);
    if (types->parsed()) return listTypes();
    if (demo->parsed()) return runDemo();
    return 0;
}
