#include "com/image/CLuxRLEBuffer.h"

#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "com/core/ccCOMError.h"
#include "com/image/CLuxImage8Grey.h"
#include "com/image/CLuxImage8Root.h"
#include "com/image/impl/ImageErrors.h"
#include "com/image/impl/RLEBufferErrors.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::image {

// The run array goes out through RLEData as it is.
static_assert(sizeof(ccRLERun) == sizeof(LuxRLERun) && offsetof(ccRLERun, value) == offsetof(LuxRLERun, Value) &&
              offsetof(ccRLERun, length) == offsetof(LuxRLERun, Length));

namespace {

const ClassRegistrar<CLuxRLEBuffer> registrar;

using Table = std::array<uint8_t, 256>;

// Values before the runs in the stored array: X, Y, Width, Height.
constexpr size_t kStoredHeader = 4;
// A buffer 0 wide stores no runs, so nothing else bounds its height: no taller than an image.
constexpr int32_t kMaxEmptyHeight = kMaxImageSize;

std::string Place(int64_t x, int64_t y) { return "(" + std::to_string(x) + ", " + std::to_string(y) + ")"; }

// The 256-entry table of a Map argument: the identity, with the entries from the array's
// lower to its upper bound taken from the array (element i maps value i).
Table ReadMap(const VARIANT& given) {
    const VARIANT* map = &given;
    if (map->vt == (VT_BYREF | VT_VARIANT)) {
        if (!map->pvarVal) throw ccStdError::NullArgument("Map");
        map = map->pvarVal;
    }
    if (map->vt == VT_EMPTY || map->vt == VT_NULL || (map->vt == VT_ERROR && map->scode == DISP_E_PARAMNOTFOUND))
        throw ccStdError::NullArgument("Map");
    SAFEARRAY* array = nullptr;
    if (map->vt == (VT_ARRAY | VT_UI1))
        array = map->parray;
    else if (map->vt == (VT_BYREF | VT_ARRAY | VT_UI1))
        array = map->pparray ? *map->pparray : nullptr;
    else
        throw RLEBufferErrors::BadMap("Map: an array of bytes is needed, not a value of type " +
                                      std::to_string(map->vt),
                                      0, {"Map"});
    if (!array) throw ccStdError::NullArgument("Map");
    if (SafeArrayGetDim(array) != 1 || SafeArrayGetElemsize(array) != 1)
        throw RLEBufferErrors::BadMap("Map: an array of one dimension is needed, not of " +
                                          std::to_string(SafeArrayGetDim(array)),
                                      0, {"Map"});
    LONG lower = 0, upper = -1;
    core::ThrowIfFailed(SafeArrayGetLBound(array, 1, &lower));
    core::ThrowIfFailed(SafeArrayGetUBound(array, 1, &upper));
    if (lower < 0 || upper > 255)
        throw RLEBufferErrors::MapRange("Map: the bounds " + std::to_string(lower) + ".." + std::to_string(upper) +
                                            " do not lie within 0..255",
                                        0, {"Map"});
    Table table;
    for (size_t v = 0; v < table.size(); ++v) table[v] = static_cast<uint8_t>(v);
    if (upper >= lower) {
        void* data = nullptr;
        core::ThrowIfFailed(SafeArrayAccessData(array, &data));
        const auto* bytes = static_cast<const uint8_t*>(data);
        for (LONG i = lower; i <= upper; ++i) table[static_cast<size_t>(i)] = bytes[i - lower];
        SafeArrayUnaccessData(array);
    }
    return table;
}

template <class Interface>
Interface* Hand(ComPtr<CLuxRLEBuffer> object) {
    Interface* answer = object.get();
    answer->AddRef();
    return answer;
}

// The pixels of any grey image as a pel buffer over its whole root.
ccPelBuffer<uint8_t> PelsOf(ILuxImage8Grey* image) {
    if (const CLuxImage8Grey* own = CLuxImage8Grey::ImplementationOf(image)) return own->Pels();
    ComPtr<ILuxImage8Root> root;
    core::ThrowIfFailed(image->GetRoot(root.Out()));
    return ccPelBuffer<uint8_t>(CLuxImage8Root::PelsOf(root.get()));
}

[[noreturn]] void RefuseStored(const std::string& why) {
    throw ccArchive::BadContent("RLEBuffer: " + why, ids_Lux_ReadInvalidProperty_1, {"RLEBuffer"});
}

struct Loaded {
    ccRLEBuffer runs;
    int32_t x = 0, y = 0;
};

// The stored array as runs, checked before anything is made of it.
Loaded Decode(const Variant& stored) {
    if (stored.vt() != (VT_ARRAY | VT_I4) || !stored.get().parray)
        RefuseStored("an array of 32-bit integers is needed, not a value of type " + std::to_string(stored.vt()));
    SAFEARRAY* array = stored.get().parray;
    if (SafeArrayGetDim(array) != 1) RefuseStored("the array must have one dimension");
    const size_t count = SafeArrayElementCount(array);
    if (count < kStoredHeader || (count - kStoredHeader) % 2 != 0)
        RefuseStored(std::to_string(count) + " numbers: X, Y, Width, Height and a value and a length a run are needed");
    void* data = nullptr;
    core::ThrowIfFailed(SafeArrayAccessData(array, &data));
    struct Unaccess {
        SAFEARRAY* array;
        ~Unaccess() { SafeArrayUnaccessData(array); }
    } unaccess{array};
    const auto* numbers = static_cast<const int32_t*>(data);
    Loaded loaded;
    loaded.x = numbers[0];
    loaded.y = numbers[1];
    const int32_t width = numbers[2];
    const int32_t height = numbers[3];
    const size_t runCount = (count - kStoredHeader) / 2;
    if (width < 0 || height < 0) RefuseStored("a size of " + std::to_string(width) + " x " + std::to_string(height));
    // Each row of a buffer with pixels holds a run at least: a height beyond the runs
    // stored is refused before the row index is allocated.
    if (width > 0 && static_cast<uint64_t>(height) > runCount)
        RefuseStored(std::to_string(height) + " rows but only " + std::to_string(runCount) + " runs");
    if (width == 0 && height > kMaxEmptyHeight)
        RefuseStored("a buffer 0 wide of " + std::to_string(height) + " rows");
    std::vector<ccRLERun> runs(runCount);
    for (size_t i = 0; i < runCount; ++i) {
        const int32_t value = numbers[kStoredHeader + 2 * i];
        if (value < 0 || value > 255) RefuseStored("run " + std::to_string(i) + " has the value " + std::to_string(value));
        runs[i] = ccRLERun{static_cast<uint8_t>(value), numbers[kStoredHeader + 2 * i + 1]};
    }
    try {
        loaded.runs = ccRLEBuffer::FromRuns(width, height, runs);
    } catch (const ccRLEBuffer::Degenerate& refused) {
        RefuseStored(refused.Details());
    }
    return loaded;
}

Variant Encode(const ccRLEBuffer& runs, int32_t x, int32_t y) {
    const size_t count = kStoredHeader + 2 * static_cast<size_t>(runs.NumRuns());
    if (count > std::numeric_limits<ULONG>::max()) throw std::bad_alloc();
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(count));
    if (!array) throw std::bad_alloc();
    void* data = nullptr;
    SafeArrayAccessData(array, &data);
    auto* numbers = static_cast<int32_t*>(data);
    numbers[0] = x;
    numbers[1] = y;
    numbers[2] = runs.Width();
    numbers[3] = runs.Height();
    size_t i = kStoredHeader;
    for (const ccRLERun& run : runs.Runs()) {
        numbers[i++] = run.value;
        numbers[i++] = run.length;
    }
    SafeArrayUnaccessData(array);
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_ARRAY | VT_I4;
    value.parray = array;
    return Variant::Attach(value);
}

}  // namespace

