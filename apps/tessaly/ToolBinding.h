// A saved tool as `tessaly run` drives it, through names alone, whatever its class:
//  - the image goes in through the first of the tool's ExposedInputProperties whose value
//    is an image (by the type information of the tool's class, else by the value it holds);
//  - the results come out through every name of its ExposedOutputProperties, in order;
//  - the shapes among its input values (its region) are what an overlay draws.
// A tool saved with an input image keeps that image's coordinate space tree, pixel-from-root
// transform and selected space name: each new image gets them before the tool runs, so a
// region placed in a space of the saved image's tree (a fixture) finds it in every image.
//
//     ToolBinding tool = ToolBinding::Bind(loaded);   // throws when it is not a tool
//     ToolBinding::Outcome outcome = tool.Run(image);  // status and result texts
#pragma once

#include <string>
#include <vector>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::cli {

class ToolBinding {
public:
    struct Outcome {
        HRESULT code = S_OK;       // the run status's ErrorCode (or Run's own failure)
        std::string text;          // its ErrorString
        double milliseconds = 0;   // its Time
        std::vector<std::string> results;  // one text per output name; "" when unreadable
    };

    // `object` is a tool or a collection holding one (the first is taken). Throws (for a
    // method guard) when there is no tool or the tool exposes no input that takes an image.
    static ToolBinding Bind(IDispatch* object);

    const std::string& InputImageName() const noexcept { return inputImage_; }
    const std::vector<std::string>& OutputNames() const noexcept { return outputs_; }
    ILuxTool* Tool() const noexcept { return tool_.get(); }

    // Gives the tool `image` (with the saved tree), runs it and reads its status and
    // results. Throws only when the image cannot be handed in.
    Outcome Run(ILuxImage* image);

    // The shapes among the tool's input values now.
    std::vector<ComPtr<ILuxShape>> InputShapes();

    // Whether a run's code counts as an image that ran: success, warn and reject.
    static bool Ran(HRESULT code) noexcept { return code >= 0; }

private:
    ToolBinding() = default;
    void PrepareImage(ILuxImage* image);

    ComPtr<ILuxTool> tool_;
    std::string inputImage_;
    std::vector<std::string> inputs_;
    std::vector<std::string> outputs_;
    // What the saved input image carried.
    ComPtr<ILuxCoordinateSpaceTree> tree_;
    ComPtr<ILuxTransform2D> pixelFromRoot_;
    std::string selectedSpace_;
};

}  // namespace tessaly::cli
