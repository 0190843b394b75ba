#include "com/core/MessageTable.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <unordered_map>

#include "TessalyCore.h"

namespace tessaly::core {

namespace {

// English (United States): complete. Another language is one more array like this one
// and one more entry in kLanguages; the texts it lacks come from English.
const MessageText kEnglishTexts[] = {
    // Success codes
    {s_OK, "The operation succeeded."},
    {s_LuxTool_Warn, "The tool ran, with a warning."},
    {s_LuxTool_Reject, "The tool ran and rejected its input."},

    // Standard codes
    {e_FAIL, "The operation failed."},
    {e_UNEXPECTED, "The call was not expected in the object's present state."},
    {e_OUTOFMEMORY, "There is not enough memory to complete the operation."},
    {e_INVALIDARG, "One or more arguments are not valid."},
    {e_POINTER, "A required pointer or object argument is null."},
    {e_NOINTERFACE, "The object does not support the requested interface."},
    {e_MEMBERNOTFOUND, "The object has no member with this ID and kind."},
    {e_TYPEMISMATCH, "An argument has a type that cannot be converted to the one required."},
    {e_OVERFLOW, "A value is outside the range of its type."},
    {e_BADINDEX, "The index is out of range."},
    {e_BADPARAMCOUNT, "The number of arguments is wrong for this member."},
    {e_PARAMNOTOPTIONAL, "A required argument is missing."},
    {e_UNKNOWNNAME, "The object has no member with this name."},
    {e_BADPATH, "The path is not valid or names nothing."},
    {E_NOTIMPL, "The member is not implemented."},
    {E_ABORT, "The operation was aborted."},
    {E_ACCESSDENIED, "Access was denied."},
    {E_HANDLE, "The handle is not valid."},
    {DISP_E_UNKNOWNINTERFACE, "The interface ID passed to dispatch must be IID_NULL."},
    {DISP_E_PARAMNOTFOUND, "A named argument names no parameter of the member."},
    {DISP_E_NONAMEDARGS, "The member does not accept named arguments."},
    {DISP_E_BADVARTYPE, "A variant has a type that is not valid."},
    {DISP_E_EXCEPTION, "The member raised an exception."},
    {DISP_E_UNKNOWNLCID, "The locale ID is not known."},
    {DISP_E_ARRAYISLOCKED, "The array is locked."},
    {DISP_E_BADCALLEE, "The object cannot be called this way."},
    {DISP_E_NOTACOLLECTION, "The object is not a collection."},
    {DISP_E_DIVBYZERO, "Division by zero."},
    {TYPE_E_ELEMENTNOTFOUND, "The element was not found in the type information."},
    {CONNECT_E_NOCONNECTION, "No connection has this cookie."},
    {CONNECT_E_ADVISELIMIT, "The connection point accepts no further connections."},
    {CONNECT_E_CANNOTCONNECT, "The sink does not implement the outgoing interface."},
    {CONNECT_E_OVERRIDDEN, "The connection point is overridden."},
    {CLASS_E_NOAGGREGATION, "The class does not support aggregation."},
    {CLASS_E_CLASSNOTAVAILABLE, "The class cannot be created by clients."},
    {REGDB_E_CLASSNOTREG, "No class is registered under this name or class ID."},
    {CO_E_CLASSSTRING, "The text is neither a ProgID nor a class ID in braces."},
    {STG_E_INVALIDFUNCTION, "The stream does not support this operation."},
    {STG_E_FILENOTFOUND, "The file was not found."},
    {STG_E_ACCESSDENIED, "Access to the file was denied."},
    {STG_E_INVALIDPOINTER, "A stream argument is a null pointer."},
    {STG_E_SEEKERROR, "The stream could not seek to the position."},
    {STG_E_WRITEFAULT, "The stream could not be written."},
    {STG_E_READFAULT, "The stream could not be read."},
    {STG_E_INVALIDPARAMETER, "A stream argument is not valid."},
    {STG_E_MEDIUMFULL, "There is not enough space on the medium."},

    // General
    {e_Lux_TimeoutExpired, "The time-out expired before the operation completed."},
    {e_Lux_NotImplemented, "This function is not implemented."},
    {e_Lux_InternalError, "An internal error occurred in the library."},
    {e_Lux_UnsupportedHardware, "The hardware is not supported."},
    // Files
    {e_Lux_FileOpen, "The file could not be opened."},
    {e_Lux_FileRead, "The file could not be read."},
    {e_Lux_FileWrite, "The file could not be written."},
    {e_Lux_NoFileOpen, "No file is open."},
    {e_Lux_BadFileFormat, "The file is not in a format that can be read."},
    {e_Lux_BadFileMode, "The file is not open in the mode this operation needs."},
    // Events
    {e_Lux_ChangeEventError, "A change event could not be delivered."},
    // Collections
    {e_LuxCollection_InvalidIndex, "The collection index is out of range."},
    {e_LuxCollection_InvalidKey, "The collection key is not valid, or no item has it."},
    {e_LuxCollection_KeyNotFound, "No item of the collection has this key."},
    {e_LuxCollection_DuplicateItem, "The item is already in the collection."},
    {e_LuxCollection_DuplicateKey, "Another item of the collection already has this key."},
    {e_LuxCollection_NullItem, "A collection item must not be null."},
    // Images
    {e_LuxImage_Allocated, "The image is already allocated."},
    {e_LuxImage_AllocateSize, "The image size is not valid."},
    {e_LuxImage_NoPixels, "The image has no pixels."},
    {e_LuxImage_Clipped, "The window does not lie entirely within the image."},
    {e_LuxImage_BadCoord, "The coordinates lie outside the image."},
    {e_LuxImage_BadType, "The image type is not valid for this operation."},
    {e_LuxImage_NoTree, "The image has no coordinate space tree."},
    {e_LuxImage_BadSelectedSpaceName, "The selected space name is not in the image's coordinate space tree."},
    // Transforms
    {e_LuxTransform_NotLinear, "The transform is not linear."},
    {e_LuxTransform_CantPopEmptyComposed, "The composed transform is empty: there is nothing to remove."},
    {e_LuxTransform_TooFewPointsLinFit, "There are too few points for a linear fit."},
    {e_LuxTransform_Singular, "The transform is singular."},
    {e_LuxTransform_SingularPoint, "The transform is singular at this point."},
    // Coordinate space trees
    {e_LuxSpaceTree_DuplicateChildName, "The space already has a child with this name."},
    {e_LuxSpaceTree_InvalidNameSyntax, "The space name is not valid."},
    {e_LuxSpaceTree_NotInTree, "The space is not in the tree."},
    {e_LuxSpaceTree_NotUnique, "The space name occurs more than once in the tree."},
    {e_LuxSpaceTree_FixturedSpaceNameCollision, "The name of the fixtured space is already used."},
    // Shapes
    {e_LuxShape_NotRectangle, "The shape is not a rectangle."},
    {e_LuxShape_NotAffineRect, "The shape is not an affine rectangle."},
    {e_LuxShape_NoCompositeChildren, "The composite shape has no children."},
    {e_LuxShape_CoordinatesMustDiffer, "The coordinates must differ."},
    {e_LuxShape_DegeneratePolygon, "The polygon is degenerate."},
    {e_LuxShape_CannotEnclose, "The shape cannot enclose the other shapes."},
    {e_LuxShape_DegenerateShape, "The shape is degenerate."},
    {e_LuxShape_ComplexPolygon, "The polygon intersects itself."},
    {e_LuxShape_CantParentShape, "This shape cannot have children."},
    {e_LuxShape_CannotConvert, "The shape cannot be converted to the requested kind."},
    {e_LuxShape_BadContourSegType, "The contour segment type is not valid."},
    {e_LuxShape_BadContourSegConn, "The contour segments are not connected."},
    {e_LuxShape_AddWontBreakContour, "Adding the segment would break the contour."},
    {e_LuxShape_PenKeyInUse, "The pen key is already in use."},
    {e_LuxShape_BadContourSegmentSet, "The set of contour segments is not valid."},
    {e_LuxShape_BadContourChainClosure, "The contour chain does not close."},
    {e_LuxShape_DegenerateContour, "The contour is degenerate."},
    {e_LuxShape_AlreadyAShapeModel, "The shape is already a shape model."},
    {e_LuxShape_DegenerateEllipticalArcSeg, "The elliptical arc segment is degenerate."},
    // Operators
    {e_LuxOperator_NoInputImage, "The operator has no input image."},
    {e_LuxOperator_NotTrained, "The operator is not trained."},
    {e_LuxOperator_InvalidRegion, "The region is not valid for this operator."},
    {e_LuxOperator_NoTrainImage, "The operator has no training image."},
    {e_LuxOperator_NoRunParams, "The operator has no run parameters."},
    {e_LuxOperator_InvalidShape, "The shape is not valid for this operator."},
    // Tools
    {e_LuxTool_NoOperator, "The tool has no operator."},
    {e_LuxTool_NoResult, "The tool has no result."},
    {e_LuxTool_SpaceNameMismatch, "The space names do not match."},
    // Acquisition
    {e_LuxAcq_BadVideoFormat, "The video format is not valid."},
    {e_LuxAcq_Timeout, "The acquisition timed out."},
    {e_LuxAcq_EncoderOverrun, "The encoder overran."},
    {e_LuxAcq_InvalidROI, "The region of interest is not valid."},
    {e_LuxAcq_Overrun, "The acquisition overran."},
    {e_LuxAcq_BadTicket, "The acquisition ticket is not valid."},
    {e_LuxAcq_OldTicket, "The acquisition ticket is no longer valid."},
    {e_LuxAcq_NoFrameGrabber, "No frame grabber is present."},
    {e_LuxAcq_WrongTriggerModel, "The operation is not allowed with this trigger model."},
    {e_LuxAcq_Missed, "The acquisition was missed."},
    {e_LuxAcq_Abnormal, "The acquisition ended abnormally."},
    {e_LuxAcq_NotAllowedForSlave, "The operation is not allowed for a slave."},
    {e_LuxAcq_CannotSlave, "The camera cannot be a slave."},
    {e_LuxAcq_Timing, "The acquisition timing is not valid."},
    {e_LuxAcq_HardwareInUse, "The acquisition hardware is in use."},
    {e_LuxAcq_NoCameras, "No cameras are connected."},
    {e_LuxAcq_OtherFifoError, "Another acquisition FIFO failed."},
    {e_LuxAcq_NoOutstandingStarts, "No acquisition has been started."},
    {e_LuxAcq_TooManyStarts, "Too many acquisitions have been started."},
    {e_LuxAcq_CannotCreateFifo, "The acquisition FIFO cannot be created."},
    {e_LuxAcq_RegisterAccess, "A hardware register could not be accessed."},
    // Run-length buffers
    {e_LuxRLEBuffer_NotInitialized, "The run-length buffer is not initialised."},
    {e_LuxRLEBuffer_CombineFailed, "The run-length buffers could not be combined."},
    {e_LuxRLEBuffer_CombineSubImageSize, "The run-length buffers cannot be combined: the sub-image is wider or taller than the buffer."},
    {e_LuxRLEBuffer_CombineSubImageOffset, "The run-length buffers cannot be combined: the sub-image begins before the buffer."},
    {e_LuxRLEBuffer_CombineSubImageExtent, "The run-length buffers cannot be combined: the sub-image extends beyond the buffer."},
    // I/O lines
    {e_LuxIOLine_NotEnabled, "The I/O line is not enabled."},
    {e_LuxIOLine_CannotEnable, "The I/O line cannot be enabled."},
    // Iterators
    {e_LuxIterator_InvalidIterator, "The iterator is not valid."},
    {e_LuxIterator_InvalidPosition, "The iterator position is not valid."},
    {e_LuxIterator_EndOfContainer, "The iterator is at the end of its container."},
    // Fitting and mathematics
    {e_LuxFit_InsufficientPoints, "There are too few points for the fit."},
    {e_LuxMath_Unsupported_Geometry, "The geometry is not supported."},

    // Argument refusals and reading archives
    {ids_Lux_InvalidArgBinary_3, "The argument %1 of %3 must be 0 or 1, not %2."},
    {ids_Lux_InvalidArgNotPositive_1, "The argument %1 must be greater than 0."},
    {ids_Lux_InvalidArgValue_1, "The value given for %1 is not valid."},
    {ids_Lux_InvalidArgEnum_1, "The argument %1 is not one of the values of its enumeration."},
    {ids_Lux_InvalidArgIndex_2, "The %1 is out of range: it must be at least 0 and less than %2."},
    {ids_Lux_InvalidArgNull_1, "The argument %1 must not be null."},
    {ids_Lux_ReadInvalidProperty_1, "The property %1 could not be read from the archive."},
    {ids_Lux_ReadInvalidObject_1, "The object %1 could not be read from the archive."},
    // Transforms and space names
    {ids_LuxTransform_InvalidArgSingular_2, "Setting %1 to %2 would make the transform singular."},
    {ids_Lux_NameMissing, "The name is null or empty."},
    {ids_Lux_NameMissingInPath, "A component of the path is empty."},
    {ids_Lux_NameMissingAtStart, "The path must not begin with a separator."},
    {ids_Lux_NameIsPartial, "A full path must not contain a partial name."},
    {ids_Lux_NameHasSpaceAtEdge, "A name must not begin or end with a blank."},
    {ids_Lux_NameHasCntrlChar, "A name must not contain characters that cannot be printed."},
    {ids_Lux_NameHasSeparator, "A name must not contain a path separator."},
    {ids_Lux_NameIsReserved, "The name is reserved."},
    {ids_Lux_NameStartsWithPunct, "A name must not begin with a punctuation character."},
    {ids_Lux_OneNameAfterTripleDot, "Exactly one name must follow '...'."},
    {ids_Lux_PathnamesStartAtRoot, "A path must begin at the root."},
    // The XML formatter
    {ids_LuxFormatter_BadFormat, "The input is not in the format this formatter reads."},
    {ids_LuxFormatter_NotPersistable, "The object cannot be saved: it does not support persistence."},
    {ids_LuxFormatter_NoClassID, "The object cannot be saved: it has no class ID."},
    {ids_LuxFormatter_NoProgID_1, "The class %1 has no ProgID."},
    {ids_LuxFormatter_UnsresolvedHref_1, "The reference %1 names no object of the document."},
    {ids_LuxFormatter_InvalidNodeObject, "The element does not hold an object."},
    {ids_LuxFormatter_NoStartTag, "A start tag is missing."},
    {ids_LuxFormatter_InvalidTagNameChar_2, "The tag name %1 contains the invalid character %2."},
    {ids_LuxFormatter_InvalidInlineEndTag_1, "The empty-element tag %1 is not closed with '/>'."},
    {ids_LuxFormatter_InvalidAttrName_2, "The attribute name %1 of the element %2 is not valid."},
    {ids_LuxFormatter_AttrNoEquals_2, "The attribute %1 of the element %2 has no '='."},
    {ids_LuxFormatter_InvalidArrayType_2, "The array type %1 of the element %2 is not valid."},
    {ids_LuxFormatter_InvalidArrayBoundSep_3, "The array bounds %1 of the element %2 are not separated correctly at %3."},
    {ids_LuxFormatter_ExtraArrayDimChars_1, "Extra characters follow the array dimensions in %1."},
    {ids_LuxFormatter_InvalidID_2, "The id %1 of the element %2 is not valid."},
    {ids_LuxFormatter_DuplicateID_2, "The id %1 of the element %2 is already used."},
    {ids_LuxFormatter_BadMime_1, "The base64 content of the element %1 is not valid."},
    {ids_LuxFormatter_ShortMime_1, "The base64 content of the element %1 is too short."},
    {ids_LuxFormatter_InvalidNodeAttrs_1, "The attributes of the element %1 are not valid."},
    {ids_LuxFormatter_NoEndTag_1, "The element %1 has no end tag."},
    {ids_LuxFormatter_InvalidEndTagNameChar_2, "The end tag name %1 contains the invalid character %2."},
    {ids_LuxFormatter_StartEndMismatch_2, "The end tag %2 does not match the start tag %1."},
    {ids_LuxFormatter_InvalidEndTagEnd_2, "The end tag %1 is not closed correctly at %2."},
    {ids_LuxFormatter_TooManyEscapeDigits, "A character reference has too many digits."},
    {ids_LuxFormatter_EscapeNonDigit_1, "The character reference %1 contains a character that is not a digit."},
    {ids_LuxFormatter_ReadError_1, "The stream could not be read: %1."},
    {ids_LuxFormatter_WriteError_1, "The stream could not be written: %1."},
    {ids_LuxFormatter_EndOfInputStream, "The input ended before the document was complete."},
    {ids_LuxFormatter_CantSaveObject_2, "The object %1 could not be saved: %2."},
    {ids_LuxFormatter_CantLoadObject_2, "The object %1 could not be loaded: %2."},
    {ids_LuxFormatter_CantCreateObject_1, "An object of the class %1 could not be created."},

    // The core's own messages
    {ids_Core_InvalidArg_1, "The argument %1 is not valid."},
    {ids_Core_ArgOutOfRange_1, "The argument %1 is out of range."},
    {ids_Core_ArgNotPositive_1, "The argument %1 must be greater than zero."},
    {ids_Core_UnknownMessageID_1, "No message has the ID %1."},
    {ids_Core_NoLanguageTable_1, "No message table exists for the language ID %1."},
    {ids_Core_PathNotFound_1, "The path %1 does not exist."},
    {ids_Core_UnknownResult_1, "Unknown failure (%1)."},
    {ids_Core_UnknownException, "An unknown exception was raised."},
    {ids_Core_BadState_1, "The object's present state does not allow this call: %1."},
    {ids_Core_NoSuchProperty_2, "The %1 object has no property %2."},
    {ids_Core_NotText_1, "The argument %1 cannot be converted to text."},
};

const LanguageTable kEnglishTable{
    MessageTable::kEnglish,
    "eng",
    {"DejaVu Sans", "DejaVu Sans", "DejaVu Sans", "DejaVu Sans Mono"},
    0,
    kEnglishTexts,
};

const LanguageTable* const kLanguages[] = {&kEnglishTable};

// Primary language: the low ten bits of a language ID.
constexpr int32_t Primary(int32_t language) { return language & 0x3FF; }

// One hash index per language table, built on first use.
const std::unordered_map<int32_t, const char*>& Index(const LanguageTable& table) {
    static const auto indexes = [] {
        std::array<std::unordered_map<int32_t, const char*>, std::size(kLanguages)> built;
        for (size_t i = 0; i < std::size(kLanguages); ++i)
            for (const MessageText& entry : kLanguages[i]->texts) built[i].emplace(entry.id, entry.text);
        return built;
    }();
    for (size_t i = 0; i < std::size(kLanguages); ++i)
        if (kLanguages[i] == &table) return indexes[i];
    return indexes[0];
}

std::atomic<int32_t> currentLanguage{MessageTable::kEnglish};

}  // namespace

const LanguageTable* MessageTable::Language(int32_t language) noexcept {
    for (const LanguageTable* table : kLanguages)
        if (table->language == language) return table;
    for (const LanguageTable* table : kLanguages)
        if (Primary(table->language) == Primary(language)) return table;
    return nullptr;
}

std::span<const LanguageTable* const> MessageTable::Languages() noexcept { return kLanguages; }

int32_t MessageTable::CurrentLanguage() noexcept { return currentLanguage.load(std::memory_order_relaxed); }

bool MessageTable::SetCurrentLanguage(int32_t language) noexcept {
    if (!Language(language)) return false;
    currentLanguage.store(language, std::memory_order_relaxed);
    return true;
}

const char* MessageTable::Find(int32_t id, int32_t language) noexcept {
    const LanguageTable* table = Language(language);
    if (!table) table = &kEnglishTable;
    // Building the index allocates; out of memory here means no text rather than a throw.
    try {
        const auto& own = Index(*table);
        if (auto found = own.find(id); found != own.end()) return found->second;
        if (table != &kEnglishTable) {
            const auto& english = Index(kEnglishTable);
            if (auto found = english.find(id); found != english.end()) return found->second;
        }
    } catch (...) {
    }
    return nullptr;
}

std::string MessageTable::Format(std::string_view pattern, std::span<const std::string> inserts) {
    std::string text;
    text.reserve(pattern.size() + 32);
    for (size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        if (c != '%' || i + 1 == pattern.size()) {
            text += c;
            continue;
        }
        const char next = pattern[i + 1];
        if (next == '%') {
            text += '%';
            ++i;
        } else if (next >= '1' && next <= '9') {
            const size_t index = static_cast<size_t>(next - '1');
            if (index < inserts.size()) text += inserts[index];
            ++i;
        } else {
            text += c;  // a lone percent sign stands for itself
        }
    }
    return text;
}

std::string MessageTable::Text(int32_t id, std::span<const std::string> inserts, bool* found) {
    const char* pattern = Find(id);
    if (found) *found = pattern != nullptr;
    return pattern ? Format(pattern, inserts) : std::string();
}

std::string MessageTable::ResultText(HRESULT result) {
    bool found = false;
    std::string text = Text(result, {}, &found);
    if (found) return text;
    const std::string code[] = {Hex(result)};
    return Text(ids_Core_UnknownResult_1, code);
}

std::string MessageTable::Hex(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(value));
    return text;
}

}  // namespace tessaly::core