ComPtr<CLuxRLEBuffer> CLuxRLEBuffer::FromCore(ccRLEBuffer runs, int32_t x, int32_t y) {
    auto object = ComPtr<CLuxRLEBuffer>::Attach(Create());
    if (!object) throw std::bad_alloc();
    // Nobody else sees the object yet.
    object->runs_ = std::move(runs);
    object->x_ = x;
    object->y_ = y;
    return object;
}

ccRLEBuffer CLuxRLEBuffer::Core() const {
    core::ObjectLock::Guard guard(Lock());
    return runs_;
}

int32_t CLuxRLEBuffer::X() const {
    core::ObjectLock::Guard guard(Lock());
    return x_;
}

int32_t CLuxRLEBuffer::Y() const {
    core::ObjectLock::Guard guard(Lock());
    return y_;
}

void CLuxRLEBuffer::CopyFrom(const CLuxRLEBuffer& source) {
    Placed taken;
    {
        core::ObjectLock::Guard guard(source.Lock());
        taken = Placed{source.runs_, source.x_, source.y_};
    }
    core::ObjectLock::Guard guard(Lock());
    std::swap(runs_, taken.runs);  // the old runs go with `taken`, outside the lock
    x_ = taken.x;
    y_ = taken.y;
}

void CLuxRLEBuffer::ResetState() noexcept {
    runs_ = ccRLEBuffer();
    x_ = y_ = 0;
}

