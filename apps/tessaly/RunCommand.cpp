#include "RunCommand.h"

#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FailureReport.h"
#include "ProgressBar.h"
#include "RunPipeline.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectPersistence.h"
#include "platform/Guid.h"

namespace tessaly::cli {

namespace {

constexpr int kUsageError = 2;

constexpr const char* kHelp =
    "\n"
    "Loads a tool saved in an archive (binary or XML, told apart by their first bytes; the\n"
    "archive holds the tool, or a collection of which the first tool is taken) and runs it\n"
    "on every image file, writing one CSV row per file:\n"
    "\n"
    "  file, status, status_text, time_ms, then the tool's exposed outputs by name\n"
    "\n"
    "status is the run status's code in hex (0x00000000 passed, 0x00040400 warned,\n"
    "0x00040410 rejected, 0x8... failed), time_ms its Time. A file that cannot be read is a\n"
    "row with the reading's code and reason; the run goes on.\n"
    "\n"
    "  IMAGE_OR_FOLDER  an image file (PNG, TIFF, JPEG, PGM/PPM), or a folder: its image\n"
    "                   files by extension, not those of its sub-folders, in name order\n"
    "  --csv OUT        write the CSV to OUT ('-' or none: standard output)\n"
    "  --overlays DIR   write DIR/NAME.png for every image that ran: the tool's region\n"
    "                   drawn and tinted over it\n"
    "\n"
    "Each image is given the coordinate space tree of the image the tool was saved with, so\n"
    "a region placed in a fixture space finds it. A progress bar is drawn on the error\n"
    "stream while it is a terminal and the CSV does not go to that terminal.\n"
    "\n"
    "Exit status: 0 when every file ran (warnings and rejections included), 1 when some\n"
    "file failed, 2 for a usage error.\n";

int UsageError(std::ostream& errors, const std::string& reason) {
    if (!reason.empty()) errors << "tessaly run: " << reason << '\n';
    errors << RunCommand::kUsage;
    return kUsageError;
}

}  // namespace

int RunCommand::Run(int argc, char** argv, std::ostream& out, std::ostream& errors, Terminals terminals) {
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            out << kUsage << kHelp;
            return 0;
        }
    }
    std::optional<std::string> csvPath, overlays;
    std::vector<std::string> positional;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        std::optional<std::string>* option = nullptr;
        std::string_view flag;
        for (const auto& [name, target] : {std::pair{std::string_view("--csv"), &csvPath},
                                           std::pair{std::string_view("--overlays"), &overlays}})
            if (argument.starts_with(name) && (argument.size() == name.size() || argument[name.size()] == '=')) {
                option = target;
                flag = name;
            }
        if (option) {
            const std::string name(flag);
            std::string value;
            if (argument.size() > flag.size()) {
                value = std::string(argument.substr(flag.size() + 1));
            } else if (i + 1 < argc) {
                value = argv[++i];
            } else {
                return UsageError(errors, name + " needs a value");
            }
            if (*option) return UsageError(errors, name + " given twice");
            if (value.empty()) return UsageError(errors, name + " needs a value");
            *option = value;
        } else if (argument.starts_with("-") && argument.size() > 1) {
            return UsageError(errors, "unknown option '" + std::string(argument) + "'");
        } else {
            positional.emplace_back(argument);
        }
    }
    if (positional.empty()) return UsageError(errors, "no TOOL_ARCHIVE");
    if (positional.size() == 1) return UsageError(errors, "no IMAGE_OR_FOLDER");

    const std::string& archive = positional.front();
    ComPtr<IDispatch> root;
    if (const HRESULT loaded = LoadObjectFromFile(archive, luxPersistFormatAny, root.Out()); FAILED(loaded))
        return FailureReport::Print(errors, archive, loaded);
    std::optional<ToolBinding> tool;
    if (const HRESULT bound = core::Guarded("run", GUID_NULL, [&] { tool.emplace(ToolBinding::Bind(root.get())); });
        FAILED(bound)) {
        FailureReport::Print(errors, archive, bound);
        ClearObjectGraph(root.get());
        return FailureReport::kExitStatus;
    }

    const bool toStandardOutput = !csvPath || *csvPath == "-";
    std::ofstream file;
    if (!toStandardOutput) {
        file.open(*csvPath, std::ios::binary | std::ios::trunc);
        if (!file) {
            errors << "tessaly: " << *csvPath << ": cannot be written\n";
            tool.reset();
            ClearObjectGraph(root.get());
            return FailureReport::kExitStatus;
        }
    }
    CsvWriter csv(toStandardOutput ? out : file);
    const std::vector<ImageFileList::Entry> files = ImageFileList::Expand(std::span(positional).subspan(1));

    std::optional<ProgressBar> bar;
    RunPipeline::Options options;
    if (overlays) options.overlays = *overlays;
    options.errors = &errors;
    if (terminals.errors && !(toStandardOutput && terminals.out)) {
        bar.emplace(errors, files.size());
        bar->Show(0);
        options.progress = [&](uint64_t done) { bar->Show(done); };
    }
    RunPipeline::Summary summary;
    const HRESULT ran = core::Guarded("run", GUID_NULL, [&] { summary = RunPipeline::Run(*tool, files, csv, options); });
    if (bar) bar->Finish();
    tool.reset();
    ClearObjectGraph(root.get());  // a loaded graph may hold cycles
    if (FAILED(ran)) return FailureReport::Print(errors, overlays.value_or(archive), ran);
    if (!toStandardOutput && !file.flush()) {
        errors << "tessaly: " << *csvPath << ": cannot be written\n";
        return FailureReport::kExitStatus;
    }
    return summary.failed ? FailureReport::kExitStatus : 0;
}

}  // namespace tessaly::cli
