// `tessaly run TOOL_ARCHIVE IMAGE_OR_FOLDER... [--csv OUT] [--overlays DIR]`: a saved tool
// run over image files, one CSV row per file (RunPipeline), with a progress bar on the
// error stream when it is a terminal, unless the rows go to that terminal too (then they
// show the progress themselves, and a bar would be drawn over them).
#pragma once

#include <ostream>

namespace tessaly::cli {

class RunCommand {
public:
    static constexpr const char* kUsage = "usage: tessaly run TOOL_ARCHIVE IMAGE_OR_FOLDER... [--csv OUT] [--overlays DIR]\n";

    // The arguments after "run". Returns the exit status: 0 when every file ran (warnings
    // and rejections included), 1 when a file failed or the archive holds no usable tool,
    // 2 for a usage error. `out` receives the CSV unless --csv names a file; `errors` the
    // progress bar; the flags say whether each is a terminal.
    struct Terminals {
        bool out = false;
        bool errors = false;
    };
    static int Run(int argc, char** argv, std::ostream& out, std::ostream& errors, Terminals terminals);
};

}  // namespace tessaly::cli