void CLuxRLEBuffer::PersistState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        bool initted = runs_.IsInitialized();
        archive.Persist("Initted", initted);
        const Variant stored = initted ? Encode(runs_, x_, y_) : Variant();
        archive.Write("RLEBuffer", stored.get());
        return;
    }
    Variant initted;
    if (!archive.Read("Initted", initted)) return;
    if (FAILED(initted.ChangeType(VT_BOOL)))
        throw ccArchive::BadType("Initted is not a boolean", ids_Lux_ReadInvalidProperty_1, {"Initted"});
    Loaded loaded;
    if (initted.get().boolVal != VARIANT_FALSE) {
        Variant stored;
        if (!archive.Read("RLEBuffer", stored)) RefuseStored("an initialised buffer without its runs");
        loaded = Decode(stored);
    }
    archive.OnCommit([this, loaded = std::move(loaded)]() mutable noexcept {
        std::swap(runs_, loaded.runs);
        x_ = loaded.x;
        y_ = loaded.y;
    });
}

CLuxRLEBuffer::Placed CLuxRLEBuffer::Initialized() const {
    core::ObjectLock::Guard guard(Lock());
    if (!runs_.IsInitialized()) throw RLEBufferErrors::NotInitialized("the buffer holds no runs yet");
    return Placed{runs_, x_, y_};
}

// ILuxRLEBuffer

HRESULT CLuxRLEBuffer::get_Initted(VARIANT_BOOL* Initted) {
    return core::Guarded("get_Initted", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Initted);
        core::ObjectLock::Guard guard(Lock());
        *Initted = runs_.IsInitialized() ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxRLEBuffer::get_Binary(VARIANT_BOOL* Binary) {
    return core::Guarded("get_Binary", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Binary);
        *Binary = Initialized().runs.Binary() ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxRLEBuffer::get_X(LONG* X) {
    return core::Guarded("get_X", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(X);
        *X = Initialized().x;
    });
}

HRESULT CLuxRLEBuffer::get_Y(LONG* Y) {
    return core::Guarded("get_Y", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Y);
        *Y = Initialized().y;
    });
}

HRESULT CLuxRLEBuffer::SetCoordinate(const char* method, int32_t CLuxRLEBuffer::*member, int32_t value,
                                     int32_t stateId) {
    return core::Guarded(method, IID_ILuxRLEBuffer, [&] {
        {
            core::ObjectLock::Guard guard(Lock());
            if (!runs_.IsInitialized()) throw RLEBufferErrors::NotInitialized("the buffer holds no runs yet");
            if (this->*member == value) return S_OK;
            this->*member = value;
        }
        return RaiseChange(stateId, Variant(value).get(), luxFA_Misc);
    });
}

