// The command-line program: browsing the type library now; inspection requests, archive
// dumps and conversions join as the library grows.
#include <iostream>
#include <string_view>

#include "TypeLibraryBrowser.h"
#include "TessalyCore.h"
#include "platform/TypeLibraryRegistry.h"

namespace {

constexpr int kUsageError = 2;

void PrintUsage(std::ostream& out) {
    out << "usage: tessaly <command> [arguments]\n"
           "\n"
           "commands:\n"
           "  typelib [NAME]   list the type library, or print one interface, enumeration or coclass\n"
           "  help             print this text\n";
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
    if (command == "help" || command == "--help" || command == "-h") {
        PrintUsage(std::cout);
        return 0;
    }
    std::cerr << "tessaly: unknown command '" << command << "'\n";
    PrintUsage(std::cerr);
    return kUsageError;
}
