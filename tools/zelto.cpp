// zelto: command-line companion of the library (type listing, demo, file conversion and
// inspection).
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "core/ZeltoCore.h"
#include "tools/Demo.h"
#include "tools/DemoIk.h"
#include "tools/IkCommand.h"
#include "tools/Inspect.h"

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

// encode: an archive file's data to its text form; decode: a text back into an archive file.
int convertBase64(bool encode, const std::string& in, const std::string& out, bool compress) {
    ZeltoCore::Archive archive;
    if (encode) {
        if (!archive.readFromFile(in)) {
            std::cerr << "zelto: " << in << " is not a readable archive file\n";
            return 1;
        }
        std::ofstream file(out, std::ios::binary);
        file << archive.encodeBase64(compress);
        if (!file.flush()) {
            std::cerr << "zelto: cannot write " << out << "\n";
            return 1;
        }
        return 0;
    }
    std::ifstream file(in, std::ios::binary);
    if (!file) {
        std::cerr << "zelto: cannot read " << in << "\n";
        return 1;
    }
    std::string text{std::istreambuf_iterator<char>(file), {}};
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    if (!archive.decodeBase64(text)) {
        std::cerr << "zelto: " << in << " holds no base64 text\n";
        return 1;
    }
    if (!archive.writeToFile(out)) {
        std::cerr << "zelto: cannot write " << out << "\n";
        return 1;
    }
    return 0;
}

int runDemo(const std::string& svgPath) {
    using Step = std::function<bool(std::ostream&)>;
    // The property bag goes beside the drawing, as bag.zelto.
    const std::string bagPath =
        std::filesystem::path(svgPath).replace_filename("bag.zelto").string();
    const std::pair<const char*, Step> steps[] = {
        {"values in an archive", ZeltoTool::demoArchive},
        {"every registered type", ZeltoTool::demoAllTypes},
        {"a nested property bag",
         [&bagPath](std::ostream& out) { return ZeltoTool::demoPropertyBag(out, bagPath); }},
        {"a small character", ZeltoTool::demoCharacter},
    };
    bool ok = true;
    for (const auto& [title, step] : steps) {
        std::cout << "== " << title << "\n";
        ok = step(std::cout) && ok;
    }
    std::cout << "== feet and tail IK\n";
    ok = ZeltoTool::demoIk(std::cout, svgPath) && ok;
    std::cout << (ok ? "demo: all checks passed\n" : "demo: a check FAILED\n");
    return ok ? 0 : 1;
}

int run(int argc, char** argv) {
    ZeltoCore::initZeltoCore();
    CLI::App app{"zelto: inspect and exercise the character data library"};
    app.require_subcommand(1);
    auto* types =
        app.add_subcommand("types", "List the registered metadata types as '<id> <name>'");
    auto* demo = app.add_subcommand(
        "demo", "Build values, write them into an archive, read them back and check them");
    std::string svgPath = "character.svg";
    demo->add_option("--svg", svgPath,
                     "where to draw the IK views (default character.svg; the skeleton goes "
                     "beside it as .zelto, the property bag as bag.zelto)");
    auto* base64 = app.add_subcommand(
        "base64", "Convert between an archive file's data and its base64 text form");
    base64->require_subcommand(1);
    std::string in, out;
    bool compress = false;
    auto* encode =
        base64->add_subcommand("encode", "Write the data of archive file IN as text to OUT");
    encode->add_option("IN", in, "archive file")->required();
    encode->add_option("OUT", out, "text file")->required();
    encode->add_flag("--compress", compress, "compress the data first (the text then ends in ZIP)");
    auto* decode =
        base64->add_subcommand("decode", "Read the text in IN and write it as archive file OUT");
    decode->add_option("IN", in, "text file")->required();
    decode->add_option("OUT", out, "archive file")->required();
    auto* inspect = app.add_subcommand(
        "inspect", "Print an archive file's header and the tree of the container in its data");
    ZeltoTool::InspectOptions inspectOptions;
    inspect->add_option("FILE", in, "archive file")->required();
    auto* flagsOption = inspect->add_option(
        "--flags", inspectOptions.flags,
        "container form when the header does not tell it (2: compressed, 4: parallel)");
    inspect
        ->add_option("--keys", inspectOptions.keys,
                     "load only these keys (indices for an array), through the keyed reader")
        ->delimiter(',');
    auto* ik = app.add_subcommand(
        "ik", "Bend one foot's leg of a skeleton in an archive file onto a target (two-joint IK)");
    ZeltoTool::IkOptions ikOptions;
    ik->add_option("FILE", ikOptions.file, "archive file holding a skeleton")->required();
    ik->add_option("--foot", ikOptions.foot, "index of the foot")->required();
    ik->add_option("--target", ikOptions.target, "world target x,y,z")->required()->delimiter(',');
    ik->add_option("--pole", ikOptions.pole, "world direction the knee faces x,y,z")
        ->delimiter(',');
    ik->add_option("--stretch", ikOptions.stretch,
                   "share of a missing reach made up by lengthening the leg (0 ... 1)");
    ik->add_option("--key", ikOptions.key,
                   "the file holds a map: the key of its SkeletonMetadata entry");
    CLI11_PARSE(app, argc, argv);
    if (types->parsed()) return listTypes();
    if (base64->parsed()) return convertBase64(encode->parsed(), in, out, compress);
    if (demo->parsed()) return runDemo(svgPath);
    if (ik->parsed()) return ZeltoTool::ikCommand(ikOptions, std::cout, std::cerr);
    if (inspect->parsed()) {
        inspectOptions.hasFlags = flagsOption->count() > 0;
        return ZeltoTool::inspectFile(in, inspectOptions, std::cout, std::cerr);
    }
    return 0;
}
}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "zelto: " << e.what() << "\n";
        return 1;
    }
}