HRESULT CLuxRLEBuffer::put_X(LONG X) { return SetCoordinate("put_X", &CLuxRLEBuffer::x_, X, luxRLEBuffer_X); }

HRESULT CLuxRLEBuffer::put_Y(LONG Y) { return SetCoordinate("put_Y", &CLuxRLEBuffer::y_, Y, luxRLEBuffer_Y); }

HRESULT CLuxRLEBuffer::get_Width(LONG* Width) {
    return core::Guarded("get_Width", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Width);
        core::ObjectLock::Guard guard(Lock());
        *Width = runs_.Width();
    });
}

HRESULT CLuxRLEBuffer::get_Height(LONG* Height) {
    return core::Guarded("get_Height", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Height);
        core::ObjectLock::Guard guard(Lock());
        *Height = runs_.Height();
    });
}

HRESULT CLuxRLEBuffer::get_NumRuns(LONG* NumRuns) {
    return core::Guarded("get_NumRuns", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(NumRuns);
        core::ObjectLock::Guard guard(Lock());
        *NumRuns = runs_.NumRuns();
    });
}

HRESULT CLuxRLEBuffer::get_Pixel(LONG X, LONG Y, LONG* Value) {
    return core::Guarded("get_Pixel", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Value);
        core::ObjectLock::Guard guard(Lock());
        const int64_t column = int64_t{X} - x_;
        const int64_t row = int64_t{Y} - y_;
        if (column < 0 || row < 0 || column >= runs_.Width() || row >= runs_.Height())
            throw ccPel::BadCoord("pixel " + Place(X, Y) + " of a run-length buffer of " +
                                  std::to_string(runs_.Width()) + " x " + std::to_string(runs_.Height()) +
                                  " at " + Place(x_, y_));
        *Value = runs_.Pixel(static_cast<int32_t>(column), static_cast<int32_t>(row));
    });
}

HRESULT CLuxRLEBuffer::CreateImage8Grey(ILuxImage8Grey** Image) {
    return core::Guarded("CreateImage8Grey", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Image);
        *Image = nullptr;
        const Placed placed = Initialized();
        const int32_t width = placed.runs.Width();
        const int32_t height = placed.runs.Height();
        if (width < 1 || height < 1 || width > kMaxImageSize || height > kMaxImageSize)
            throw ImageErrors::AllocateSize("an image of the buffer's " + std::to_string(width) + " x " +
                                            std::to_string(height) + " pixels: each size must lie in 1..999999");
        auto root = CLuxImage8Root::Allocate(width, height, ccPelFill::None);
        placed.runs.Expand(ccPelBuffer<uint8_t>(root->Pels()), 0, 0);
        auto image = ComPtr<CLuxImage8Grey>::Attach(CLuxImage8Grey::Create());
        if (!image) throw std::bad_alloc();
        core::ThrowIfFailed(image->SetRoot(root.get()));
        *Image = static_cast<ILuxImage8Grey*>(image.Detach());
    });
}

HRESULT CLuxRLEBuffer::DrawIntoImage8Grey(ILuxImage8Grey* Image, VARIANT_BOOL TransparencyEnabled,
                                          LONG TransparencyValue) {
    return core::Guarded("DrawIntoImage8Grey", IID_ILuxRLEBuffer, [&] {
        core::RequireArgument(Image, "Image");
        const Placed placed = Initialized();
        const ccPelBuffer<uint8_t> pels = PelsOf(Image);
        if (!pels.IsBound()) throw ccPel::UnboundWindow("the image has no pixels");
        std::optional<uint8_t> transparent;
        if (TransparencyEnabled != VARIANT_FALSE) transparent = static_cast<uint8_t>(TransparencyValue & 0xFF);
        placed.runs.Expand(pels, placed.x, placed.y, transparent);
    });
}

