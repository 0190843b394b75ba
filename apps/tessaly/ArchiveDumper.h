// Prints a loaded object graph as an indented tree: each object's ProgID and number, then
// each value its Persist hands over, as "name: TYPE = value".
//
//     Tessaly.LuxCollection.1 (id 1)
//       Item0: I4 = 7
//       Item1: DISPATCH = Tessaly.LuxCollection.1 (id 2)
//         Item0: ARRAY(UI1)[0..15] = {0, 1, 2, 3, 4, 5, 6, 7, ... (16 elements)}
//       Item2: DISPATCH -> id 2
//
// The graph is walked exactly as a formatter walks it when saving (ObjectGraphSaver with
// this class as the archive writer), so the numbers are those a saved file carries.
// Arrays show their first kShownElements elements; arrays of variants and objects show
// them one per line, with sub-objects under them. Objects in elements that are not shown
// are still walked, silently, so that later numbers stay those of the file.
//
// Objects and arrays nested deeper than kMaxDepth levels (a chain of objects each holding
// the next, which a document can spell at a shallow nesting) end the dump with a failure,
// as they end a save: the walk recurses, and the stack is not the input's to spend.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "com/core/ArchiveWriter.h"
#include "com/core/ObjectGraphSaver.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::cli {

class ArchiveDumper final : public core::ArchiveWriter {
public:
    static constexpr size_t kShownElements = 8;
    // Bytes of a string shown, for a value and for an array element.
    static constexpr size_t kShownTextBytes = 64;
    static constexpr size_t kShownElementTextBytes = 16;
    static constexpr size_t kMaxDepth = 512;

    explicit ArchiveDumper(std::ostream& out);

    // Prints the graph under `root`. Returns S_OK, or the failure of an object's Persist
    // with error info.
    HRESULT Dump(IUnknown* root) noexcept;

    // The automation name of a type: "I4", "BSTR", "ARRAY(UI1)", "BYREF(R8)".
    static std::string TypeName(VARTYPE vt);
    // `text` in double quotes with \" \\ \n \r \t and \xNN escapes; longer than `limit`
    // bytes, it is cut (at a character boundary) and followed by ... and its length.
    static std::string Quote(std::string_view text, size_t limit);

    void WriteEntry(std::string_view name, const VARIANT& value) override;

private:
    // The rest of a line that has shown "name: TYPE" for an object, then its values.
    void WriteObject(IUnknown* object);
    // " = value" or " -> id N" (and what nests under it) for a value of any type.
    void WriteValue(const VARIANT& value);
    void WriteArray(VARTYPE vt, SAFEARRAY* array);
    // One element's line in an array of variants or objects; `index` is "[3]" or "[1,2]".
    void WriteElementLine(const std::string& index, const VARIANT& value);

    bool Shown() const noexcept { return hidden_ == 0; }
    // Counts one level of objects or arrays while it lives; refuses one too many.
    class Level;
    std::ostream& Line();  // a new line at the current indentation
    std::ostream& Put();   // the current line, or nowhere while hidden

    core::ObjectGraphSaver saver_;
    std::ostream& out_;
    std::ostream nowhere_;
    size_t depth_ = 0;    // indentation
    size_t nesting_ = 0;  // objects and arrays being walked, shown or not
    size_t hidden_ = 0;
};

}  // namespace tessaly::cli
