#include "PersistSubjects.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "com/core/ObjectPersistence.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::bench {

namespace {

std::unique_ptr<PersistSubjects>& Slot() {
    static std::unique_ptr<PersistSubjects> subjects;
    return subjects;
}

// Without its subjects the program has nothing to measure: say why and stop.
void Require(HRESULT result, const char* what) {
    if (SUCCEEDED(result)) return;
    std::fprintf(stderr, "bench_persist: %s failed: %s\n", what, PersistSubjects::FailureText(result).c_str());
    std::exit(1);
}

ComPtr<ILuxCollection> NewCollection() {
    ComPtr<ILuxCollection> collection;
    Require(CreateObject("Tessaly.LuxCollection", ILuxCollection::iid, collection.OutVoid()), "creating a LuxCollection");
    return collection;
}

void Add(ILuxCollection* collection, const Variant& item, const char* key) {
    Require(collection->Add(item.get(), Bstr(key).get(), -1), "LuxCollection.Add");
}

}  // namespace

PersistSubjects& PersistSubjects::Get() {
    if (!Slot()) Slot().reset(new PersistSubjects());
    return *Slot();
}

void PersistSubjects::Discard() noexcept { Slot().reset(); }

PersistSubjects::PersistSubjects() : arrayBytes_(kArrayBytes) {
    std::mt19937_64 random(20240611);
    for (size_t at = 0; at < arrayBytes_.size(); at += sizeof(uint64_t)) {
        const uint64_t word = random();
        std::memcpy(arrayBytes_.data() + at, &word, sizeof word);
    }

    SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(kArrayBytes));
    if (!array) Require(E_OUTOFMEMORY, "SafeArrayCreateVector");
    void* data = nullptr;
    Require(SafeArrayAccessData(array, &data), "SafeArrayAccessData");
    std::memcpy(data, arrayBytes_.data(), kArrayBytes);
    SafeArrayUnaccessData(array);
    VARIANT pixels;
    VariantInit(&pixels);
    pixels.vt = VT_ARRAY | VT_UI1;
    pixels.parray = array;
    ComPtr<ILuxCollection> arrayCollection = NewCollection();
    Add(arrayCollection.get(), Variant::Attach(pixels), "Pixels");
    arrayCollection_ = arrayCollection.Detach();

    ComPtr<ILuxCollection> graph = NewCollection();
    char text[32];
    for (int32_t i = 0; i < kGraphObjects; ++i) {
        ComPtr<ILuxCollection> record = NewCollection();
        std::snprintf(text, sizeof text, "part-%05d", static_cast<int>(i));
        Add(record.get(), Variant(text), "Name");
        Add(record.get(), Variant(i % 2 ? "station A" : "station B"), "Station");
        Add(record.get(), Variant(i), "Index");
        Add(record.get(), Variant(i * 0.125 + 0.5), "Score");
        Add(record.get(), Variant(i % 3 != 0), "Passed");
        std::snprintf(text, sizeof text, "r%d", static_cast<int>(i));
        Add(graph.get(), Variant(static_cast<IDispatch*>(record.get())), text);
    }
    graph_ = graph.Detach();

    arrayBinary_ = Save(arrayCollection_, luxPersistFormatBinary);
    arrayXml_ = Save(arrayCollection_, luxPersistFormatXML);
    graphBinary_ = Save(graph_, luxPersistFormatBinary);
    graphXml_ = Save(graph_, luxPersistFormatXML);
    arraySoap_ = Save(arrayCollection_, luxPersistFormatSoap);
    graphSoap_ = Save(graph_, luxPersistFormatSoap);
}

PersistSubjects::~PersistSubjects() {
    if (arrayCollection_) arrayCollection_->Release();
    if (graph_) graph_->Release();
}

PersistSubjects::Saved PersistSubjects::Save(IDispatch* object, int32_t format) {
    Saved saved;
    const HRESULT result = SaveObjectToBytes(object, format, luxPersistOptionAll, &saved.bytes);
    if (FAILED(result)) {
        saved.bytes.clear();
        saved.failure = FailureText(result);
    }
    return saved;
}

std::string PersistSubjects::FailureText(HRESULT result) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
    std::string text = code;
    ComPtr<IErrorInfo> info;
    BSTR description = nullptr;
    if (GetErrorInfo(0, info.Out()) == S_OK && info && SUCCEEDED(info->GetDescription(&description)) && description)
        text += ": " + std::string(BstrView(description));
    SysFreeString(description);
    return text;
}

}  // namespace tessaly::bench