HRESULT CLuxRLEBuffer::PixelMap(VARIANT Map, ILuxRLEBuffer** Mapped) {
    return core::Guarded("PixelMap", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Mapped);
        *Mapped = nullptr;
        const Table table = ReadMap(Map);
        const Placed placed = Initialized();
        *Mapped = Hand<ILuxRLEBuffer>(FromCore(placed.runs.PixelMap(table), placed.x, placed.y));
    });
}

HRESULT CLuxRLEBuffer::Combine(ILuxRLEBuffer* SubImage, VARIANT Map, LONG TransparencyValue,
                               ILuxRLEBuffer** Combined) {
    return core::Guarded("Combine", IID_ILuxRLEBuffer, [&] {
        core::RequireOut(Combined);
        *Combined = nullptr;
        core::RequireArgument(SubImage, "SubImage");
        const Table map = ReadMap(Map);
        const CLuxRLEBuffer* sub = ImplementationOf(SubImage);
        if (!sub) throw RLEBufferErrors::CombineFailed("SubImage is not a run-length buffer of this library");
        Placed self;
        {
            core::ObjectLock::Guard guard(Lock());
            self = Placed{runs_, x_, y_};
        }
        Placed part;
        {
            core::ObjectLock::Guard guard(sub->Lock());
            part = Placed{sub->runs_, sub->x_, sub->y_};
        }
        if (!self.runs.IsInitialized()) throw RLEBufferErrors::CombineFailed("this buffer holds no runs yet");
        if (!part.runs.IsInitialized()) throw RLEBufferErrors::CombineFailed("SubImage holds no runs yet");
        const std::string sizes = std::to_string(part.runs.Width()) + " x " + std::to_string(part.runs.Height()) +
                                  " at " + Place(part.x, part.y) + ", this buffer " +
                                  std::to_string(self.runs.Width()) + " x " + std::to_string(self.runs.Height()) +
                                  " at " + Place(self.x, self.y);
        if (part.runs.Width() > self.runs.Width() || part.runs.Height() > self.runs.Height())
            throw RLEBufferErrors::CombineSubImageSize("SubImage " + sizes);
        if (part.x < self.x || part.y < self.y) throw RLEBufferErrors::CombineSubImageOffset("SubImage " + sizes);
        if (int64_t{part.x} + part.runs.Width() > int64_t{self.x} + self.runs.Width() ||
            int64_t{part.y} + part.runs.Height() > int64_t{self.y} + self.runs.Height())
            throw RLEBufferErrors::CombineSubImageExtent("SubImage " + sizes);
        const auto transparent = static_cast<uint8_t>(TransparencyValue & 0xFF);
        ccRLEBuffer combined = self.runs.Combine(part.runs, static_cast<int32_t>(int64_t{part.x} - self.x),
                                                 static_cast<int32_t>(int64_t{part.y} - self.y), map, transparent);
        *Combined = Hand<ILuxRLEBuffer>(FromCore(std::move(combined), self.x, self.y));
    });
}

// ILuxRLEData

HRESULT CLuxRLEBuffer::get_RLEData(LuxRLEData* Data) {
    return core::Guarded("get_RLEData", IID_ILuxRLEData, [&] {
        core::RequireOut(Data);
        core::ObjectLock::Guard guard(Lock());
        if (!runs_.IsInitialized()) throw RLEBufferErrors::NotInitialized("the buffer holds no runs yet");
        Data->X = x_;
        Data->Y = y_;
        Data->Width = runs_.Width();
        Data->Height = runs_.Height();
        Data->NumRuns = runs_.NumRuns();
        Data->FreeRuns = runs_.FreeRuns();
        // The object's own storage: ccRLERun and LuxRLERun are one layout (checked above).
        Data->pRuns = reinterpret_cast<LuxRLERun*>(const_cast<ccRLERun*>(runs_.Runs().data()));
    });
}

}  // namespace tessaly::image
