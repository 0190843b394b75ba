// The object graphs the persistence benchmark saves and loads, made once per run, and
// their saved forms in each format:
//  - a LuxCollection holding one 16 MiB VT_ARRAY|VT_UI1 of random bytes (random, so that
//    no stage can profit from repetition);
//  - a LuxCollection holding 10,000 small keyed LuxCollections, each with a few short
//    strings and numbers under keys, as a tool's settings or a batch of records would be.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "TessalyCore.h"

namespace tessaly::bench {

class PersistSubjects {
public:
    static constexpr size_t kArrayBytes = size_t(16) << 20;
    static constexpr int32_t kGraphObjects = 10000;

    // What a formatter saved; `failure` says why `bytes` is empty when it could not save.
    struct Saved {
        std::vector<uint8_t> bytes;
        std::string failure;
    };

    // The subjects of this run, made on first use.
    static PersistSubjects& Get();
    // Releases the objects; call before leaving main, while the library is still whole.
    static void Discard() noexcept;

    PersistSubjects(const PersistSubjects&) = delete;
    PersistSubjects& operator=(const PersistSubjects&) = delete;
    ~PersistSubjects();

    const std::vector<uint8_t>& ArrayBytes() const noexcept { return arrayBytes_; }
    IDispatch* ArrayCollection() const noexcept { return arrayCollection_; }
    IDispatch* Graph() const noexcept { return graph_; }

    const Saved& ArrayBinary() const noexcept { return arrayBinary_; }
    const Saved& ArrayXml() const noexcept { return arrayXml_; }
    const Saved& GraphBinary() const noexcept { return graphBinary_; }
    const Saved& GraphXml() const noexcept { return graphXml_; }
    const Saved& ArraySoap() const noexcept { return arraySoap_; }
    const Saved& GraphSoap() const noexcept { return graphSoap_; }

    // "0x80004005: description" for a failed call, from the thread's error info.
    static std::string FailureText(HRESULT result);

private:
    PersistSubjects();
    static Saved Save(IDispatch* object, int32_t format);

    std::vector<uint8_t> arrayBytes_;
    IDispatch* arrayCollection_ = nullptr;
    IDispatch* graph_ = nullptr;
    Saved arrayBinary_;
    Saved arrayXml_;
    Saved graphBinary_;
    Saved graphXml_;
    Saved arraySoap_;
    Saved graphSoap_;
};

}  // namespace tessaly::bench
