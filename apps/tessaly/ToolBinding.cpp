#include "ToolBinding.h"

#include <string_view>

#include "FailureReport.h"
#include "NamedProperty.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::cli {

namespace {

std::vector<std::string> Names(ILuxStringCollection* names) {
    std::vector<std::string> result;
    if (!names) return result;
    LONG count = 0;
    core::ThrowIfFailed(names->get_Count(&count));
    for (LONG i = 0; i < count; ++i) {
        Bstr name;
        core::ThrowIfFailed(names->get_Item(Variant(int32_t{i}).get(), name.Out()));
        result.push_back(name.str());
    }
    return result;
}

template <class I>
ComPtr<I> ObjectOf(const VARIANT& value) {
    ComPtr<I> typed;
    IUnknown* object = value.vt == VT_DISPATCH ? value.pdispVal : value.vt == VT_UNKNOWN ? value.punkVal : nullptr;
    if (object) object->QueryInterface(I::iid, typed.OutVoid());
    return typed;
}

// The tool itself, or the first tool among the items of a collection (an archive saved
// with the tool beside other objects).
ComPtr<ILuxTool> FindTool(IDispatch* object) {
    ComPtr<ILuxTool> tool;
    if (SUCCEEDED(object->QueryInterface(ILuxTool::iid, tool.OutVoid())) && tool) return tool;
    ComPtr<ILuxCollection> collection;
    if (SUCCEEDED(object->QueryInterface(ILuxCollection::iid, collection.OutVoid())) && collection) {
        LONG count = 0;
        core::ThrowIfFailed(collection->get_Count(&count));
        for (LONG i = 0; i < count; ++i) {
            Variant item;
            core::ThrowIfFailed(collection->get_Item(Variant(int32_t{i}).get(), item.Out()));
            if (auto found = ObjectOf<ILuxTool>(item.get())) return found;
        }
    }
    throw ccStdError::Described("the archive holds no tool");
}

bool IsImageType(const ParamInfo& type) {
    if (type.iid && *type.iid == ILuxImage::iid) return true;
    // The image classes' own interfaces: ILuxImage8Grey*, ILuxImage16Grey*, ...
    const std::string_view name = type.typeName ? type.typeName : "";
    return name.starts_with("ILuxImage");
}

}  // namespace

ToolBinding ToolBinding::Bind(IDispatch* object) {
    if (!object) throw ccStdError::NullArgument("Tool");
    ToolBinding binding;
    binding.tool_ = FindTool(object);
    ComPtr<ILuxStringCollection> names;
    core::ThrowIfFailed(binding.tool_->get_ExposedInputProperties(names.Out()));
    binding.inputs_ = Names(names.get());
    names = nullptr;
    core::ThrowIfFailed(binding.tool_->get_ExposedOutputProperties(names.Out()));
    binding.outputs_ = Names(names.get());

    IDispatch* tool = binding.tool_.get();
    for (const std::string& name : binding.inputs_) {
        const ParamInfo* type = NamedProperty::ValueType(tool, name);
        Variant value;
        const bool read = SUCCEEDED(NamedProperty::Get(tool, name, value));
        const ComPtr<ILuxImage> image = read ? ObjectOf<ILuxImage>(value.get()) : nullptr;
        if (!(type ? IsImageType(*type) : image != nullptr)) continue;
        binding.inputImage_ = name;
        if (image) {
            core::ThrowIfFailed(image->get_CoordinateSpaceTree(binding.tree_.Out()));
            core::ThrowIfFailed(image->get_PixelFromRootTransform(binding.pixelFromRoot_.Out()));
            Bstr selected;
            core::ThrowIfFailed(image->get_SelectedSpaceName(selected.Out()));
            binding.selectedSpace_ = selected.str();
        }
        break;
    }
    ClearErrorInfo();  // what a failed read of an input left behind
    if (binding.inputImage_.empty()) throw ccStdError::Described("the tool has no exposed input that takes an image");
    return binding;
}

void ToolBinding::PrepareImage(ILuxImage* image) {
    if (tree_) core::ThrowIfFailed(image->putref_CoordinateSpaceTree(tree_.get()));
    if (pixelFromRoot_) core::ThrowIfFailed(image->putref_PixelFromRootTransform(pixelFromRoot_.get()));
    if (!selectedSpace_.empty()) core::ThrowIfFailed(image->put_SelectedSpaceName(Bstr(selectedSpace_).get()));
}

ToolBinding::Outcome ToolBinding::Run(ILuxImage* image) {
    PrepareImage(image);
    core::ThrowIfFailed(NamedProperty::PutRef(tool_.get(), inputImage_, Variant(static_cast<IDispatch*>(image)).get()));
    Outcome outcome;
    const HRESULT ran = tool_->Run();
    const std::string runFailure = FAILED(ran) ? FailureReport::Description("", ran) : std::string();
    ComPtr<ILuxRunStatus> status;
    core::ThrowIfFailed(tool_->get_RunStatus(status.Out()));
    Bstr text;
    core::ThrowIfFailed(status->get_ErrorCode(&outcome.code));
    core::ThrowIfFailed(status->get_ErrorString(text.Out()));
    core::ThrowIfFailed(status->get_Time(&outcome.milliseconds));
    outcome.text = text.str();
    if (FAILED(ran) && !FAILED(outcome.code)) {  // a failure the status does not tell
        outcome.code = ran;
        outcome.text = runFailure;
    }
    outcome.results.reserve(outputs_.size());
    for (const std::string& name : outputs_) {
        Variant value;
        outcome.results.push_back(SUCCEEDED(NamedProperty::Get(tool_.get(), name, value)) ? NamedProperty::Text(value.get())
                                                                                         : std::string());
    }
    ClearErrorInfo();  // results a failed run does not have
    return outcome;
}

std::vector<ComPtr<ILuxShape>> ToolBinding::InputShapes() {
    std::vector<ComPtr<ILuxShape>> shapes;
    for (const std::string& name : inputs_) {
        Variant value;
        if (FAILED(NamedProperty::Get(tool_.get(), name, value))) continue;
        if (auto shape = ObjectOf<ILuxShape>(value.get())) shapes.push_back(std::move(shape));
    }
    ClearErrorInfo();
    return shapes;
}

}  // namespace tessaly::cli
