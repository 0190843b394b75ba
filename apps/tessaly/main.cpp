// The command-line program: browsing the type library, dumping and converting archives,
// image files; inspection requests join as the library grows.
#include <iostream>
#include <sstream>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "AcqCommand.h"
#include "ArchiveConverter.h"
#include "ArchiveDumper.h"
#include "DemoCommand.h"
#include "FailureReport.h"
#include "ImageCommand.h"
#include "InspectCommand.h"
#include "RunCommand.h"
#include "TypeLibraryBrowser.h"
#include "TessalyCore.h"
#include "com/core/ObjectPersistence.h"
#include "platform/ComPtr.h"
#include "platform/TypeLibraryRegistry.h"

namespace {

constexpr int kUsageError = 2;

constexpr const char* kDumpUsage = "usage: tessaly dump FILE\n";
constexpr const char* kConvertUsage = "usage: tessaly convert IN OUT [--format xml|xml-linebreaks|binary|soap]\n";

void PrintUsage(std::ostream& out) {
    out << "usage: tessaly <command> [arguments]\n"
           "\n"
           "commands:\n"
           "  typelib [NAME]   list the type library, or print one interface, enumeration or coclass\n"
           "  dump FILE        print the object tree of an archive (XML or binary)\n"
           "  convert IN OUT [--format xml|xml-linebreaks|binary|soap]\n"
           "                   load an archive and save it in another format (binary by default)\n"
           "  image info FILE  print the size, kind and plane statistics of an image file\n"
           "  image convert IN OUT\n"
           "                   write an image file's pixels in the format of OUT's extension\n"
           "  inspect IMAGE --region REGION [--space NAME] [--overlay OUT.png]\n"
           "                   statistics of the pixels under a region (affine, rect, circle, ellipse,\n"
           "                   annulus or polygon: see inspect --help), and the region drawn over the image\n"
           "  run TOOL_ARCHIVE IMAGE_OR_FOLDER... [--csv OUT] [--overlays DIR]\n"
           "                   run a saved tool on image files, one CSV row per file\n"
           "  acq list         the frame grabbers present, with their video formats and camera ports\n"
           "  acq grab [--grabber NAME] [--format F] [--count N] [--out DIR]\n"
           "                   acquire N images from a frame grabber and save them as PNG files\n"
           "  demo [IMAGE] [--out DIR]\n"
           "                   one inspection request from start to end, with its files\n"
           "  help             print this text\n";
}

int RunDump(int argc, char** argv) {
    if (argc != 1) {
        std::cerr << kDumpUsage;
        return kUsageError;
    }
    const std::string_view path = argv[0];
    tessaly::ComPtr<IDispatch> root;
    const HRESULT loaded = tessaly::LoadObjectFromFile(path, luxPersistFormatAny, root.Out());
    if (FAILED(loaded)) return tessaly::cli::FailureReport::Print(std::cerr, path, loaded);
    // Printed only once complete: a dump that fails halfway prints nothing but the reason.
    std::ostringstream tree;
    tessaly::cli::ArchiveDumper dumper(tree);
    const HRESULT dumped = dumper.Dump(root.get());
    const int status = FAILED(dumped) ? tessaly::cli::FailureReport::Print(std::cerr, path, dumped) : 0;
    tessaly::ClearObjectGraph(root.get());  // cycles would keep the graph alive
    if (status == 0) std::cout << tree.str() << std::flush;
    return status;
}

int RunConvert(int argc, char** argv) {
    std::vector<std::string_view> files;
    int32_t format = luxPersistFormatBinary;
    for (int i = 0; i < argc; ++i) {
        std::string_view argument = argv[i];
        std::string_view name;
        if (argument == "--format" && i + 1 < argc) {
            name = argv[++i];
        } else if (argument.starts_with("--format=")) {
            name = argument.substr(9);
        } else if (argument.starts_with("--") && argument.size() > 2) {
            std::cerr << "tessaly convert: unknown option '" << argument << "'\n" << kConvertUsage;
            return kUsageError;
        } else {
            files.push_back(argument);
            continue;
        }
        const auto parsed = tessaly::cli::ArchiveConverter::ParseFormat(name);
        if (!parsed) {
            std::cerr << "tessaly convert: unknown format '" << name << "'\n" << kConvertUsage;
            return kUsageError;
        }
        format = *parsed;
    }
    if (files.size() != 2) {
        std::cerr << kConvertUsage;
        return kUsageError;
    }
    return tessaly::cli::ArchiveConverter::Convert(files[0], files[1], format, std::cerr);
}

int RunTypeLibrary(int argc, char** argv) {
    TessalyCore_TypeLibrary();  // keeps the library's registration linked in
    tessaly::cli::TypeLibraryBrowser browser(tessaly::TypeLibraryRegistry::Libraries());
    if (argc == 0) {
        browser.ListAll(std::cout);
        return 0;
    }
    if (argc > 1) {
        std::cerr << "tessaly typelib: expected at most one NAME\n";
        return kUsageError;
    }
    if (!browser.Describe(argv[0], std::cout)) {
        std::cerr << "tessaly typelib: no interface, enumeration or coclass is named '" << argv[0] << "'\n";
        return kUsageError;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage(std::cerr);
        return kUsageError;
    }
    const std::string_view command = argv[1];
    if (command == "typelib") return RunTypeLibrary(argc - 2, argv + 2);
    if (command == "dump") return RunDump(argc - 2, argv + 2);
    if (command == "convert") return RunConvert(argc - 2, argv + 2);
    if (command == "image") return tessaly::cli::ImageCommand::Run(argc - 2, argv + 2, std::cout, std::cerr);
    if (command == "inspect") return tessaly::cli::InspectCommand::Run(argc - 2, argv + 2, std::cout, std::cerr);
    if (command == "run")
        return tessaly::cli::RunCommand::Run(argc - 2, argv + 2, std::cout, std::cerr,
                                             {.out = isatty(STDOUT_FILENO) == 1, .errors = isatty(STDERR_FILENO) == 1});
    if (command == "acq")
        return tessaly::cli::AcqCommand::Run(argc - 2, argv + 2, std::cout, std::cerr, isatty(STDERR_FILENO) == 1);
    if (command == "demo") return tessaly::cli::DemoCommand::Run(argc - 2, argv + 2, std::cout, std::cerr);
    if (command == "help" || command == "--help" || command == "-h") {
        PrintUsage(std::cout);
        return 0;
    }
    std::cerr << "tessaly: unknown command '" << command << "'\n";
    PrintUsage(std::cerr);
    return kUsageError;
}
