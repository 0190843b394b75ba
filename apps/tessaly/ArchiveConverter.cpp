#include "ArchiveConverter.h"

#include "FailureReport.h"
#include "TessalyCore.h"
#include "com/core/ObjectPersistence.h"
#include "platform/ComPtr.h"

namespace tessaly::cli {

std::optional<int32_t> ArchiveConverter::ParseFormat(std::string_view name) noexcept {
    if (name == "xml") return luxPersistFormatXML;
    if (name == "xml-linebreaks") return luxPersistFormatXMLWithLineBreaks;
    if (name == "binary") return luxPersistFormatBinary;
    if (name == "soap") return luxPersistFormatSoap;
    return std::nullopt;
}

int ArchiveConverter::Convert(std::string_view input, std::string_view output, int32_t format, std::ostream& errors) {
    ComPtr<IDispatch> root;
    HRESULT result = LoadObjectFromFile(input, luxPersistFormatAny, root.Out());
    if (FAILED(result)) return FailureReport::Print(errors, input, result);
    result = SaveObjectToFile(root.get(), output, format, luxPersistOptionAll);
    const int status = FAILED(result) ? FailureReport::Print(errors, output, result) : 0;
    // Cycles in the graph would keep it alive: emptied, it is freed with the last reference.
    ClearObjectGraph(root.get());
    return status;
}

}  // namespace tessaly::cli
